#include "requests/ClientAuthentication.hpp"

#include "requests/PairingListing.hpp"
#include "requests/RequestsFixture.hpp"

namespace {

const std::string kHeader = "SmartCard: com.corvane.keyferry.ctkextension:1\n";
const std::string kSection = "Paired identities which are used for authentication:\n";

class Authentication : public RequestsInBothModes {
 public:
  Authentication() {
    transcript.name(R"(
~TOOL tool SmartCard: com.corvane.keyferry.ctkextension:1;Paired identities which are used for authentication:;
~AUTHENTICATE {~REQUEST:"authenticate","challenge_signature":"~SIGNATURE","selected_authenticate_certificate":"~DER"}
~CONNECT {~REQUEST:"connect","authentication_certificates":["AAAA","~KEY"]}
~LOOKS ~BEGINSConnect | dbg:found certificate array.
~RUNS dbg:running /usr/sbin/sc_auth identities to get bound user hash
~FINDS dbg:found data from sc_auth. parsing. | dbg:header. parsing | dbg:found identity section. parsing | dbg:Found user bind line to parse
~TAKES ~LOOKS | ~RUNS | ~FINDS | dbg:parsing data by getting the first 40 bytes
~SELECTS dbg:saving selected certificate hash and sending back which one we selected | dbg:Encoding JSON | dbg:JSON QuillCommandConnect
~NOBODY There was no user matching on the remote machine mapped to the certificate on the smart card. Please check the pairing and try again.
~FOUND ~SENDING YES\nMesage Type: 1\nCommand: 0\nChallenge: <Set>\nselectedCertificateHash:
)");
  }
};
INSTANTIATE_TEST_SUITE_P(DebugMode, Authentication, testing::Bool());

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
      {kHeader + kSection + "AB\xFF", {}}};
  for (const auto &[listing, bindLine] : kCases) {
    EXPECT_EQ(requests::findBindLine(base::viewOf(listing)), bindLine) << listing;
  }
}

TEST_P(Authentication, SucceedsWithThePairedKeyAndIsOfThisConnectionAlone) {
  defaults.values["kfyd/pairingToolSeconds"] = 7;
  transcript.expect(R"(
> ~TOOL~HEXKEY
> far ~CONNECT
~TAKES | dbg:found user with pubkeyhash | ~SELECTS | ~FOUND ~HEXKEY\nmessageID: ~ID\n
ran /usr/sbin/sc_auth identities in /var for 7000 ms
< [DATA]{"type":"response","command":"connect","message_id":"~ID","selected_certificate_hash":"~KEY","challenge":"~farChallenge","message_error_message":"","status":true}[ENDDATA]
> sign far
> far2 ~AUTHENTICATE
~BEGINSAuthenticate | dbg:signed challenge and certificate found, so validating | dbg:getting pubkeyhash of certificate
dbg:Not authenticated. Sending back failure | dbg:Encoding JSON | dbg:JSON QuillCommandAuthenticate Response
~SENDING NO\nMesage Type: 1\nCommand: 1~ANSWER"authenticate",~NO | far2 is cancelled
> far ~AUTHENTICATE
~BEGINSAuthenticate | dbg:signed challenge and certificate found, so validating | dbg:getting pubkeyhash of certificate
dbg:validating signature | dbg:signature good. | dbg:Authenticated. Sending back success
dbg:Encoding JSON | dbg:JSON QuillCommandAuthenticate Response
~SENDING YES\nMesage Type: 1\nCommand: 1~ANSWER"authenticate",~YES
> far {~REQUEST:"connect"}
~BEGINSConnect | dbg:Encoding JSON | dbg:JSON QuillCommandConnect
~SENDING NO\nMesage Type: 1\nCommand: 0\nChallenge: <Set>~ANSWER"connect","message_id":"~ID","selected_certificate_hash":"","challenge":"~farChallenge","message_error_message":"","status":false}[ENDDATA]
> far {~REQUEST:"remove"}
~BEGINSRemove | dbg:Encoding JSON | dbg:JSON QuillCommandRemove Response
~SENDING YES\nMesage Type: 1\nCommand: 3~ANSWER"remove",~YES
> far ~AUTHENTICATE
~BEGINSAuthenticate | dbg:signed challenge and certificate found, so validating | dbg:getting pubkeyhash of certificate
dbg:validating signature | dbg:Not authenticated. Sending back failure
dbg:Encoding JSON | dbg:JSON QuillCommandAuthenticate Response
~SENDING NO\nMesage Type: 1\nCommand: 1~ANSWER"authenticate",~NO | far is cancelled
)");
  EXPECT_FALSE(at("far").worker->isAuthenticated);
}

TEST_P(Authentication, WithoutAPairedKeyTriesThirtyTimesAndAnswersWithAChallenge) {
  at("far").worker->selectedCertificateHash = Bytes{1};
  transcript.name(R"(
~REFUSES kfy:no user found matching pubkey hash returning error | dbg:Encoding JSON | dbg:JSON QuillCommandConnect | ~SENDING NO\nMesage Type: 1\nCommand: 0\nChallenge: <Set>\nerror message: ~NOBODY\nselectedCertificateHash: \nmessageID: ~ID\n
~REFUSED < [DATA]{"type":"response","command":"connect","message_id":"~ID","selected_certificate_hash":"","challenge":"~farChallenge"
~BECAUSE ,"message_error_message":"~NOBODY","status":false}[ENDDATA]
)");
  transcript.expect(R"(
> tool
> far ~CONNECT
~LOOKS
30 x ~RUNS | kfy:no paired identity found yet with no output. waiting for 1 second and trying again...
~REFUSES
30 x ran /usr/sbin/sc_auth identities in /var for 20000 ms
30 x paused 1000 ms
~REFUSED~BECAUSE
> ~TOOL0xAAAAAAAAAAAAAAAAAAAAAAAAAAAAAAAAAAAAA
> far ~CONNECT
~LOOKS
30 x ~RUNS | ~FINDS | kfy:no paired identity found yet. waiting for 1 second and trying again...
~REFUSES
30 x ran /usr/sbin/sc_auth identities in /var for 20000 ms
30 x paused 1000 ms
~REFUSED~BECAUSE
> ~TOOL0xAAAAAAAAAAAAAAAAAAAAAAAAAAAAAAAAAAAAAé
> far ~CONNECT
~TAKES | kfy:String should be all hex digits: AAAAAAAAAAAAAAAAAAAAAAAAAAAAAAAAAAAAAé (bad digit around 36)
~REFUSES | ran /usr/sbin/sc_auth identities in /var for 20000 ms
~REFUSED~BECAUSE
> file /Library/Application Support/Keyferry/.disableuserverification
> far ~CONNECT
~LOOKS | dbg:Skipping user verification because /Library/Application Support/Keyferry/.disableuserverification was found
dbg:user certificate matching skipped. saving selected cert hash and sending back to client
dbg:Encoding JSON | dbg:JSON QuillCommandConnect | ~FOUND 000000\nmessageID: ~ID\n
< [DATA]{"type":"response","command":"connect","message_id":"~ID","selected_certificate_hash":"AAAA","challenge":"~farChallenge","message_error_message":"","status":true}[ENDDATA]
> far none
dbg:Daemon processing request or response | dbg:no message. skipping
)");
  for (const char *list : {"[]", R"([7,"~KEY"])"}) {
    transcript.act(R"(> far {~REQUEST:"connect","authentication_certificates":)" +
                   std::string(list) + "}");
    EXPECT_FALSE(at("far").worker->selectedCertificateHash);
  }
  EXPECT_TRUE(processor.unpairedDevices.devices().empty()) << "a list does not begin with a hash";
}

TEST_P(Authentication, RemembersTheLastSixteenThatAreNotPairedUntilTheyAre) {
  transcript.act("> ~TOOL" + std::string(40, 'A'));
  for (int device = 0; device < 18; ++device) {
    transcript.act("> far {~REQUEST:\"connect\",\"authentication_certificates\":[\"" +
                   encodings::base64EncodeBytes(Bytes(20, static_cast<std::uint8_t>(device % 17)),
                                                /*separateLines=*/false) +
                   "\"]}");
  }
  transcript.act(R"(> far {~REQUEST:"connect","authentication_certificates":["~KEY"]})");
  const auto devices = [this] { return processor.unpairedDevices.devices(); };
  ASSERT_EQ(devices().size(), 16U);
  EXPECT_EQ(devices().front().publicKeyHash, Bytes(20, 3)) << "0 came again, as the last but one";
  EXPECT_EQ(devices().back().publicKeyHash, hashOf(kClient));
  EXPECT_EQ(devices().back().address, "192.0.2.7");
  for (const char *line :
       {"> ~TOOL~HEXKEY", "> far ~CONNECT", "> sign far", "> far ~AUTHENTICATE"}) {
    transcript.act(line);
  }
  EXPECT_EQ(devices().back().publicKeyHash, Bytes(20, 0));
}

TEST_P(Authentication, FailsWithAnythingButTheRSAKeyItsCertificateAndTheChallenge) {
  const crypto::Identity other = fakes::identityOf(*crypto::PrivateKey::generateRSA(2048), "other");
  const crypto::Identity curve = fakes::makeIdentity("curve");
  struct Case {
    crypto::Identity paired;
    crypto::Identity signer;
    void (*change)(QuillMessage &, QuillWorker &) = [](QuillMessage &, QuillWorker &) {};
  };
  const Case kCases[] = {
      {kClient, other},
      {kClient, {kClient.certificate, other.key}},
      {kClient, {other.certificate, kClient.key}},
      {curve, curve},
      {kClient, kClient, [](auto &, auto &worker) { worker.challenge.reset(); }},
      {kClient, kClient, [](auto &message, auto &) { message.challengeSignature.reset(); }},
      {kClient, kClient,
       [](auto &message, auto &) { message.certificateUsedToAuthenticate = Bytes{1, 2}; }},
  };
  for (const auto &[paired, signer, change] : kCases) {
    const Peer remote = this->remote();
    const Bytes challenge(16, 7);
    remote.worker->challenge = challenge;
    remote.worker->selectedCertificateHash = hashOf(paired);
    const auto signature = signer.key.signRawPKCS1(challenge);
    auto message = QuillMessage::initCommandMessageAuthenticateWithSignature(
        signature ? *signature : *signer.key.signDigestECDSA(challenge), signer.certificate.der());
    change(message, *remote.worker);
    EXPECT_FALSE(ask(message, remote).status);
    EXPECT_FALSE(remote.worker->isAuthenticated);
    EXPECT_TRUE(remote.connection->isCancelled);
  }
}

}  // namespace
