#include "worker/QuillWorker.hpp"

#include <cerrno>

#include "fakes/FakeNetwork.hpp"
#include "fakes/LoggedTest.hpp"

namespace {

using testing::ElementsAre;

const std::string kRemove =
    R"({"type":"request","command":"remove","message_id":"0F1E2D3C-4B5A-6978-8796-A5B4C3D2E1F0"})";
const std::string kFrame = "[DATA]" + kRemove + "[ENDDATA]";

class Worker : public fakes::LoggedTest {
 public:
  Worker()
      : connection(std::make_shared<fakes::FakeConnection>()),
        worker(QuillWorker::initWithReceiveBlock(
            [this](const QuillWorker::Shared &, const QuillMessage &) { ++messages; },
            [this](const QuillWorker::Shared &, const std::optional<std::string> &) {
              events += "disconnected ";
            })) {
    worker->postDisconnected = [this](const QuillWorker::Shared &) { events += "notified "; };
    worker->startConnection(connection);
    worker->receiveLoopWithConnection(connection);
  }

  std::shared_ptr<fakes::FakeConnection> connection;
  std::size_t messages = 0;
  std::string events;
  QuillWorker::Shared worker;
};

// What is a frame and what is none: fuzzFrame's corpus.
TEST_F(Worker, CutsMessagesOutOfChunks) {
  setDebugMode(true);
  for (const auto &[chunk, messagesThen] :
       {std::pair{kFrame, 1U},
        {kRemove + "[ENDDATA]", 1U},  // the buffer is kept after a frame
        {kFrame.substr(0, 20), 1U},
        {kFrame.substr(20, 30), 1U},
        {kFrame.substr(50), 2U},
        {kFrame.substr(0, 50), 2U},
        {"12345678", 2U},
        {kFrame, 3U}}) {
    connection->deliver(chunk);
    EXPECT_EQ(messages, messagesThen) << chunk;
    EXPECT_TRUE(connection->isReceiving());
  }
  EXPECT_THAT(takeEntries(),
              testing::IsSupersetOf({"kfy:3132333435363738", "kfy:data too small. ignoring"}));
}

TEST_F(Worker, DecodesNoListThatWouldBeRefused) {
  const std::string frame =
      R"([DATA]{"type":"request","command":"insert","message_id":"x","certificates":["QQ==",{}]}[ENDDATA])";
  std::string lists;
  worker->receiveBlock = [&](const QuillWorker::Shared &, const QuillMessage &message) {
    lists += message.certificates ? 'y' : 'n';
  };
  connection->deliver(frame);
  worker->mayBringList = [](const QuillWorker &from) { return from.isAuthenticated; };
  connection->deliver(frame);
  EXPECT_FALSE(connection->isAuthenticated);
  worker->isAuthenticated = true;
  connection->deliver(frame);
  EXPECT_TRUE(connection->isAuthenticated);
  EXPECT_EQ(lists, "yny");
}

TEST_F(Worker, SendsAMessageAsOneUnitAndAnUnwritableOneAsAnEmptyFrame) {
  QuillMessage message = *QuillMessage::initWithJSONData(base::viewOf(kRemove));
  EXPECT_TRUE(worker->sendMessage(message));
  message.messageID.reset();
  connection->sendError = EPIPE;
  EXPECT_TRUE(worker->sendMessage(message));
  EXPECT_THAT(connection->sent, ElementsAre(kFrame, "[DATA][ENDDATA]"));
  EXPECT_EQ(log.standardError, "kfyd: write close error: Broken pipe\n");
  EXPECT_THAT(
      takeEntries(),
      ElementsAre("kfy:sending message: Status: NO\\nMesage Type: 0\\nCommand: 3\\nmessageID: "
                  "0F1E2D3C-4B5A-6978-8796-A5B4C3D2E1F0\\n",
                  "kfy:(null)",
                  "kfy:sending message: Status: NO\\nMesage Type: 0\\nCommand: 3\\n"));
}

TEST_F(Worker, IsForgottenByItsManagerWhenThePeerEndsItsStream) {
  connection->end();
  EXPECT_EQ(events, "notified disconnected ");
  EXPECT_FALSE(worker->g_inbound_connection);
  EXPECT_FALSE(connection->isReceiving());
}

TEST_F(Worker, StaysRegisteredWhenTheDaemonCancels) {
  worker->sendMessageAndDisconnect(QuillMessage::initCommandMessageRemoveSmartCard());
  EXPECT_EQ(connection->sent.size(), 1U);
  EXPECT_TRUE(connection->isCancelled);
  EXPECT_EQ(events, "");
  takeEntries();
  connection->stateHandler(platform::ConnectionState::cancelled, 0);
  EXPECT_EQ(events, "disconnected ");
  worker->disconnect();
  QuillMessage unwritable = QuillMessage::initCommandMessageRemoveSmartCard();
  unwritable.messageID.reset();
  EXPECT_FALSE(worker->sendMessage(unwritable));
  EXPECT_THAT(takeEntries(),
              ElementsAre("kfy:connection cancelled", "kfy:(null)",
                          "kfy:sending message: Status: NO\\nMesage Type: 0\\nCommand: 3\\n",
                          "kfy:connection dropped! Cannot send mesage : "
                          "5B444154415D5B454E44444154415D"));
}

TEST_F(Worker, StaysSilentAfterAReceiveErrorUntilTheStateChanges) {
  connection->complete({base::viewOf(kFrame), /*isFinal=*/false, ECONNRESET});
  EXPECT_EQ(messages, 1U) << "content that comes with an error is processed";
  EXPECT_FALSE(connection->isReceiving());
  EXPECT_TRUE(worker->g_inbound_connection);
  EXPECT_EQ(events, "");
  EXPECT_THAT(takeEntries(), ElementsAre("kfy:error receiving content", "kfy:error receiving"));
}

TEST_F(Worker, PrintsItsConnectionsStates) {
  using platform::ConnectionState;
  for (const auto &[state, errorNumber] : {std::pair{ConnectionState::preparing, 0},
                                           {ConnectionState::ready, 0},
                                           {ConnectionState::waiting, ENETDOWN},
                                           {ConnectionState::failed, ECONNRESET}}) {
    connection->stateHandler(state, errorNumber);
  }
  EXPECT_EQ(log.standardError,
            "Connection to 192.0.2.7 port 50123 (tcp) succeeded!\n"
            "kfyd: connect to 192.0.2.7 port 50123 (tcp) failed, is waiting: Network is down\n"
            "kfyd: connect to 192.0.2.7 port 50123 (tcp) failed: Connection reset by peer\n");
  EXPECT_EQ(events, "");
}

}  // namespace
