#include "requests/ClientAuthentication.hpp"

#include <algorithm>
#include <chrono>
#include <fstream>
#include <limits>

#include "requests/PairingListing.hpp"
#include "requests/RequestsFixture.hpp"

namespace {

using testing::Each;
using testing::ElementsAre;

const std::string kHeader = "SmartCard: com.corvane.keyferry.ctkextension:1\n";
const std::string kSection = "Paired identities which are used for authentication:\n";

struct Client {
  crypto::PrivateKey key;
  crypto::Certificate certificate;
  Bytes hash;
};

Client makeClient(const crypto::PrivateKey &key) {
  const auto certificate =
      crypto::Certificate::selfSigned(key, "client", /*days=*/1, /*serverName=*/false);
  return {key, *certificate, support::sha1(*key.publicKey().externalRepresentation())};
}

// Made once: RSA keys take their time.
const Client &client() {
  static const Client made = makeClient(*crypto::PrivateKey::generateRSA(2048));
  return made;
}
const Client &otherClient() {
  static const Client made = makeClient(*crypto::PrivateKey::generateRSA(2048));
  return made;
}

class Authentication : public Requests {
 public:
  void pairWith(const Bytes &hash) {
    tools.answers = {kHeader + kSection + support::hexString(hash) + "\tann\n"};
  }
  QuillMessage connect(const Peer &from, const QuillMessage::CertificateArray &hashes) {
    return ask(QuillMessage::initCommandMessageConnectWithCertificate(hashes), from);
  }
  bool authenticate(const Peer &from, const Client &as, const Bytes &signedBytes) {
    return ask(QuillMessage::initCommandMessageAuthenticateWithSignature(
                   *as.key.signRawPKCS1(signedBytes), as.certificate.der()),
               from)
        .status;
  }
};

struct ListingCase {
  const char *name;
  std::string listing;
  const char *bindLine;  // null: none
};

class Listing : public testing::TestWithParam<ListingCase> {};

TEST_P(Listing, HasItsBindLineBehindHeaderAndSection) {
  const auto line = requests::findBindLine(base::viewOf(GetParam().listing));
  EXPECT_EQ(line, GetParam().bindLine == nullptr
                      ? std::nullopt
                      : std::optional<std::string_view>(GetParam().bindLine));
}

INSTANTIATE_TEST_SUITE_P(
    Texts, Listing,
    testing::Values(
        ListingCase{"Plain", kHeader + kSection + "AB\tann\nCD\n", "AB\tann"},
        ListingCase{"SectionBeforeHeader", kSection + "AB\n" + kHeader + "CD\n", nullptr},
        ListingCase{"HeaderStaysSeen", kHeader + "x\nSmartCard: other\n" + kSection + "AB", "AB"},
        ListingCase{"TextsAnywhereInTheLine", "> " + kHeader + "> " + kSection + "AB", "AB"},
        ListingCase{"BothTextsInOneLine",
                    kSection.substr(0, kSection.size() - 1) + kHeader + kSection + "AB", "AB"},
        ListingCase{"BindLineHoldsTheHeaderAgain", kHeader + kSection + kHeader,
                    "SmartCard: com.corvane.keyferry.ctkextension:1"},
        ListingCase{"EmptyLineBehind", kHeader + kSection + "\nAB", ""},
        ListingCase{"NothingBehind", kHeader + kSection, ""},
        ListingCase{"SectionIsTheLastLine", kHeader + kSection.substr(0, kSection.size() - 1),
                    nullptr},
        ListingCase{"NotUTF8", kHeader + kSection + "AB\xFF", nullptr},
        ListingCase{"Empty", "", nullptr}),
    [](const auto &row) { return std::string(row.param.name); });

TEST_F(Authentication, SucceedsWithThePairedKeyAndIsOfThisConnectionAlone) {
  pairWith(client().hash);
  const Peer remote = this->remote();
  const QuillMessage reply = connect(remote, {otherClient().hash, client().hash});
  EXPECT_TRUE(reply.status);
  EXPECT_EQ(reply.selectedCertificateHash, client().hash);
  ASSERT_EQ(reply.challenge->size(), 16U);
  EXPECT_EQ((*reply.challenge)[6] >> 4, 4) << "the challenge is a version-4 UUID";
  ASSERT_EQ(tools.calls.size(), 1U);
  EXPECT_EQ(tools.calls[0].program, "/usr/sbin/sc_auth");
  EXPECT_THAT(tools.calls[0].arguments, ElementsAre("identities"));
  EXPECT_EQ(tools.calls[0].workingFolder, "/var");

  const Peer other = this->remote();
  connect(other, {client().hash});
  EXPECT_FALSE(authenticate(other, client(), *reply.challenge)) << "another connection's challenge";
  EXPECT_TRUE(other.connection->isCancelled);
  EXPECT_TRUE(authenticate(remote, client(), *reply.challenge));
  EXPECT_TRUE(authenticate(remote, client(), *reply.challenge)) << "a challenge is not used up";
  EXPECT_TRUE(remote.worker->isAuthenticated);
  EXPECT_FALSE(remote.connection->isCancelled);

  const QuillMessage second = connect(remote, {client().hash});
  EXPECT_NE(second.challenge, reply.challenge);
  EXPECT_TRUE(remote.worker->isAuthenticated) << "connect leaves it";
  EXPECT_FALSE(authenticate(remote, client(), *reply.challenge)) << "the challenge was replaced";
  EXPECT_FALSE(remote.worker->isAuthenticated);
  EXPECT_TRUE(remote.connection->isCancelled);
}

TEST_F(Authentication, RunsTheListingWithinItsLimits) {
  constexpr std::int64_t kMost = std::numeric_limits<std::int64_t>::max();
  pairWith(client().hash);
  const Peer remote = this->remote();
  connect(remote, {client().hash});
  EXPECT_EQ(tools.calls[0].limits.time, std::chrono::seconds(20));
  EXPECT_EQ(tools.calls[0].limits.outputBytes, 1U << 20);
  defaults.values["kfyd/pairingToolSeconds"] = kMost;
  defaults.values["kfyd/pairingToolBytes"] = std::int64_t{-1};
  connect(remote, {client().hash});
  EXPECT_GT(tools.calls[1].limits.time, std::chrono::years(1)) << "and not less than nothing";
  EXPECT_EQ(tools.calls[1].limits.outputBytes, 1U << 20);
}

TEST_F(Authentication, FailsWithAnyOtherProof) {
  const Client ec = makeClient(*crypto::PrivateKey::generateP256());
  struct Case {
    const char *what;
    const Bytes &paired;
    Bytes (*sign)(const Bytes &challenge, const Client &ec);
    const crypto::Certificate &certificate;
  };
  const auto raw = [](const Bytes &challenge, const Client &) {
    return *client().key.signRawPKCS1(challenge);
  };
  const Case kCases[] = {
      {"the certificate of another key", client().hash, raw, otherClient().certificate},
      {"a signature of another key", client().hash,
       [](const Bytes &challenge, const Client &) {
         return *otherClient().key.signRawPKCS1(challenge);
       },
       client().certificate},
      {"a signature over a digest", client().hash,
       [](const Bytes &challenge, const Client &) {
         return *client().key.signRawPKCS1(support::sha256(challenge));
       },
       client().certificate},
      {"a DigestInfo in front", client().hash,
       [](const Bytes &challenge, const Client &) {
         // RFC 8017, 9.2: the prefix for MD5, whose digest is as long as a challenge
         Bytes info = *support::dataWithHexString("3020300C06082A864886F70D020505000410");
         info.insert(info.end(), challenge.begin(), challenge.end());
         return *client().key.signRawPKCS1(info);
       },
       client().certificate},
      {"an elliptic-curve key", ec.hash,
       [](const Bytes &challenge, const Client &key) {
         return *key.key.signDigestECDSA(challenge);
       },
       ec.certificate},
  };
  for (const Case &row : kCases) {
    pairWith(row.paired);
    const Peer remote = this->remote();
    const Bytes challenge = *connect(remote, {row.paired}).challenge;
    const auto reply = ask(QuillMessage::initCommandMessageAuthenticateWithSignature(
                               row.sign(challenge, ec), row.certificate.der()),
                           remote);
    EXPECT_FALSE(reply.status) << row.what;
    EXPECT_TRUE(remote.connection->isCancelled) << row.what;
  }
}

TEST_F(Authentication, FailsWithoutAChallengeOrACertificate) {
  EXPECT_FALSE(authenticate(remote(), client(), Bytes(16)));
  QuillMessage message =
      QuillMessage::initCommandMessageAuthenticateWithSignature(Bytes(256), Bytes{1, 2});
  EXPECT_FALSE(ask(message, remote()).status);
  message.challengeSignature.reset();
  EXPECT_FALSE(ask(message, remote()).status);
}

TEST_F(Authentication, WithoutAPairedKeyTriesThirtyTimesAndAnswersWithAChallenge) {
  tools.answers = {"", std::nullopt, kHeader + kSection + "tooshort\n", kHeader};
  const Peer remote = this->remote();
  remote.worker->selectedCertificateHash = Bytes{1};
  const QuillMessage reply = connect(remote, {client().hash});
  EXPECT_EQ(tools.calls.size(), 30U);
  EXPECT_EQ(clock.pauses, std::vector(30, std::chrono::milliseconds(1000)));
  EXPECT_FALSE(reply.status);
  EXPECT_EQ(reply.selectedCertificateHash, Bytes{});
  EXPECT_EQ(
      reply.errorMessage,
      "There was no user matching on the remote machine mapped to the certificate on the smart "
      "card. Please check the pairing and try again.");
  EXPECT_EQ(reply.challenge, remote.worker->challenge);
  EXPECT_FALSE(remote.worker->selectedCertificateHash);
  const auto entries = takeEntries();
  EXPECT_EQ(std::ranges::count(entries,
                               "kfy:no paired identity found yet with no output. waiting for 1 "
                               "second and trying again..."),
            2);
  EXPECT_EQ(
      std::ranges::count(
          entries, "kfy:no paired identity found yet. waiting for 1 second and trying again..."),
      28);
}

TEST_F(Authentication, FindsAPairingThatComesMeanwhile) {
  pairWith(client().hash);
  tools.answers.push_front(kHeader);
  EXPECT_TRUE(connect(remote(), {}).status);
  EXPECT_EQ(clock.pauses.size(), 1U);
}

TEST_F(Authentication, GivesUpAtOnceWhereNoHashStands) {
  tools.answers = {kHeader + kSection + std::string(39, 'A') + "éé"};
  EXPECT_FALSE(connect(remote(), {client().hash}).status);
  EXPECT_EQ(tools.calls.size(), 1U);
  EXPECT_EQ(clock.pauses.size(), 0U);
  tools.answers = {kHeader + kSection + "0x" + std::string(38, 'A') + "BB"};
  EXPECT_EQ(connect(remote(), {}).selectedCertificateHash, Bytes(19, 0xAA));
}

TEST_F(Authentication, WithoutAListAnswersFalseWithAChallenge) {
  const Peer remote = this->remote();
  remote.worker->selectedCertificateHash = Bytes{1};
  const QuillMessage reply = ask(QuillMessage::initCommandMessageConnectWithLocalhost(), remote);
  EXPECT_FALSE(reply.status);
  EXPECT_EQ(reply.challenge->size(), 16U);
  EXPECT_EQ(remote.worker->selectedCertificateHash, Bytes{1}) << "left as it was";
  EXPECT_EQ(tools.calls.size(), 0U);
}

TEST_F(Authentication, WithVerificationOffTakesTheFirstListedKey) {
  const std::string marker = base::rooted(requests::kUserVerificationMarker);
  std::filesystem::create_directories(std::filesystem::path(marker).parent_path());
  std::ofstream(marker).close();
  EXPECT_EQ(connect(remote(), {Bytes(20, 1), Bytes(20, 2)}).selectedCertificateHash, Bytes(20, 1));
  const QuillMessage::CertificateArray kNone[] = {{}, {support::OtherValue{"7"}, Bytes(20, 2)}};
  for (const auto &hashes : kNone) {
    const QuillMessage reply = connect(remote(), hashes);
    EXPECT_TRUE(reply.status);
    EXPECT_EQ(reply.selectedCertificateHash, Bytes{}) << "none is written as an empty text";
  }
  EXPECT_EQ(tools.calls.size(), 0U);
}

}  // namespace
