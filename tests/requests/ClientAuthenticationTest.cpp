#include "requests/ClientAuthentication.hpp"

#include <fstream>

#include "fakes/MadeKeys.hpp"
#include "requests/PairingListing.hpp"
#include "requests/RequestsFixture.hpp"

namespace {

using testing::Contains;

const std::string kHeader = "SmartCard: com.corvane.keyferry.ctkextension:1\n";
const std::string kSection = "Paired identities which are used for authentication:\n";

Bytes hashOf(const crypto::Identity &identity) {
  return support::sha1(*identity.key.publicKey().externalRepresentation());
}

class Authentication : public Requests {
 public:
  static inline const crypto::Identity kClient = fakes::madeIdentity("RSA", "client");
  static inline const crypto::Identity kOther =
      fakes::identityOf(*crypto::PrivateKey::generateRSA(2048), "other");

  void pairWith(const Bytes &hash) {
    tools.answers = {kHeader + kSection + support::hexString(hash) + "\tann\n"};
  }
  QuillMessage connect(const Peer &from, const QuillMessage::CertificateArray &hashes) {
    return ask(QuillMessage::initCommandMessageConnectWithCertificate(hashes), from);
  }
  bool authenticate(const Peer &from, const crypto::Identity &as, const Bytes &signedBytes) {
    const auto message = QuillMessage::initCommandMessageAuthenticateWithSignature(
        *as.key.signRawPKCS1(signedBytes), as.certificate.der());
    return ask(message, from).status;
  }
};

TEST(Listing, HasItsBindLineBehindHeaderAndSection) {
  const std::string section = kSection.substr(0, kSection.size() - 1);
  const std::pair<std::string, std::optional<std::string_view>> kCases[] = {
      {kHeader + kSection + "AB\tann\nCD\n", "AB\tann"},
      {kSection + "AB\n" + kHeader + "CD\n", {}},
      {kHeader + "x\nSmartCard: other\n" + kSection + "AB", "AB"},
      {"> " + kHeader + "> " + kSection + "AB", "AB"},
      {section + kHeader + kSection + "AB", "AB"},
      {kHeader + kSection + kHeader, "SmartCard: com.corvane.keyferry.ctkextension:1"},
      {kHeader + kSection + "\nAB", ""},
      {kHeader + kSection, ""},
      {kHeader + section, {}},
      {kHeader + kSection + "AB\xFF", {}},
      {"", {}}};
  for (const auto &[listing, bindLine] : kCases) {
    EXPECT_EQ(requests::findBindLine(base::viewOf(listing)), bindLine) << listing;
  }
}

TEST_F(Authentication, SucceedsWithThePairedKeyAndIsOfThisConnectionAlone) {
  pairWith(hashOf(kClient));
  defaults.values["kfyd/pairingToolSeconds"] = 7;
  const Peer remote = this->remote();
  const QuillMessage reply = connect(remote, {hashOf(kOther), hashOf(kClient)});
  EXPECT_TRUE(reply.status);
  EXPECT_EQ(reply.selectedCertificateHash, hashOf(kClient));
  ASSERT_EQ(reply.challenge->size(), 16U);
  EXPECT_EQ((*reply.challenge)[6] >> 4, 4) << "the challenge is a version-4 UUID";
  ASSERT_EQ(tools.calls.size(), 1U);
  EXPECT_EQ(tools.calls[0].workingFolder, "/var");
  EXPECT_EQ(tools.calls[0].limits.time, std::chrono::seconds(7));

  const Peer other = this->remote();
  connect(other, {hashOf(kClient)});
  EXPECT_FALSE(authenticate(other, kClient, *reply.challenge)) << "another connection's challenge";
  EXPECT_TRUE(other.connection->isCancelled);
  EXPECT_TRUE(authenticate(remote, kClient, *reply.challenge));
  EXPECT_TRUE(authenticate(remote, kClient, *reply.challenge)) << "a challenge is not used up";
  EXPECT_TRUE(remote.worker->isAuthenticated);
  EXPECT_FALSE(remote.connection->isCancelled);

  const QuillMessage second = connect(remote, {hashOf(kClient)});
  EXPECT_NE(second.challenge, reply.challenge);
  EXPECT_TRUE(remote.worker->isAuthenticated) << "connect leaves it";
  EXPECT_FALSE(authenticate(remote, kClient, *reply.challenge)) << "the challenge was replaced";
  EXPECT_FALSE(remote.worker->isAuthenticated);
  EXPECT_TRUE(remote.connection->isCancelled);
}

TEST_F(Authentication, WithoutAPairedKeyTriesThirtyTimesAndAnswersWithAChallenge) {
  tools.answers = {"", std::nullopt, kHeader + kSection + "tooshort\n", kHeader};
  const Peer remote = this->remote();
  remote.worker->selectedCertificateHash = Bytes{1};
  const QuillMessage reply = connect(remote, {hashOf(kClient)});
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
  const std::string waiting = " waiting for 1 second and trying again...";
  EXPECT_THAT(entries,
              Contains("kfy:no paired identity found yet with no output." + waiting).Times(2));
  EXPECT_THAT(entries, Contains("kfy:no paired identity found yet." + waiting).Times(28));
}

TEST_F(Authentication, FailsWithAnythingButTheRSAKeyItsCertificateAndTheChallenge) {
  const crypto::Identity curve = fakes::makeIdentity("curve");
  struct Case {
    crypto::Identity paired;
    crypto::Identity signer;
    void (*change)(QuillMessage &, QuillWorker &) = [](QuillMessage &, QuillWorker &) {};
  };
  const Case kCases[] = {
      {kClient, kOther},
      {kClient, {kClient.certificate, kOther.key}},
      {kClient, {kOther.certificate, kClient.key}},
      {curve, curve},
      {kClient, kClient, [](auto &, auto &worker) { worker.challenge.reset(); }},
      {kClient, kClient, [](auto &message, auto &) { message.challengeSignature.reset(); }},
      {kClient, kClient,
       [](auto &message, auto &) { message.certificateUsedToAuthenticate = Bytes{1, 2}; }},
  };
  for (const auto &[paired, signer, change] : kCases) {
    pairWith(hashOf(paired));
    const Peer remote = this->remote();
    const Bytes challenge = *connect(remote, {hashOf(paired)}).challenge;
    const auto signature = signer.key.signRawPKCS1(challenge);
    auto message = QuillMessage::initCommandMessageAuthenticateWithSignature(
        signature ? *signature : *signer.key.signDigestECDSA(challenge), signer.certificate.der());
    change(message, *remote.worker);
    EXPECT_FALSE(ask(message, remote).status);
    EXPECT_FALSE(remote.worker->isAuthenticated);
    EXPECT_TRUE(remote.connection->isCancelled);
  }
}

TEST_F(Authentication, GivesUpAtOnceWhereNoHashStands) {
  tools.answers = {kHeader + kSection + std::string(39, 'A') + "éé"};
  EXPECT_FALSE(connect(remote(), {hashOf(kClient)}).status);
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
