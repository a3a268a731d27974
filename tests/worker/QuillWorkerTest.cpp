#include "worker/QuillWorker.hpp"

#include "fakes/FakeNetwork.hpp"
#include "fakes/LoggedTest.hpp"

namespace {

using platform::ConnectionState;

class Worker : public fakes::LoggedTest {
 public:
  Worker() {
    worker->postDisconnected = [this](const auto &) { events.emplace_back("notified"); };
    worker->startConnection(connection);
    worker->receiveLoopWithConnection(connection);
    const auto tells = [this](ConnectionState state) {
      return [this, state](const std::string &error) {
        connection->stateHandler(state, error.empty() ? 0 : std::stoi(error));
      };
    };
    transcript.actions = {
        {"debug", [this](const auto &) { setDebugMode(true); }},
        {"authenticated", [this](const auto &) { worker->isAuthenticated = true; }},
        {"chunk", [this](const auto &chunk) { connection->deliver(chunk); }},
        {"lastChunk",
         [this](const auto &chunk) { connection->complete({base::viewOf(chunk), false, 1}); }},
        {"end", [this](const auto &) { connection->end(); }},
        {"send",
         [this](const auto &json) {
           events.push_back(worker->sendMessage(made(json)) ? "sent" : "not sent");
         }},
        {"answerAndDisconnect",
         [this](const auto &json) { worker->sendMessageAndDisconnect(made(json)); }},
        {"sendError", [this](const auto &error) { connection->sendError = std::stoi(error); }},
        {"disconnect", [this](const auto &) { worker->disconnect(); }},
        {"forget", [this](const auto &) { worker.reset(); }},
        {"preparing", tells(ConnectionState::preparing)},
        {"waiting", tells(ConnectionState::waiting)},
        {"ready", tells(ConnectionState::ready)},
        {"failed", tells(ConnectionState::failed)},
        {"cancelled", tells(ConnectionState::cancelled)}};
    transcript.takeLines = [this] {
      auto lines = takeLogLines();
      for (auto *more : {&connection->sent, &events, &connection->calls}) {
        std::ranges::move(std::exchange(*more, {}), std::back_inserter(lines));
      }
      lines.resize(lines.size() + (connection->isReceiving() ? 0 : 1), "deaf");
      return lines;
    };
    transcript.name(R"(
~ID 0F1E2D3C-4B5A-6978-8796-A5B4C3D2E1F0
~REMOVE {"type":"request","command":"remove","message_id":"~ID"}
~INSERT {"type":"request","command":"insert","message_id":"~ID","certificates":[{}]}
~SENDING kfy:sending message: Status: NO\nMesage Type: 0\nCommand: 3\n
)");
  }

  static QuillMessage made(const std::string &messageID) {
    QuillMessage message = QuillMessage::initCommandMessageRemoveSmartCard();
    message.messageID = UUID::fromText(messageID);
    return message;
  }

  std::shared_ptr<fakes::FakeConnection> connection = std::make_shared<fakes::FakeConnection>();
  std::vector<std::string> events;
  QuillWorker::Shared worker = QuillWorker::initWithReceiveBlock(
      [this](const auto &, const QuillMessage &message) {
        events.push_back(message.certificates ? "message with list" : "message");
      },
      [this](const auto &, const auto &) { events.emplace_back("disconnected"); });
  fakes::Transcript transcript;
};

TEST_F(Worker, ReceivesUntilTheStreamEnds) {
  worker->mayBringList = [](const QuillWorker &from) { return from.isAuthenticated; };
  transcript.expect(R"(
> chunk [DATA]~REMOVE[ENDDATA]
message | start | holds 104+0
> chunk [DATA]{"type":"request","com
holds 28+0
> chunk mand":"remove","message_id":"~ID"}[ENDDATA]
message | holds 104+0
> chunk [DATA]x[ENDDATA]
kfy:syntax error : 78 | rejected | holds 16+0
> chunk 123456789
holds 25+0
> chunk [ENDDATA]
kfy:syntax error : 785B454E44444154415D313233343536373839 | rejected | holds 34+0
> chunk [DATA]~INSERT[ENDDATA]
message | holds 124+0
> authenticated
> chunk [DATA]~INSERT[ENDDATA]
message with list | authenticated | holds 124+0
> debug
> chunk 12345678
kfy:3132333435363738 | kfy:data too small. ignoring | rejected | holds 124+0
> end
kfy:closing connection | notified | disconnected | deaf
> disconnect
deaf
> forget
deaf
> failed
deaf
)");
}

TEST_F(Worker, SendsAndPrintsItsConnectionsStates) {
  transcript.expect(R"(
> preparing
start
> ready
Connection to 192.0.2.7 port 50123 (tcp) succeeded!
> waiting 100
kfyd: connect to 192.0.2.7 port 50123 (tcp) failed, is waiting: Network is down
> send ~ID
~SENDINGmessageID: ~ID\n | [DATA]~REMOVE[ENDDATA] | sent
> sendError 32
> send
kfy:(null) | ~SENDING
kfyd: write close error: Broken pipe | [DATA][ENDDATA] | sent
> lastChunk [DATA]~REMOVE[ENDDATA]
kfy:error receiving content | kfy:error receiving | message | holds 104+0 | deaf
> failed 104
kfyd: connect to 192.0.2.7 port 50123 (tcp) failed: Connection reset by peer | deaf
)");
  EXPECT_TRUE(worker->g_inbound_connection);
}

TEST_F(Worker, ForgetsWhatItHeldWhenTheDaemonCancels) {
  worker->certificates = protocol::makeCardList(std::vector<protocol::CardElement>{Bytes{1}});
  worker->keysAlike = {{{}, true}};
  const std::string held = std::to_string(worker->certificates->bytes());
  transcript.name("~LIST " + held);
  transcript.expect(R"(
> chunk [DATA]123
start | holds 9+~LIST
> answerAndDisconnect ~ID
~SENDINGmessageID: ~ID\n | [DATA]~REMOVE[ENDDATA] | cancel
> disconnect
> send
kfy:(null) | ~SENDING
kfy:connection dropped! Cannot send mesage : 5B444154415D5B454E44444154415D | not sent
> cancelled
kfy:connection cancelled | disconnected
)");
  EXPECT_TRUE(!worker->certificates && worker->keysAlike.empty() && worker->dataBuffer.empty());
  EXPECT_GT(QuillWorker::initWithReceiveBlock({}, {})->number, worker->number);
}

TEST_F(Worker, MayGoBeforeItsConnection) {
  transcript.expect("> forget\nstart\n> chunk [DATA]~REMOVE[ENDDATA]\ndeaf\n> cancelled\ndeaf\n");
}

}  // namespace
