#include "requests/RequestsFixture.hpp"

namespace {

class Card : public RequestsInBothModes {
 public:
  Card() {
    transcript.name(R"(
~CARD {"certificate":"~DER","more":1}
~SIGN {~REQUEST:"sign_data","signing_cert_hash":"~HASH","data_to_sign":"Bw==","pin":"1"}
~DECRYPT {~REQUEST:"decrypt_data","object_id":"~HASH","encrypted_data":"CA==","pin":"1"}
~SEARCH ~BEGINSSignData or QuillCommandDecryptData | dbg:request from local client. | dbg:finding worker that sent the request
~SIGNS "type":"request","command":"sign_data","message_id":"~ID","signing_cert_hash":"~HASH","pin":"1","data_to_sign":"Bw=="
~INSERTED ~BEGINSInsert | dbg:Encoding JSON | dbg:JSON QuillCommandInsert Response | ~SENDING YES\nMesage Type: 1\nCommand: 2~ANSWER"insert",~YES
)");
  }
};
INSTANTIATE_TEST_SUITE_P(DebugMode, Card, testing::Bool());

TEST_P(Card, IsInsertedByAnyoneAndKeepsItsListForGood) {
  transcript.expect(R"(
> near {~REQUEST:"get_certificates"}
~BEGINSGetCertificates | dbg:Encoding JSON | dbg:JSON QuillCommandGetCertificates Response
~SENDING YES\nMesage Type: 1\nCommand: 4\ncertificates: ()~ANSWER"get_certificates","message_id":"~ID","certificates":[],"status":true}[ENDDATA]
> far {~REQUEST:"insert","certificates":[~CARD,"x"]}
~INSERTED | card is in
> far {~REQUEST:"remove"}
~BEGINSRemove | dbg:Encoding JSON | dbg:JSON QuillCommandRemove Response
~SENDING NO\nMesage Type: 1\nCommand: 3~ANSWER"remove",~NO
> near {~REQUEST:"insert"}
~INSERTED
> proven far
> far {~REQUEST:"remove"}
~BEGINSRemove | dbg:Encoding JSON | dbg:JSON QuillCommandRemove Response
~SENDING YES\nMesage Type: 1\nCommand: 3~ANSWER"remove",~YES | card is out
> near {~REQUEST:"get_certificates"}
~BEGINSGetCertificates | dbg:Encoding JSON | dbg:JSON QuillCommandGetCertificates Response
~SENDING YES\nMesage Type: 1\nCommand: 4\ncertificates: (~CARD, "x")~ANSWER"get_certificates","message_id":"~ID","certificates":[~CARD,"x"],"status":true}[ENDDATA]
)");
}

TEST_P(Card, RelaysRequestsAndDeliversTheirFirstAnswer) {
  transcript.expect(R"(
> off relayAuthenticationKey
> far {~REQUEST:"insert","certificates":[~CARD]}
~INSERTED | card is in
> lost far
> far2 {~REQUEST:"insert","certificates":["x",{"certificate":"*"},~CARD]}
~INSERTED
> near ~SIGN
~SEARCH | dbg:worker found with no associated certificates | kfy:error base64 decoding certificate
dbg:Sign data requested | dbg:certificate hash matches requested hash sent.
kfy:certificate not found or not authenticated. stopping | dbg:Encoding JSON | dbg:JSON SignData Response
~SENDING NO\nMesage Type: 1\nCommand: 5\nsignedData: <Set>~ANSWER"sign_data","message_id":"~ID","signed_data":"","status":false}[ENDDATA]
> proven far2
> near {~REQUEST:"decrypt_data","object_id":"AAAA"}
~SEARCH | dbg:worker found with no associated certificates | kfy:error base64 decoding certificate
dbg:Decrypting data requested | kfy:certificate not found or not authenticated. stopping
dbg:Encoding JSON | dbg:JSON QuillCommandDecryptData Response
~SENDING NO\nMesage Type: 1\nCommand: 7\ndecryptedData: <Set>~ANSWER"decrypt_data","message_id":"~ID","decrypted_data":"","status":false}[ENDDATA]
> near ~SIGN
~SEARCH | dbg:worker found with no associated certificates | kfy:error base64 decoding certificate
dbg:Sign data requested | dbg:certificate hash matches requested hash sent.
dbg:authenticated connection so sending message back to client | dbg:Encoding JSON | dbg:JSON SignData Request
~SENDING NO\nMesage Type: 0\nCommand: 5\ndataToSign: <Set>\nPIN: <Set>\nmessageID: ~ID\n | far2 < [DATA]{~SIGNS}[ENDDATA]
> near2 ~DECRYPT
~SEARCH | dbg:worker found with no associated certificates | kfy:error base64 decoding certificate
dbg:Decrypting data requested | dbg:certificate hash matches requested hash sent.
dbg:authenticated connection so sending message back to client | dbg:Encoding JSON | dbg:JSON QuillCommandDecryptData Request
~SENDING NO\nMesage Type: 0\nCommand: 7\nobjectID: ~HEXHASH\nPIN: <Set>\nmessageID: ~ID\n
far2 < [DATA]{"type":"request","command":"decrypt_data","message_id":"~ID","encrypted_data":"CA==","pin":"1","object_id":"~HASH"}[ENDDATA]
> near2 {~RESPONSE:"sign_data","signed_data":"CQ=="}
dbg:Daemon processing request or response | dbg:Message Type: Response | dbg:Command: Sign or Decrypt Data
dbg:Removing pending worker | dbg:Encoding JSON | dbg:JSON SignData Response
~SENDING YES\nMesage Type: 1\nCommand: 5\nsignedData: <Set>~ANSWER"sign_data","message_id":"~ID","signed_data":"CQ==","status":true}[ENDDATA]
> far2 {~RESPONSE:"decrypt_data","decrypted_data":"CQ=="}
dbg:Daemon processing request or response | dbg:Message Type: Response | dbg:Command: Sign or Decrypt Data | kfy:worker not found
> far2 {~RESPONSE:"remove"}
dbg:Daemon processing request or response | dbg:Message Type: Response | kfy:invalid command: 3.
> far2 ~SIGN
~BEGINSSignData or QuillCommandDecryptData | dbg:request from non-local client. rejecting | dbg:Encoding JSON | dbg:JSON SignData Response
~SENDING NO\nMesage Type: 1\nCommand: 5\nsignedData: <Set>~ANSWER"sign_data","message_id":"~ID","signed_data":"","status":false}[ENDDATA]
> near {"type":"request","command":"sign_data","message_id":"no"}
~BEGINSSignData or QuillCommandDecryptData | dbg:request from local client. | dbg:Encoding JSON | kfy:(null)
~SENDING NO\nMesage Type: 1\nCommand: 5\nsignedData: <Set>\n | < [DATA][ENDDATA]
)");
}

TEST_P(Card, IsNotUsedWithTheKeyOfALaterAuthentication) {
  at("far").worker->authCertificate = fakes::madeIdentity("EC", "other").certificate.der();
  for (
      const char *row :
      {R"(> off relayAuthenticationKey)", R"(> proven far)",
       R"(> far {~REQUEST:"insert","certificates":[~CARD]})", R"(> near ~SIGN)",
       R"(> file /Library/Application Support/Keyferry/.disableuserverification)",
       R"(> far {~REQUEST:"connect","authentication_certificates":["~KEY"]})", R"(> sign far)",
       R"(> far {~REQUEST:"authenticate","challenge_signature":"~SIGNATURE","selected_authenticate_certificate":"~DER"})"}) {
    transcript.act(row);
  }
  transcript.expect(R"(
> near ~SIGN
~SEARCH | dbg:Sign data requested | dbg:certificate hash matches requested hash sent.
kfy:key of certificate ~HEXHASH is not used: its client has authenticated with it (setting relayAuthenticationKey)
kfy:certificate not found or not authenticated. stopping | dbg:Encoding JSON | dbg:JSON SignData Response
~SENDING NO\nMesage Type: 1\nCommand: 5\nsignedData: <Set>~ANSWER"sign_data","message_id":"~ID","signed_data":"","status":false}[ENDDATA]
)");
}

TEST_F(Requests, CardMarkerIsMadeAnewByEveryInsertAndNeverThroughALink) {
  const std::string marker = base::rooted(base::kCardMarker);
  const std::string elsewhere = base::rooted("/elsewhere");
  std::ofstream(elsewhere) << "kept";
  std::filesystem::create_symlink(elsewhere, marker);
  processor.insertSmartcard();
  EXPECT_FALSE(std::filesystem::is_symlink(marker));
  EXPECT_EQ(std::filesystem::file_size(marker), 0U);
  processor.removeSmartcard();
  processor.removeSmartcard();
  EXPECT_FALSE(isMarkerThere());
  EXPECT_EQ(std::filesystem::file_size(elsewhere), 4U);
  ASSERT_EQ(::mkfifo(marker.c_str(), 0600), 0);
  processor.insertSmartcard();
  EXPECT_TRUE(std::filesystem::is_regular_file(marker)) << "nothing waits for a FIFO's reader";
  processor.removeSmartcard();
  std::filesystem::create_directory(marker);
  processor.insertSmartcard();
  processor.removeSmartcard();
  EXPECT_TRUE(std::filesystem::is_directory(marker)) << "a folder in its place is left alone";
  std::filesystem::remove(marker);
}

}  // namespace
