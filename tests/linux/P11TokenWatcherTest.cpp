#include "linux/tokens/P11TokenWatcher.hpp"

#include <gmock/gmock.h>
#include <p11-kit/p11-kit.h>

#include "crypto/Digest.hpp"
#include "fakes/MadeKeys.hpp"
#include "fakes/SoftTokens.hpp"

namespace {

using platform::IdentityQuery;
using platform::IdentityRecord;
using platform_linux::P11TokenWatcher;
using testing::ElementsAre;
using testing::HasSubstr;

// Token "one" holds an RSA and an EC key, "two" an EC key; "empty" holds nothing.
class Tokens : public testing::Test {
 public:
  Tokens() {
    for (const char *label : {"one", "two", "empty"}) {
      soft.make(label, std::string("pin of ") + label);
    }
    soft.put("one", fakes::makeIdentity("open"), "open ec", "02", /*needsPIN=*/false);
    soft.put("one", fakes::madeIdentity("RSA", "RSA card"), "Hidden RSA", "01");
    soft.put("two", fakes::makeIdentity("hidden"), "hidden ec", "03");
  }

  static const IdentityRecord *labelled(const platform::IdentityMatches &found,
                                        const std::string &label) {
    const auto record = std::ranges::find(found.records, label, &IdentityRecord::label);
    return record == found.records.end() ? nullptr : &*record;
  }
  static P11TokenWatcher::IsWanted hasLabel(const std::string &label) {
    return [label](const IdentityRecord &record) { return record.label == label; };
  }
  std::string idOf(const std::string &token) {
    for (const std::string &id : watcher.tokenIDs()) {
      if (id.ends_with("token=" + token)) {
        return id;
      }
    }
    return "";
  }
  static bool signs(const IdentityRecord &record) {
    const crypto::PrivateKey &key = record.reference->key;
    return key.signRawPKCS1(Bytes(36, 1)) || key.signDigestECDSA(Bytes(32, 1));
  }

  fakes::SoftTokens soft;
  std::vector<std::string> lines;
  P11TokenWatcher watcher{[this](const std::string &line) { lines.push_back(line); },
                          soft.moduleFolder()};
};

TEST_F(Tokens, AreListedInAStableOrderWhateverOtherModulesDo) {
  soft.configure("a-missing", "/nonexistent/module.so");
  soft.configure("d-own", "/nonexistent/kfy-pkcs11.so");  // without a line: it is not even tried
  const auto ids = watcher.tokenIDs();
  EXPECT_THAT(lines, ElementsAre(HasSubstr("/nonexistent/module.so left out: ")));
  EXPECT_EQ(ids.size(), 3U);
  EXPECT_EQ(watcher.tokenIDs(), ids);
  EXPECT_THAT(ids, testing::Each(testing::StartsWith("pkcs11:model=SoftHSM%20v2;manufacturer=")));
  soft.remove("two");
  EXPECT_EQ(watcher.tokenIDs().size(), 2U);
}

TEST_F(Tokens, ShowTheirIdentitiesInOrderOfTheirIDsWithoutAPIN) {
  IdentityQuery query;
  query.tokenID = idOf("one");
  const auto found = watcher.searchIdentities(query, /*isWanted=*/nullptr);
  ASSERT_EQ(found.records.size(), 2U);
  const IdentityRecord &rsa = found.records[0];
  EXPECT_EQ(rsa.label, "Hidden RSA");
  EXPECT_EQ(found.records[1].label, "open ec");
  EXPECT_TRUE(signs(found.records[1])) << "a key that needs no PIN";
  EXPECT_EQ(rsa.publicKeyHash,
            crypto::sha1Digest(*fakes::madeKey("RSA").publicKey().externalRepresentation()));
  EXPECT_TRUE(rsa.canSign && rsa.canDecrypt);
  EXPECT_FALSE(signs(rsa));
  EXPECT_THAT(lines, ElementsAre(HasSubstr("\"Hidden RSA\"")));
  query.tokenID = idOf("empty");
  EXPECT_EQ(watcher.searchIdentities(query, nullptr).status, platform::itemNotFound);
}

TEST_F(Tokens, ThePINGoesToTheOneThatHoldsTheMatch) {
  IdentityQuery query;
  const SecretText pin("pin of two");
  query.pin = &pin;
  auto found = watcher.searchIdentities(query, hasLabel("hidden ec"));
  ASSERT_EQ(found.records.size(), 3U) << "what the other tokens show is there too";
  EXPECT_TRUE(signs(*labelled(found, "hidden ec")));
  EXPECT_FALSE(signs(*labelled(found, "Hidden RSA"))) << "one login, on one token";
  found = {};
  lines.clear();
  found = watcher.searchIdentities(query, hasLabel("Hidden RSA"));
  EXPECT_EQ(found.status, platform::itemPINRefused);
  EXPECT_THAT(lines, ElementsAre(HasSubstr("token=one did not take the PIN")));
  lines.clear();
  setenv("KEYFERRY_FAULT", "last try", /*overwrite=*/1);
  soft.configure("soft", KEYFERRY_FAULTY_MODULE);
  EXPECT_EQ(watcher.searchIdentities(query, hasLabel("Hidden RSA")).status,
            platform::itemPINRefused);
  EXPECT_THAT(lines, ElementsAre(HasSubstr("one more wrong one would lock it")));
}

TEST_F(Tokens, TheErrorOfOneThatFailsIsTheStatus) {
  soft.configure("soft", KEYFERRY_FAULTY_MODULE);
  for (const char *call : {"C_Initialize", "C_GetSlotList", "C_GetTokenInfo", "C_OpenSession",
                           "C_FindObjectsInit", "C_FindObjects", "C_GetAttributeValue"}) {
    setenv("KEYFERRY_FAULT", call, /*overwrite=*/1);
    const auto found = watcher.searchIdentities({}, hasLabel("open ec"));
    EXPECT_EQ(static_cast<CK_RV>(found.status), CKR_DEVICE_ERROR) << call;
    EXPECT_TRUE(found.records.empty());
    EXPECT_THAT(std::exchange(lines, {}),
                testing::Contains(HasSubstr("error occurred on the device")))
        << call;
  }
  setenv("KEYFERRY_FAULT", "C_Initialize", /*overwrite=*/1);
  soft.configure("works", fakes::kSoftTokenModule);
  EXPECT_EQ(watcher.searchIdentities({}, hasLabel("open ec")).status, platform::itemSuccess);
  EXPECT_NE(watcher.searchIdentities({}, hasLabel("none")).status, platform::itemNotFound);
}

TEST_F(Tokens, AKeyOutlivesItsSearchAndFindsItsTokenAgain) {
  IdentityQuery query;
  const SecretText pin("pin of one");
  query.pin = &pin;
  const auto key = labelled(watcher.searchIdentities(query, hasLabel("Hidden RSA")), "Hidden RSA")
                       ->reference->key;
  for (int count = 0; count < 2; ++count) {
    EXPECT_EQ(key.signRawPKCS1(Bytes{1, 2, 3}), fakes::madeKey("RSA").signRawPKCS1(Bytes{1, 2, 3}));
    // All sessions of this process end, as if the token had been pulled and put back.
    CK_FUNCTION_LIST *const module =
        p11_kit_module_load(fakes::kSoftTokenModule, P11_KIT_MODULE_UNMANAGED);
    std::vector<CK_SLOT_ID> slots(4);
    CK_ULONG slotCount = slots.size();
    ASSERT_EQ(module->C_GetSlotList(CK_TRUE, slots.data(), &slotCount), CKR_OK);
    for (const CK_SLOT_ID slot : slots) {
      module->C_CloseAllSessions(slot);
    }
    p11_kit_module_release(module);
  }
}

}  // namespace
