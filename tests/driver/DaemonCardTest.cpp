#include "driver/DaemonCard.hpp"

#include <gtest/gtest.h>

#include <atomic>
#include <filesystem>
#include <fstream>
#include <mutex>

#include "base/Root.hpp"
#include "client/CardMarker.hpp"
#include "driver/CardCache.hpp"
#include "driver/Driver.hpp"
#include "encodings/HexString.hpp"
#include "fakes/ScriptedDaemon.hpp"
#include "protocol/CardList.hpp"

namespace driver {
namespace {

using std::chrono::milliseconds;

void removeMarker() {
  std::filesystem::remove(client::cardMarkerPath());
}

void putMarker() {
  removeMarker();
  std::ofstream(client::cardMarkerPath()).close();
}

// A daemon whose card handles a request as its first byte says.
class DaemonCardTest : public testing::Test {
 protected:
  enum Deed : std::uint8_t { answers, refuses, isSilent, sendsNothing, isConfused, withdraws };

  void SetUp() override {
    putMarker();
    setList({entry(identity_.certificate, "key")});
  }
  void TearDown() override { removeMarker(); }

  static encodings::CertificateInfo entry(const crypto::Certificate &certificate,
                                          const std::string &label) {
    encodings::CertificateInfo info;
    info.certificate = encodings::base64EncodeBytes(certificate.der(), /*separateLines=*/false);
    info.label = label;
    info.canSign = true;
    return info;
  }

  void setList(std::vector<encodings::CertificateInfo> infos) {
    const std::vector<protocol::CardElement> elements(infos.begin(), infos.end());
    const std::scoped_lock lock(mutex_);
    list_ = protocol::makeCardList(elements);
  }

  std::optional<QuillMessage> replyTo(const QuillMessage &request) {
    auto reply = QuillMessage::initWithReplyMessageForCommand(request.command, /*status=*/true,
                                                              request.messageID);
    if (request.command == QuillCommandGetCertificates) {
      std::exchange(whenListed_, [] {})();
    }
    const std::scoped_lock lock(mutex_);
    if (request.command == QuillCommandGetCertificates) {
      reply.certificates = list_;
      ++listings_;
      return reply;
    }
    const Bytes data = request.dataToSign ? *request.dataToSign : request.dataToDecrypt.value();
    const auto deed = static_cast<Deed>(data.at(0));
    if (deed == withdraws) {
      removeMarker();
    }
    if (deed == withdraws || deed == isSilent) {
      return std::nullopt;
    }
    reply.status = deed != refuses && !list_->entries().empty();
    reply.signedData = deed == answers || deed == isConfused ? Bytes{7, 8} : Bytes();
    reply.decryptedData = SecretBytes(Bytes{9});
    reply.command = deed == isConfused ? QuillCommandDecryptData : reply.command;
    return reply;
  }

  CardDependencies dependencies(bool isFolderPrivate) {
    return {[this](const client::WaitLimits &limits, Error *error) {
              if (!daemon_) {
                base::report(error, "test", 0, "no daemon runs");
                std::exchange(whenRefused_, [] {})();
                return std::unique_ptr<client::Connection>();
              }
              return client::Connection::open(client::kLoopbackHost, daemon_->port(),
                                              client::verifierForKeyOf(identity_.certificate),
                                              limits, error);
            },
            [isFolderPrivate] { return isFolderPrivate; },
            [this](const std::string &line) { journal_.push_back(line); }};
  }

  RequestOutcome outcomeOf(Deed deed) {
    return card_.sign(card_.content()->at(0), Bytes{deed}, SecretText("1234")).outcome;
  }

  crypto::Identity identity_ = fakes::makeIdentity("daemon");
  std::mutex mutex_;
  QuillMessage::Certificates list_;
  std::atomic<int> listings_ = 0;
  std::vector<std::string> journal_;
  std::function<void()> whenListed_ = [] {};   // happens once
  std::function<void()> whenRefused_ = [] {};  // while the daemon is not running; happens once
  fakes::ScriptedDaemon::Serve serve_ = [this](auto &connection, int) {
    while (const auto request = connection.receive()) {
      if (const auto reply = replyTo(*request)) {
        connection.send(*reply);
      }
    }
  };
  std::optional<fakes::ScriptedDaemon> daemon_{std::in_place, identity_, std::uint16_t{0}, serve_};
  CardTimeouts timeouts_{.request = milliseconds(10000),
                         .list = milliseconds(10000),
                         .cardAway = milliseconds(20),
                         .pollInterval = milliseconds(5),
                         .restart = std::chrono::hours(1),
                         .retryDelay = milliseconds(0)};
  DaemonCard card_{timeouts_, dependencies(/*isFolderPrivate=*/false)};
};

TEST_F(DaemonCardTest, IsThereWhileTheMarkerIs) {
  EXPECT_TRUE(card_.isPresent());
  const auto generation = card_.generation();
  EXPECT_EQ(card_.content()->size(), 1);
  EXPECT_EQ(card_.generation(), generation) << "the first reading is no news";

  removeMarker();
  EXPECT_FALSE(card_.isPresent());
  EXPECT_EQ(card_.content(), nullptr);
  EXPECT_NE(card_.generation(), generation);
  putMarker();
  EXPECT_TRUE(card_.isPresent());
}

TEST_F(DaemonCardTest, ReadsTheListOncePerMarkerInItsOrder) {
  const auto key = fakes::madeIdentity("RSA", "key");
  auto broken = entry(key.certificate, "broken");
  broken.certificate = encodings::base64EncodeBytes(Bytes(40, 1), /*separateLines=*/false);
  setList({entry(key.certificate, "first"), broken, entry(identity_.certificate, ""),
           entry(key.certificate, "again")});
  const auto content = card_.content();
  ASSERT_TRUE(content);
  EXPECT_EQ(card_.content(), content);
  EXPECT_EQ(listings_, 1);
  ASSERT_EQ(content->size(), 3);
  EXPECT_EQ(content->at(0).label, "first");
  EXPECT_EQ(content->at(2).publicKeyHash, content->at(0).publicKeyHash);

  setList({});
  putMarker();
  EXPECT_TRUE(card_.isPresent()) << "nothing else is known of it";
  EXPECT_EQ(card_.content(), nullptr);
  EXPECT_FALSE(card_.isPresent());
  EXPECT_EQ(listings_, 2);

  const std::function<void()> insertAgain = [&] {
    putMarker();
    whenListed_ = insertAgain;
  };
  insertAgain();
  EXPECT_EQ(card_.content(), nullptr) << "it never stays";
  EXPECT_EQ(listings_, 5);
}

TEST_F(DaemonCardTest, ReadsTheBeginningOfALongList) {
  std::vector<encodings::CertificateInfo> infos(kMaxCertificates + 1,
                                                entry(identity_.certificate, "key"));
  infos.back().label = "left out";
  setList(infos);
  EXPECT_EQ(card_.content()->size(), kMaxCertificates);
  putMarker();
  EXPECT_EQ(card_.content()->back().label, "key");
  ASSERT_EQ(journal_.size(), 1U) << "said once";
  EXPECT_NE(journal_[0].find(" 1025 certificates, of which 1 are left out"), std::string::npos);
}

TEST_F(DaemonCardTest, TellsHowAUseEnded) {
  const auto identity = card_.content()->at(0);
  const SecretText pin("");
  EXPECT_EQ(card_.sign(identity, Bytes{answers}, pin).answer.reveal().size(), 2U);
  EXPECT_EQ(card_.decrypt(identity, Bytes{answers}, pin).answer.reveal().size(), 1U);
  EXPECT_EQ(outcomeOf(refuses), RequestOutcome::refused);
  EXPECT_EQ(outcomeOf(sendsNothing), RequestOutcome::failed);
  EXPECT_EQ(outcomeOf(isConfused), RequestOutcome::failed);
  EXPECT_NE(card_.lastError(), "");
  EXPECT_EQ(outcomeOf(answers), RequestOutcome::done);
  EXPECT_EQ(card_.lastError(), "");

  setList({entry(fakes::makeIdentity("other").certificate, "other")});
  EXPECT_EQ(card_.sign(identity, Bytes{refuses}, pin).outcome, RequestOutcome::cardGone);
  EXPECT_EQ(outcomeOf(withdraws), RequestOutcome::cardGone);
  EXPECT_EQ(card_.sign(identity, Bytes{answers}, pin).outcome, RequestOutcome::cardGone);
  putMarker();
  timeouts_.request = milliseconds(30);
  DaemonCard hasty(timeouts_, dependencies(/*isFolderPrivate=*/false));
  EXPECT_EQ(hasty.sign(identity, Bytes{isSilent}, pin).outcome, RequestOutcome::timedOut);
}

// In the rows above the daemon runs without the card: if they waited for a restart, they would take
// an hour.
TEST_F(DaemonCardTest, AUseAwaitsADaemonThatRestarts) {
  const auto identity = card_.content()->at(0);
  const auto sign = [&](DaemonCard &card) {
    return card.sign(identity, Bytes{answers}, SecretText("")).outcome;
  };
  // Like a killed daemon: the marker stays until it runs again.
  daemon_.reset();
  setList({});
  whenRefused_ = [&] {
    removeMarker();
    daemon_.emplace(identity_, std::uint16_t{0}, serve_);
  };
  whenListed_ = [&] {
    setList({entry(identity_.certificate, "key")});
    putMarker();
  };
  EXPECT_EQ(sign(card_), RequestOutcome::done);

  DaemonCard stranger(timeouts_, dependencies(/*isFolderPrivate=*/false));
  timeouts_.restart = milliseconds(20);
  DaemonCard hasty(timeouts_, dependencies(/*isFolderPrivate=*/false));
  EXPECT_TRUE(hasty.content());
  removeMarker();
  daemon_.reset();
  EXPECT_EQ(sign(hasty), RequestOutcome::cardGone);
  EXPECT_EQ(sign(stranger), RequestOutcome::cardGone);
}

TEST_F(DaemonCardTest, AsksTheDaemonWhereNoMarkerCanBeSeen) {
  removeMarker();
  DaemonCard blind(timeouts_, dependencies(/*isFolderPrivate=*/true));
  setList({});
  EXPECT_FALSE(blind.isPresent());
  const auto generation = blind.generation();
  setList({entry(identity_.certificate, "key")});
  EXPECT_TRUE(blind.isPresent());
  EXPECT_EQ(blind.content()->size(), 1);
  EXPECT_NE(blind.generation(), generation);
  EXPECT_EQ(listings_, 3);

  timeouts_.retryDelay = std::chrono::hours(1);
  DaemonCard calm(timeouts_, dependencies(/*isFolderPrivate=*/true));
  EXPECT_TRUE(calm.isPresent());
  EXPECT_TRUE(calm.content());
  EXPECT_EQ(listings_, 4);

  static auto *test = this;
  test = this;
  Driver waiting([](const DriverSettings & /*settings*/, Journal & /*journal*/) {
    return std::unique_ptr<Card>(
        new DaemonCard(test->timeouts_, test->dependencies(/*isFolderPrivate=*/true)));
  });
  timeouts_.retryDelay = milliseconds(0);
  setList({});
  EXPECT_EQ(waiting.waitForSlotEvent(/*mayBlock=*/false), CKR_NO_EVENT);
  setList({entry(identity_.certificate, "key")});
  EXPECT_EQ(waiting.waitForSlotEvent(/*mayBlock=*/false), CKR_OK);

  daemon_.reset();
  EXPECT_FALSE(blind.isPresent());
  EXPECT_NE(blind.lastError(), "");
}

TEST(PrivateMount, IsMountedForThisProgramAlone) {
  const std::string disk = "22 1 8:1 / / rw shared:1 - ext4 /dev/sda1 rw\n";
  const std::string slave = "22 1 8:1 / / rw shared:40 master:1 - ext4 /dev/sda1 rw\n";
  const std::string subvolumes =
      "22 1 0:25 /@ / rw - btrfs /dev/sda1 rw\n23 22 0:25 /@tmp /tmp rw - btrfs /dev/sda1 rw\n";
  const std::string memory = "23 22 0:30 / /tmp rw shared:2 - tmpfs tmpfs rw\n";
  const std::pair<std::string, bool> kCases[] = {
      {"nonsense\n\n1 2 3\n" + disk, false},
      {disk + memory, false},
      {slave + "23 22 0:30 / /tmp rw shared:41 master:2 - tmpfs tmpfs rw\n", false},
      {subvolumes, false},
      {disk + "23 22 8:1 /tmp/own-1/tmp /tmp rw - ext4 /dev/sda1 rw", true},
      {disk + memory + "24 23 0:30 /own-1/tmp /tmp rw - tmpfs tmpfs rw\n", true},
      {slave + memory, true},  // in a service's mount namespace
      {"23 22 0:30 / /tmp rw - tmpfs tmpfs rw\n", true}};
  for (const auto &[mountInfo, isPrivate] : kCases) {
    EXPECT_EQ(isPrivateMount(mountInfo, "/tmp"), isPrivate) << mountInfo;
  }
}

}  // namespace
}  // namespace driver
