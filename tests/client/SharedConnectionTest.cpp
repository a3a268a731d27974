#include "client/SharedConnection.hpp"

#include <gtest/gtest.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <future>
#include <thread>

#include "client/PinnedServer.hpp"
#include "client/SocketIdentity.hpp"
#include "fakes/ChildProcess.hpp"
#include "fakes/ScriptedDaemon.hpp"

namespace client {
namespace {

using fakes::ScriptedDaemon;
using fakes::ServedConnection;

QuillMessage requestFor(std::uint8_t content) {
  return QuillMessage::initCommandMessageSignData(Bytes{content}, Bytes(20, 2), SecretText(""));
}

RequestOptions soon() {
  return optionsWithin(std::chrono::seconds(10));
}

RequestOptions once() {
  RequestOptions options = optionsWithin(std::chrono::hours(1));
  options.reconnectTime = std::chrono::milliseconds(0);
  return options;
}

// Replies with the data to sign and the number of the connection.
void answer(ServedConnection &connection, int number, const QuillMessage &request) {
  Bytes answer = *request.dataToSign;
  answer.push_back(static_cast<std::uint8_t>(number));
  connection.send(QuillMessage::initWithReplyMessageForSignMessage(
      /*status=*/true, request.messageID, std::move(answer)));
}

void answerAll(ServedConnection &connection, int number) {
  while (const auto request = connection.receive()) {
    answer(connection, number, *request);
  }
}

class SharedConnectionTest : public testing::Test {
 protected:
  void serve(ScriptedDaemon::Serve serve) {
    daemon_.reset();
    daemon_.emplace(identity_, port_, std::move(serve));
    port_ = daemon_->port();
  }

  Bytes ask(std::uint8_t content, const RequestOptions &options = soon()) {
    const auto answer = connection_.request(requestFor(content), options, &error_);
    return answer ? answer->signedData.value_or(Bytes()) : Bytes();
  }

  crypto::Identity identity_ = fakes::makeIdentity("daemon");
  CertificateVerifier verifier_ = verifierForKeyOf(identity_.certificate);
  std::atomic<std::uint16_t> port_ = 0;
  std::optional<ScriptedDaemon> daemon_;
  Error error_;
  std::atomic<int> descriptor_ = -1;
  SharedConnection connection_{[this](const WaitLimits &limits, Error *error) {
    auto connection = Connection::open(kLoopbackHost, port_, verifier_, limits, error);
    descriptor_ = connection ? connection->descriptor() : -1;
    return connection;
  }};
};

TEST_F(SharedConnectionTest, GivesManyThreadsTheirAnswersInWhateverOrderTheyCome) {
  constexpr int kThreads = 32;
  serve([](ServedConnection &connection, int number) {
    for (int round = 0; round < 4; ++round) {
      std::vector<QuillMessage> requests;
      while (requests.size() < kThreads) {
        requests.push_back(connection.receive().value());
      }
      std::ranges::reverse(requests);
      std::ranges::for_each(requests,
                            [&](const auto &request) { answer(connection, number, request); });
    }
  });
  std::vector<std::jthread> threads;
  threads.reserve(kThreads);
  for (std::uint8_t name = 0; name < kThreads; ++name) {
    threads.emplace_back([this, name] {
      for (int round = 0; round < 4; ++round) {
        RequestOptions options = soon();
        options.checkInterval = std::chrono::hours(1);  // no periodic wake-up and no check
        options.shouldContinue = [] { return false; };
        const auto answer = connection_.request(requestFor(name), options);
        EXPECT_EQ(answer.value().signedData, (Bytes{name, 0}));
      }
    });
  }
}

TEST_F(SharedConnectionTest, LeavesAConnectionOnWhichADeadlinePassedToThoseThatWaitThere) {
  std::promise<void> isWaiting;
  std::promise<void> isLeft;
  serve([&](ServedConnection &connection, int number) {
    if (number > 0) {
      return answerAll(connection, number);
    }
    const auto patient = connection.receive().value();
    isWaiting.set_value();
    const auto late = connection.receive().value();
    isLeft.get_future().wait();
    answer(connection, number, late);
    answer(connection, number, patient);
  });
  std::thread patient([this] {
    EXPECT_EQ(connection_.request(requestFor(1), soon()).value().signedData, (Bytes{1, 0}));
  });
  isWaiting.get_future().wait();
  EXPECT_EQ(ask(2, optionsWithin(std::chrono::milliseconds(30))), Bytes());
  EXPECT_EQ(error_.code, timedOut);
  EXPECT_EQ(ask(3), (Bytes{3, 1}));
  isLeft.set_value();
  patient.join();
}

TEST_F(SharedConnectionTest, AsksAgainADaemonThatCameBack) {
  std::promise<void> isAsked;
  serve([&](ServedConnection &connection, int /*number*/) {
    const auto lost = connection.receive();
    isAsked.set_value();
    (void)connection.receive();
  });
  std::thread asking([this] { EXPECT_EQ(ask(1), (Bytes{1, 0})); });
  isAsked.get_future().wait();
  serve(answerAll);
  asking.join();
  serve(answerAll);  // lost while no thread waited
  EXPECT_EQ(ask(2, once()), (Bytes{2, 0}));
}

TEST_F(SharedConnectionTest, NeverTouchesWhatStandsUnderItsDescriptorLater) {
  serve(answerAll);
  EXPECT_EQ(ask(1), (Bytes{1, 0}));
  std::array<int, 2> ends{};
  ASSERT_EQ(::socketpair(AF_UNIX, SOCK_STREAM, 0, ends.data()), 0);
  const base::Descriptor mine(ends[0]);
  const base::Descriptor other(ends[1]);
  const int reused = descriptor_;
  ASSERT_EQ(::dup2(mine.get(), reused), reused);  // as if the program had closed and reopened it

  EXPECT_EQ(fakes::statusOfChild([&] {
              connection_.abandon();
              return ::fcntl(reused, F_GETFD) == -1 ? 1 : 0;
            }),
            0);
  EXPECT_EQ(ask(2), (Bytes{2, 1}));
  EXPECT_EQ(SocketIdentity::of(reused), SocketIdentity::of(mine.get())) << "it was closed";
  std::array<char, 1> byte{};
  EXPECT_EQ(::recv(other.get(), byte.data(), byte.size(), MSG_DONTWAIT), -1) << "it was written to";
  ::close(reused);
}

TEST_F(SharedConnectionTest, IsTakenUpAnewByTheChildOfAForkWhileTheParentsGoesOn) {
  serve(answerAll);
  EXPECT_EQ(ask(1), (Bytes{1, 0}));
  EXPECT_EQ(fakes::statusOfChild([this] {
              connection_.abandon();
              const bool isClosed = ::fcntl(descriptor_, F_GETFD) == -1;
              return isClosed && ask(2) == Bytes{2, 1} ? 0 : 1;
            }),
            0);
  EXPECT_EQ(ask(3), (Bytes{3, 0}));
}

TEST_F(SharedConnectionTest, SaysWhyThereIsNoAnswer) {
  serve([](ServedConnection &connection, int /*number*/) {
    while (connection.receive()) {
    }
  });
  RequestOptions stopping = soon();
  stopping.checkInterval = std::chrono::milliseconds(5);
  int looks = 0;
  stopping.shouldContinue = [&] { return descriptor_ < 0 || ++looks < 3; };
  EXPECT_EQ(ask(1, stopping), Bytes());
  EXPECT_EQ(error_.code, stopped);
  EXPECT_EQ(looks, 3);

  serve([](ServedConnection &connection, int /*number*/) { (void)connection.receive(); });
  EXPECT_EQ(ask(1, once()), Bytes());
  EXPECT_EQ(error_.code, peerEnded) << "as good as none";

  identity_ = fakes::makeIdentity("stranger");
  serve(answerAll);
  EXPECT_EQ(ask(1, once()), Bytes());
  EXPECT_EQ(error_.code, keyNotPinned);

  daemon_.reset();
  EXPECT_EQ(ask(1, once()), Bytes());
  EXPECT_EQ(error_.code, unreachable);

  EXPECT_FALSE(connection_.request(QuillMessage(), soon(), &error_));
  EXPECT_EQ(error_.code, notSendable);
}

}  // namespace
}  // namespace client
