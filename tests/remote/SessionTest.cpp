#include "remote/Session.hpp"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <csignal>
#include <functional>

#include "fakes/ScriptedDaemon.hpp"
#include "fakes/TemporaryFolder.hpp"
#include "remote/AuthenticationKey.hpp"

namespace remote {
namespace {

using fakes::ServedConnection;

// A session of the real loop with one machine, which the test plays.
class ServedSession : public testing::Test {
 protected:
  ServedSession() {
    folder_.write("key.pem", fakes::pemOf(cardKey_));
    keys_ = KeyRing::load(std::vector{folder_ / "key.pem"}, {}, hash_,
                          [](const std::string &, int, Error *) { return std::nullopt; });
  }

  // What a daemon says up to the inserted card.
  void takeCard(ServedConnection &connection) const {
    auto connected = QuillMessage::initWithReplyMessageForCommand(
        QuillCommandConnect, /*status=*/true, connection.receive().value().messageID);
    connected.selectedCertificateHash = hash_;
    connected.challenge = Bytes(16);
    connection.send(connected);
    connection.send(QuillMessage::initWithReplyMessageForCommand(
        QuillCommandAuthenticate, /*status=*/true, connection.receive().value().messageID));
    connection.send(QuillMessage::initWithReplyMessageForInsertStatus(
        /*status=*/true, connection.receive().value().messageID));
  }

  [[nodiscard]] static QuillMessage signingWith(const Bytes &certificateSHA1) {
    return QuillMessage::initCommandMessageSignData(Bytes(32, 1), certificateSHA1, SecretText(""));
  }

  // Serves until a signal or until the machine is given up.
  SessionEnd session(const std::function<void(ServedConnection &)> &serve,
                     std::optional<Fingerprint> known = std::nullopt) {
    const fakes::ScriptedDaemon daemon(
        server_, 0, [&](ServedConnection &connection, int /*number*/) { serve(connection); });
    ConnectCommand command;
    command.machines = {{"127.0.0.1", daemon.port()}};
    command.withoutConsent = true;
    if (known) {
      EXPECT_TRUE(knownHosts_.add(command.machines.front(), *known));
    } else {
      command.fingerprint = server_.certificate.sha256();
    }
    return serveMachines(command, knownHosts_, keys_.value(), authentication_, terminal_, *console_,
                         stop_);
  }

  const StopSignal stop_;  // before the first thread
  fakes::TemporaryFolder folder_;
  crypto::Identity authentication_ = authenticationKey(folder_.path()).value();
  Bytes hash_ = authentication_.key.publicKey().hash().value();
  crypto::Identity server_ = fakes::makeIdentity("server");
  crypto::Identity cardKey_ = fakes::makeIdentity("card key");
  std::optional<KeyRing> keys_;
  KnownHosts knownHosts_{folder_ / "known_hosts"};
  Terminal terminal_{base::Descriptor()};
  std::optional<Console> console_{std::in_place};
};

TEST_F(ServedSession, SignsNothingButAChallengeForItsOwnKey) {
  struct Case {
    const char *name;
    std::optional<Bytes> challenge;
    Bytes selected;
    bool status = true;
  };
  for (const Case &row :
       {Case{"fifteen bytes", Bytes(15), hash_}, Case{"seventeen bytes", Bytes(17), hash_},
        Case{"a DigestInfo", Bytes(51), hash_}, Case{"none", {}, hash_},
        Case{"another key", Bytes(16), Bytes(20)}, Case{"no user", Bytes(16), hash_, false}}) {
    SCOPED_TRACE(row.name);
    (void)session([&](ServedConnection &connection) {
      auto reply = QuillMessage::initWithReplyMessageForCommand(
          QuillCommandConnect, row.status, connection.receive().value().messageID);
      reply.selectedCertificateHash = row.selected;
      reply.challenge = row.challenge;
      connection.send(reply);
      EXPECT_FALSE(connection.receive()) << "something was sent in answer to the challenge";
      (void)::kill(::getpid(), SIGTERM);
    });
  }
}

TEST_F(ServedSession, SendsNothingToAServerThatHasChangedSinceItWasKnown) {
  std::size_t received = 0;
  const auto ended = session(
      [&](ServedConnection &connection) {
        EXPECT_FALSE(connection.receive());
        received += connection.received();
      },
      Fingerprint(32, 1));
  EXPECT_FALSE(ended.bySignal);
  EXPECT_EQ(received, 0U);
}

TEST_F(ServedSession, ServesWhileNobodyReadsWhatItSaysAndLeavesADaemonThatFloodsAndNeverReads) {
  std::array<int, 2> ends{};
  ASSERT_EQ(::pipe2(ends.data(), O_CLOEXEC), 0);
  const base::Descriptor reader(ends[0]);
  const base::Descriptor output(ends[1]);
  std::string text(static_cast<std::size_t>(::fcntl(output.get(), F_GETPIPE_SZ)), ' ');
  ASSERT_EQ(::write(output.get(), text.data(), text.size()), std::ssize(text));
  console_.emplace(output.get(), output.get());
  std::size_t sent = 0;
  (void)session([&](ServedConnection &connection) {
    takeCard(connection);
    connection.send(signingWith(cardKey_.certificate.sha1()));
    EXPECT_TRUE(connection.receive().value().status);
    while (connection.send(signingWith(Bytes(20, 9)))) {
      ++sent;
    }
    (void)::kill(::getpid(), SIGTERM);
  });
  ASSERT_EQ(::read(reader.get(), text.data(), text.size()), std::ssize(text));
  EXPECT_EQ(console_->flush({}), OutputWriter::Outcome::written);
  text.resize(static_cast<std::size_t>(::read(reader.get(), text.data(), text.size())));
  EXPECT_NE(text.find("it does not take its answers"), std::string::npos) << text;
  EXPECT_GT(sent, 10000U);
  EXPECT_LT(std::ranges::count(text, '\n'), 100) << "a line for each would be " << sent;
}

}  // namespace
}  // namespace remote
