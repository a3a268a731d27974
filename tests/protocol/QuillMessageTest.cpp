#include "protocol/QuillMessage.hpp"

#include <pthread.h>

#include <algorithm>

#include "fakes/FullMessage.hpp"
#include "fakes/LoggedTest.hpp"
#include "protocol/MessageFields.hpp"
#include "support/HexString.hpp"

namespace {

using testing::ElementsAre;
using testing::HasSubstr;
using testing::Not;

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

// One row for every command and type: the keys that it takes, with "!" those without which it can't
// be written.
struct RowCase {
  QuillCommand command;
  QuillMessageType type;
  std::vector<std::string> keys;
};

TEST_F(Message, HasTheKeysThatItsCommandAndTypeDecide) {
  constexpr auto kRequest = QuillMessageTypeRequest;
  constexpr auto kResponse = QuillMessageTypeResponse;
  const RowCase kCases[] = {
      {QuillCommandConnect, kRequest, {"authentication_certificates"}},
      {QuillCommandConnect,
       kResponse,
       {"challenge", "message_error_message", "selected_certificate_hash"}},
      {QuillCommandAuthenticate,
       kRequest,
       {"challenge_signature!", "selected_authenticate_certificate!"}},
      {QuillCommandAuthenticate, kResponse, {}},
      {QuillCommandInsert, kRequest, {"certificates!"}},
      {QuillCommandInsert, kResponse, {}},
      {QuillCommandRemove, kRequest, {}},
      {QuillCommandRemove, kResponse, {}},
      {QuillCommandGetCertificates, kRequest, {}},
      {QuillCommandGetCertificates, kResponse, {"certificates!"}},
      {QuillCommandSignData, kRequest, {"data_to_sign!", "pin!", "signing_cert_hash!"}},
      {QuillCommandSignData, kResponse, {"signed_data!"}},
      {QuillCommandCreateEmphemeralUser, kRequest, {"ephemeral_user_name!"}},
      {QuillCommandCreateEmphemeralUser,
       kResponse,
       {"ephemeral_user_name!", "ephemeral_user_password!", "message_error_message"}},
      {QuillCommandDecryptData, kRequest, {"encrypted_data!", "object_id!", "pin!"}},
      {QuillCommandDecryptData, kResponse, {"decrypted_data!"}}};
  for (const RowCase &row : kCases) {
    const QuillMessage full = fakes::fullMessage(row.command, row.type);
    const auto isWritten = [json = encode(full)](const std::string &key) {
      return json.find('"' + key + "\":") != std::string::npos;
    };
    EXPECT_EQ(isWritten("status"), row.type == kResponse);
    for (const protocol::Field *field : protocol::kFieldsAsRead) {
      const std::string key(field->key);
      SCOPED_TRACE(key + " of command " + std::to_string(row.command));
      const auto isRequired = std::ranges::count(row.keys, key + '!');
      EXPECT_EQ(isWritten(key), isRequired || std::ranges::count(row.keys, key));
      QuillMessage lacking = full;
      std::visit([&](auto place) { (lacking.*place).reset(); }, field->place);
      EXPECT_EQ(encode(lacking) == "(nothing)", isRequired);
      EXPECT_EQ(takeEntries(), std::vector<std::string>(isRequired ? 1 : 0, "kfy:(null)"));
    }
  }
}

TEST_F(Message, OfNoKnownTypeOrCommandIsNotWritten) {
  QuillMessage message = QuillMessage::initCommandMessageRemoveSmartCard();
  message.command = 8;
  EXPECT_EQ(encode(message), "(nothing)");
  message.messageType = 2;
  EXPECT_EQ(encode(message), "(nothing)");
  EXPECT_THAT(takeEntries(), ElementsAre("kfy:(null)", "kfy:invalid message type: 2"));
}

TEST_F(Message, EscapesWhatItWritesAndBreaksLongBase64) {
  QuillMessage message = QuillMessage::initCommandMessageCreateEphemeralUser("a/\"\\\n\x01é");
  EXPECT_THAT(encode(message), HasSubstr("\"a\\/\\\"\\\\\\n\\u0001é\""));
  Bytes data(49);
  data.back() = 0xFF;
  message = QuillMessage::initWithReplyMessageForSignMessage(/*status=*/true, UUID::random(), data);
  EXPECT_THAT(encode(message), HasSubstr('"' + std::string(64, 'A') + "\\r\\n\\/w==\""));
  EXPECT_EQ(decode(encode(message))->signedData, data);
}

TEST_F(Message, ComesBackAsItWasWritten) {
  const support::CertificateInfo info{"QUJD/+", true, false, true, "a/b é", "AB"};
  const auto message = QuillMessage::initCommandMessageInsertSmartCardWithCertificates(
      protocol::makeCardList(std::vector<protocol::CardElement>{info, Bytes{1, 2, 3}}));
  const auto list = decode(encode(message))->certificates;
  ASSERT_EQ(list->entries().size(), 2U);
  EXPECT_EQ(list->entries()[0].certificateSHA1,
            support::sha1(support::dataFromBase64String("QUJD/+")));
  EXPECT_EQ(list->entries()[1].json, "\"AQID\"");
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
      {"x", "kfy:syntax error : 78"},
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
      R"(,"pin":"0","odd":[{"pin":2},"x"],"challenge":{},"":{"pin":"3"},"object_id":"","pin":"1","data_to_sign":"QQ")"));
  EXPECT_EQ(message->PIN->reveal(), "1") << "of a key that stands twice the last counts";
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
  const auto statusOf = [](const char *json) {
    return decode(request("remove", std::string(",\"status\":") + json))->status;
  };
  for (const char *const json : {"true", "1", "0.5", "-3"}) {
    EXPECT_TRUE(statusOf(json)) << json;
  }
  for (const char *const json : {"false", "0", "null", "\"true\""}) {
    EXPECT_FALSE(statusOf(json)) << json;
  }
}

TEST_F(Message, PassesCardEntriesOnUnchanged) {
  const std::string list =
      R"([{"certificate":"QUI=","more":[1,-2,18446744073709551615,0.1,9.918899606007773,-0.0,1e+300,null,true],"a\/b":""},)"
      R"("text",{"certificate":7},{"certificate":"*"}])";
  const auto message = decode(request("insert", ",\"certificates\":" + list));
  EXPECT_THAT(encode(*message), HasSubstr("\"certificates\":" + list));
  const auto entries = message->certificates->entries();
  ASSERT_EQ(entries.size(), 4U);
  EXPECT_EQ(entries[0].certificateSHA1, support::sha1(base::viewOf("AB")));
  EXPECT_TRUE(!entries[1].hasCertificate && !entries[2].hasCertificate);
  EXPECT_TRUE(entries[3].hasCertificate && entries[3].certificateSHA1.empty());
}

TEST_F(Message, TracesItsFieldsInOrder) {
  setDebugMode(true);
  (void)decode(request("sign_data",
                       R"(,"status":1,"pin":"x","challenge":"QQ==","challenge_signature":7,)"
                       R"("message_error_message":"","ephemeral_user_password":"",)"
                       R"("ephemeral_user_name":"")"));
  EXPECT_THAT(takeEntries(),
              ElementsAre("kfy:QuillCommandSignDataString received", "kfy:Message Type: Request",
                          "kfy:QuillChallengeString Received",
                          "kfy:selectedCertificateHash Received", "kfy:ephemeralUsername Received",
                          "kfy:errorMessage Received", "kfy:ephemeralPassword Received",
                          "kfy:QuillPINString Received", "kfy:QuillMessageStatusString Received"));
  (void)decode("x");
  EXPECT_THAT(takeEntries(), ElementsAre("kfy:syntax error : 78", "kfy:syntax error : 78"));
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
