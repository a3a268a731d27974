#include "protocol/QuillMessage.hpp"

#include <pthread.h>

#include "encodings/HexString.hpp"
#include "fakes/FullMessage.hpp"
#include "fakes/LoggedTest.hpp"
#include "protocol/Frame.hpp"
#include "protocol/MessageFields.hpp"

namespace {

using testing::ElementsAre;
using testing::HasSubstr;

constexpr const char *kID = "0F1E2D3C-4B5A-6978-8796-A5B4C3D2E1F0";

std::optional<QuillMessage> decode(std::string_view json) {
  return QuillMessage::initWithJSONData(base::viewOf(json));
}

std::string encode(const QuillMessage &message) {
  const auto json = message.json();
  return json ? std::string(base::textOf(*json)) : "(nothing)";
}

std::string request(const std::string &command, const std::string &more = "") {
  return R"({"type":"request","command":")" + command + R"(","message_id":")" + kID + '"' + more +
         '}';
}

class Message : public fakes::LoggedTest {};

TEST_F(Message, OfNoKnownTypeOrCommandIsNotWritten) {
  QuillMessage message = QuillMessage::initCommandMessageRemoveSmartCard();
  message.command = 8;
  EXPECT_EQ(encode(message), "(nothing)");
  message.messageType = 2;
  EXPECT_EQ(encode(message), "(nothing)");
  EXPECT_THAT(takeEntries(), ElementsAre("kfy:(null)", "kfy:invalid message type: 2"));
}

TEST_F(Message, EscapesWhatItWritesAndBreaksLongBase64) {
  QuillMessage message = QuillMessage::initCommandMessageCreateEphemeralUser("a/\"\\\n\x1Fé");
  EXPECT_THAT(encode(message), HasSubstr("\"a\\/\\\"\\\\\\n\\u001fé\""));
  Bytes data(49);
  data.back() = 0xFF;
  message = QuillMessage::initWithReplyMessageForSignMessage(/*status=*/true, UUID::random(), data);
  const std::string broken = '"' + std::string(64, 'A') + "\\r\\n\\/w==\"";
  EXPECT_THAT(encode(message), HasSubstr(broken));
  EXPECT_THAT(encode(QuillMessage::initWithReplyMessageForDecryptDataWithStatus(
                  /*status=*/true, UUID::random(), SecretBytes(data))),
              HasSubstr(broken));
  EXPECT_EQ(decode(encode(message))->signedData, data);
}

TEST_F(Message, ComesBackAsItWasWritten) {
  const encodings::CertificateInfo info{"QUJD/+", true, false, true, "a/b é", "AB"};
  const auto message = QuillMessage::initCommandMessageInsertSmartCardWithCertificates(
      protocol::makeCardList(std::vector<protocol::CardElement>{info, Bytes(49, 1)}));
  const auto list = decode(encode(message))->certificates;
  ASSERT_EQ(list->entries().size(), 2U);
  EXPECT_EQ(list->entries()[1].json,
            '"' + encodings::base64EncodeBytes(Bytes(49, 1), /*separateLines=*/false) + '"');
  const auto infos = protocol::certificateInfosOf(*list);
  ASSERT_EQ(infos.size(), 1U);
  EXPECT_EQ(infos[0].label, "a/b é");
  EXPECT_EQ(infos[0].publicKeyHash, "AB");
  EXPECT_TRUE(infos[0].canSign && infos[0].canUnwrap && !infos[0].canDecrypt);
}

std::string nested(std::size_t depth) {
  return request("remove", ",\"x\":" + std::string(depth - 1, '[') + std::string(depth - 1, ']'));
}

TEST_F(Message, ThatIsUnusableIsNone) {
  // and what the log line begins with; null: silence
  const std::pair<std::string, const char *> kCases[] = {
      {"", "kfy:incomplete JSON : "},
      {"\xEF\xBB\xBF" + request("remove"), "kfy:syntax error : EFBBBF"},
      {request("remove") + "x", "kfy:extra data : "},
      {request("remove", ",\"x\":\"\xFF\""), "kfy:syntax error : "},
      {request("remove", R"(,"x":"\uD800")"), "kfy:"},
      {nested(33), "kfy:too deep : "},
      {request("remove", ",\"certificates\":[1e999]"), "kfy:number out of range : "},
      {"[1]", "kfy:not an object : "},
      {R"({"command":"remove","message_id":"x"})", nullptr},
      {R"({"type":null,"command":"remove","message_id":"x"})", nullptr},
      {R"({"type":1,"command":"remove","message_id":"x"})", "kfy:\"type\" is not text : "},
      {R"({"type":1,"command":"remove"})", nullptr},
      {R"({"type":"Request","command":"remove","message_id":"x"})",
       "kfy:Unknown message type received"}};
  for (const auto &[json, entry] : kCases) {
    SCOPED_TRACE(json);
    EXPECT_FALSE(decode(json));
    const auto entries = takeEntries();
    ASSERT_EQ(entries.size(), entry == nullptr ? 0U : 1U);
    EXPECT_TRUE(entries.empty() || entries[0].starts_with(entry)) << entries[0];
  }
}

TEST_F(Message, IsReadInSpiteOfWhatIsOddInIt) {
  EXPECT_TRUE(decode(nested(32)));
  EXPECT_EQ(decode(" " + request("remove") + "\n")->command, QuillCommandRemove);
  EXPECT_EQ(takeEntries().size(), 0U);
  const auto unknown = decode(request("Remove"));
  EXPECT_EQ(unknown->command, QuillCommandConnect);
  EXPECT_THAT(takeEntries(), ElementsAre("kfy:invalid command--Remove"));
  EXPECT_EQ(decode(R"({"type":"request","command":"remove","message_id":"no uuid"})")->messageID,
            std::nullopt);
  const auto message = decode(request(
      "sign_data",
      R"(,"pin":"0","odd":[{"pin":2},"x"],"challenge":{},"":{"pin":"3"},"object_id":"","p\u0069n":"1","data_to_sign":"QQ")"));
  EXPECT_EQ(message->PIN->reveal(), "1")
      << "of a key that stands twice the last counts, an escaped one too";
  EXPECT_FALSE(message->challenge);
  EXPECT_EQ(message->objectID, Bytes{});
  EXPECT_FALSE(message->dataToSign);
}

// Decodes on a stack that can be looked at afterwards. The PIN is made here: a literal would stand
// in the program, and the sanitizers keep copies of that.
TEST_F(Message, LeavesNoSecretOnTheStack) {
  const std::string pin = UUID::random().text().substr(0, 11);
  const std::string json = request("sign_data", ",\"pin\":\"" + pin + '"');
  std::vector<char> stack(std::size_t{512} * 1024);
  pthread_attr_t attributes;
  ASSERT_EQ(pthread_attr_init(&attributes), 0);
  ASSERT_EQ(pthread_attr_setstack(&attributes, stack.data(), stack.size()), 0);
  const auto run = [](void *text) -> void * {
    EXPECT_TRUE(decode(*static_cast<const std::string *>(text))->PIN);
    return nullptr;
  };
  pthread_t thread{};
  ASSERT_EQ(pthread_create(&thread, &attributes, run, const_cast<std::string *>(&json)), 0);
  pthread_join(thread, nullptr);
  pthread_attr_destroy(&attributes);
  EXPECT_EQ(std::string_view(stack.data(), stack.size()).find(pin), std::string_view::npos);
}

TEST_F(Message, ReadsStatusAsATruthValue) {
  for (const auto &[json, status] : {std::pair("1", true),
                                     {"0.5", true},
                                     {"-3", true},
                                     {"0", false},
                                     {"null", false},
                                     {"\"true\"", false}}) {
    EXPECT_EQ(decode(request("remove", std::string(",\"status\":") + json))->status, status)
        << json;
  }
}

TEST_F(Message, PassesCardEntriesOnUnchanged) {
  const std::string list =
      R"([{"certificate":"QUI=","more":[1,-2,18446744073709551615,0.1,9.918899606007773,-0.0,-0.5,1e+300,null,true],"a\/b":""},)"
      R"("text",{"certificate":7},{"certificate":"*"}])";
  const auto message = decode(request("insert", ",\"certificates\":" + list));
  EXPECT_THAT(encode(*message), HasSubstr("\"certificates\":" + list));
  const auto entries = message->certificates->entries();
  ASSERT_EQ(entries.size(), 4U);
  EXPECT_EQ(entries[0].certificateSHA1, encodings::sha1(base::viewOf("AB")));
  EXPECT_TRUE(!entries[1].hasCertificate && !entries[2].hasCertificate);
  EXPECT_EQ(protocol::certificateInfosOf(*message->certificates).size(), 2U);
  EXPECT_TRUE(entries[3].hasCertificate && entries[3].certificateSHA1.empty());
}

class Tracing : public Message, public testing::WithParamInterface<bool> {
 public:
  Tracing() { setDebugMode(transcript.isDebugMode = GetParam()); }
  fakes::Transcript transcript;
};
INSTANTIATE_TEST_SUITE_P(DebugMode, Tracing, testing::Bool());

// Read and written again; behind that the keys without which it can't be written.
TEST_P(Tracing, TellsOfEachFieldInItsPlace) {
  transcript.actions["pass"] = [&](const std::string &json) {
    const auto message = decode(json);
    const std::string written = message ? encode(*message) : "nothing";
    log.entries.push_back(written == json ? "unchanged" : written);
    setDebugMode(false);
    for (const protocol::Field *field : protocol::kFieldsAsRead) {
      QuillMessage lacking =
          message ? fakes::fullMessage(message->command, message->messageType) : QuillMessage();
      std::visit([&](auto place) { (lacking.*place).reset(); }, field->place);
      if (message && !lacking.json()) {
        log.entries.back() = std::string(field->key);  // instead of the line "(null)"
      }
    }
    setDebugMode(GetParam());
  };
  transcript.takeLines = [&] { return takeEntries(); };
  transcript.name(R"(
~ID "message_id":"0F1E2D3C-4B5A-6978-8796-A5B4C3D2E1F0"
~Q {"type":"request","command":
~R {"type":"response","command":
~ASKS String received | dbg:Message Type: Request
~ANSWERS String received | dbg:Message Type: Response
~H dbg:selectedCertificateHash Received
~S dbg:QuillMessageStatusString Received | dbg:Encoding JSON | dbg:JSON
~W dbg:Encoding JSON | dbg:JSON
)");
  transcript.expect(R"(
> pass ~Q"connect",~ID,"authentication_certificates":["AQ==",[7,[]],{}]}
dbg:QuillCommandConnect~ASKS | ~H | ~W QuillCommandConnect | dbg:JSON certificateArray Request | unchanged
> pass ~Q"connect",~ID}
dbg:QuillCommandConnect~ASKS | ~H | ~W QuillCommandConnect | dbg:JSON no cert Array found Reply | unchanged
> pass ~R"connect",~ID,"selected_certificate_hash":"AQ==","challenge":"Ag==","message_error_message":"no","status":true}
dbg:QuillCommandConnect~ANSWERS | dbg:QuillChallengeString Received | ~H | dbg:errorMessage Received | ~S QuillCommandConnect | unchanged
> pass ~R"connect",~ID}
dbg:QuillCommandConnect~ANSWERS | ~H | ~W QuillCommandConnect
~R"connect",~ID,"selected_certificate_hash":"","challenge":"","message_error_message":"","status":false}
> pass ~Q"authenticate",~ID,"challenge_signature":"AQ==","selected_authenticate_certificate":"Ag=="}
dbg:QuillCommandAuthenticate~ASKS | dbg:challengeSignature Received | ~H | dbg:certificateUsedToAuthenticate Received | ~W QuillCommandAuthenticate Request | unchanged | challenge_signature | selected_authenticate_certificate
> pass ~R"authenticate",~ID,"status":false}
dbg:QuillCommandAuthenticate~ANSWERS | ~H | ~S QuillCommandAuthenticate Response | unchanged
> pass ~Q"insert",~ID,"certificates":[[[],{}],"x",{"certificate":"AA=="}]}
dbg:QuillCommandInsert~ASKS | ~H | dbg:certificates Received | ~W QuillCommandInsert Request | unchanged | certificates
> pass ~R"insert",~ID,"status":true}
dbg:QuillCommandInsert~ANSWERS | ~H | ~S QuillCommandInsert Response | unchanged
> pass ~Q"remove",~ID}
dbg:QuillCommandRemove~ASKS | ~H | ~W QuillCommandRemove Request | unchanged
> pass ~R"remove",~ID,"status":true}
dbg:QuillCommandRemove~ANSWERS | ~H | ~S QuillCommandRemove Response | unchanged
> pass ~Q"get_certificates",~ID}
dbg:QuillCommandGetCertificates~ASKS | ~H | ~W QuillCommandGetCertificates Request | unchanged
> pass ~R"get_certificates",~ID,"certificates":[],"status":true}
dbg:QuillCommandGetCertificates~ANSWERS | ~H | dbg:certificates Received | ~S QuillCommandGetCertificates Response | unchanged | certificates
> pass ~Q"sign_data",~ID,"signing_cert_hash":"AQ==","pin":"1","data_to_sign":"Ag=="}
dbg:QuillCommandSignData~ASKS | ~H | dbg:dataToSign Received | dbg:QuillPINString Received | dbg:QuillSigningCertificateHashString Received
~W SignData Request | unchanged | data_to_sign | pin | signing_cert_hash
> pass ~R"sign_data",~ID,"signed_data":"AQ==","status":true}
dbg:QuillCommandSignData~ANSWERS | ~H | dbg:signedData Received | ~S SignData Response | unchanged | signed_data
> pass ~Q"create_user",~ID,"ephemeral_user_name":"x"}
dbg:QuillCommandCreateEmphemeralUser~ASKS | ~H | dbg:ephemeralUsername Received | ~W QuillCommandCreateEmphemeralUser Request | unchanged | ephemeral_user_name
> pass ~R"create_user",~ID,"ephemeral_user_password":"p","ephemeral_user_name":"x","message_error_message":"","status":true}
dbg:QuillCommandCreateEmphemeralUser~ANSWERS | ~H | dbg:ephemeralUsername Received | dbg:errorMessage Received | dbg:ephemeralPassword Received
~S QuillCommandCreateEmphemeralUser Response | unchanged | ephemeral_user_name | ephemeral_user_password
> pass ~Q"decrypt_data",~ID,"encrypted_data":"AQ==","pin":"","object_id":"Ag=="}
dbg:QuillCommandDecryptData~ASKS | ~H | dbg:dataToDecrypt Received | dbg:objectID Received | dbg:QuillPINString Received | ~W QuillCommandDecryptData Request | unchanged | encrypted_data | object_id | pin
> pass ~R"decrypt_data",~ID,"decrypted_data":"AQ==","status":true}
dbg:QuillCommandDecryptData~ANSWERS | ~H | dbg:decryptedData Received | ~S QuillCommandDecryptData Response | unchanged | decrypted_data
> pass x
kfy:syntax error : 78 | dbg:syntax error : 78 | nothing
)");
}

TEST(CardList, FindsTheFirstOfEntriesWhoseDigestsBeginAlike) {
  const Bytes one(20, 1);
  Bytes other = one;
  other[19] = 0;
  const protocol::CardList list(
      {{"", true, {}}, {"", true, one}, {"", true, other}, {"", true, one}, {"", true, {}}});
  EXPECT_GE(list.bytes(), 5 * sizeof(protocol::CardEntry) + 3 * 20 + 3 * 16);
  EXPECT_EQ(list.find(one), 1U);
  EXPECT_EQ(list.find(other), 2U);
  EXPECT_EQ(list.find(Bytes(20, 0)), std::nullopt);
  EXPECT_EQ(list.find(Bytes(20, 2)), std::nullopt);
  EXPECT_TRUE(list.unusableBefore(0) == 0 && list.unusableBefore(4) == 1 &&
              list.unusableBefore(5) == 2);
}

// What is a frame and what is none: fuzzFrame's corpus.
TEST(Frame, KeepsNoMemoryThatOnlyALongOneNeeds) {
  CleansedBytes buffer;
  for (const std::string &chunk :
       {"[DATA]" + std::string(65536, 'x'), std::string("[DATA]{}[ENDDATA]")}) {
    (void)protocol::collectChunk(buffer, base::viewOf(chunk));
  }
  EXPECT_LT(buffer.capacity(), 65536U);
}

TEST_F(Message, DescribesItselfWithoutASecret) {
  QuillMessage message = fakes::fullMessage(QuillCommandSignData, QuillMessageTypeRequest);
  message.PIN = message.ephemeralPassword = SecretText("hush");
  message.dataToSign = base::bytesOf("hush");
  message.decryptedData = SecretBytes(base::viewOf("hush"));
  EXPECT_EQ(message.description(),
            std::string("Status: NO\nMesage Type: 0\nCommand: 5\nCertificate Array: (01)\n"
                        "Challenge: <Set>\nchallengeSignature: <Set>\ncertificates: ()\n"
                        "ephemeralUsername: x\nephemeralPassword: <Set>\nerror message: x\n"
                        "dataToSign: <Set>\nobjectID: 01\nPIN: <Set>\nsignedData: <Set>\n"
                        "certificateUsedToAuthenticate: 01\ndecryptedData: <Set>\n"
                        "selectedCertificateHash: 01\nmessageID: ") +
                kID + "\n");
}

}  // namespace
