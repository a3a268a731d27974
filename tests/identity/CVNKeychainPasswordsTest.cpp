#include <openssl/pkcs12.h>

#include "fakes/FakeItemStore.hpp"
#include "fakes/LoggedTest.hpp"
#include "fakes/MadeKeys.hpp"
#include "fakes/TemporaryFolder.hpp"
#include "identity/CVNKeychain.hpp"
#include "identity/CVNPassword.hpp"

namespace {

using testing::ElementsAre;
using testing::IsEmpty;

class Passwords : public fakes::LoggedTest {
 public:
  bool set(const char *password) {
    return keychain.setPasswordForAccount(SecretText(password), "ann", "group");
  }
  std::string get() {
    Error error;
    const auto password = keychain.passwordForAccount("ann", "group", &error);
    return password ? std::string(password->reveal()) : error.domain + std::to_string(error.code);
  }

  fakes::FakeItemStore store;
  CVNKeychain keychain{store, store, defaults};
};

TEST_F(Passwords, AreWrittenReadAndDeleted) {
  EXPECT_EQ(get(), "0") << "no item is no error";
  EXPECT_TRUE(set("first"));
  EXPECT_TRUE(set("second"));
  EXPECT_EQ(store.passwords.size(), 1U);
  EXPECT_TRUE(store.passwords.contains("com.corvane.hdq.apns/ann/group"));
  EXPECT_EQ(get(), "second");
  EXPECT_FALSE(keychain.passwordForAccount("ann", std::nullopt)) << "the item has a group";
  keychain.deletePasswordForAccount("ann", "group");
  EXPECT_THAT(takeEntries(), IsEmpty());
  EXPECT_FALSE(keychain.setPasswordForAccount(std::nullopt, "ann", "group"));
  EXPECT_THAT(takeEntries(), ElementsAre("kfy:Error removing keychain ann: -25300"));
}

TEST_F(Passwords, OfTheirOwnHoldEveryPrintableCharacterButTheBlank) {
  const SecretText all = CVNKeychain::randomPasswordLength(10000);
  const std::set<char> seen(all.reveal().begin(), all.reveal().end());
  EXPECT_EQ(all.reveal().size(), 10000U);
  EXPECT_EQ(CVNKeychain::randomPassword().reveal().size(), 15U);
  EXPECT_TRUE(seen.size() == 94 && *seen.begin() == '!' && *seen.rbegin() == '~');
  auto item = CVNPassword::initWithService("service", std::nullopt, "group");
  EXPECT_FALSE(item.password());
  item.setPassword(SecretText("x"));
  EXPECT_EQ(item.password()->reveal(), "x");
}

TEST_F(Passwords, SayWhatFails) {
  EXPECT_FALSE(set("caf\x80"));
  store.writeFailure = platform::itemStoreUnusable;
  EXPECT_FALSE(set("x"));
  store.passwords["com.corvane.hdq.apns/ann/group"].status = platform::itemSuccess;
  EXPECT_FALSE(set("x"));
  store.failure = platform::itemStoreUnusable;
  EXPECT_FALSE(set("x"));
  EXPECT_EQ(get(), "CVN-128");
  EXPECT_THAT(
      takeEntries(),
      ElementsAre("kfy:password of ann not stored: it holds a character outside ASCII",
                  "kfy:Add Error: -25291", "kfy:Update Error: -25291", "kfy:unknown result"));
}

// Where Debian's package keeps the samples of a widely used library's own tests.
const std::string kSamples = "/usr/lib/python3/dist-packages/cryptography_vectors/pkcs12/";

class Import : public Passwords {
 public:
  int import(const std::string &path, const std::string &password) {
    const int result = keychain.importNewP12AtURL(path, SecretText(password));
    EXPECT_EQ(std::filesystem::exists(path), result != 0) << path;
    return result;
  }
  int importCopy(const std::string &sample, const std::string &password) {
    std::filesystem::copy_file(kSamples + sample + ".p12", folder / "copy.p12",
                               std::filesystem::copy_options::overwrite_existing);
    return import(folder / "copy.p12", password);
  }

  fakes::TemporaryFolder folder;
};

TEST_F(Import, OfThePublicSamplesIsWhatTheirNamesSay) {
  // names, password, result
  const std::tuple<std::vector<std::string>, const char *, int> kCases[] = {
      {{"cert-key-aes256cbc", "cert-rc2-key-3des", "cert-none-key-none"}, "cryptography", 0},
      {{"no-password"}, "", 0},
      {{"cert-key-aes256cbc"}, "wrong", -1},
      {{"cert-aes256cbc-no-key", "no-cert-key-aes256cbc"}, "cryptography", -1},
      // both, and two other certificates, which are skipped; names are no matter
      {{"no-name-pwd", "name-all-pwd", "name-unicode-pwd"}, "password", 0},
      {{"no-name-no-pwd", "name-all-no-pwd"}, "", 0},
      // certificates of others alone
      {{"no-cert-no-name-pwd", "no-cert-name-unicode-pwd"}, "password", -1},
  };
  for (const auto &[names, password, result] : kCases) {
    for (const std::string &name : names) {
      store.items.clear();
      EXPECT_EQ(importCopy(name, password), result) << name;
      EXPECT_EQ(store.items.size(), result == 0 ? 1U : 0U) << name;
      EXPECT_THAT(takeEntries(), IsEmpty());
    }
  }
}

constexpr std::uint8_t kOwnID = 1;

// A package of these identities, kOwnID on their certificates; `otherID`: then also a key of an
// unknown algorithm with this local key ID.
std::string packageOf(const std::vector<crypto::Identity> &identities,
                      std::optional<std::uint8_t> otherID = std::nullopt) {
  STACK_OF(PKCS12_SAFEBAG) *bags = sk_PKCS12_SAFEBAG_new_null();
  if (otherID) {
    PKCS8_PRIV_KEY_INFO *const key = PKCS8_PRIV_KEY_INFO_new();
    PKCS8_pkey_set0(key, OBJ_txt2obj("1.2.3", 1), 0, V_ASN1_NULL, nullptr, nullptr, 0);
    sk_PKCS12_SAFEBAG_push(bags, PKCS12_SAFEBAG_create0_p8inf(key));
    PKCS12_add_localkeyid(sk_PKCS12_SAFEBAG_value(bags, 0), &*otherID, 1);
  }
  for (const crypto::Identity &identity : identities) {
    std::uint8_t id = kOwnID;
    PKCS12_add_localkeyid(PKCS12_add_cert(&bags, identity.certificate.native()), &id, 1);
    PKCS12_add_key(&bags, identity.key.native(), 0, 0, -1, nullptr);
  }
  return fakes::packageOf(bags);
}

TEST_F(Import, RefusesALargeKeyAndKeepsWhatItAddedBefore) {
  const auto large = crypto::PrivateKey::generateRSA(2056);
  folder.write("two.p12", packageOf({fakes::madeIdentity("RSA", "small"),
                                     fakes::identityOf(*large, "large")}));
  EXPECT_EQ(import(folder / "two.p12", "pw"), -2);
  ASSERT_EQ(store.items.size(), 1U);
  EXPECT_EQ(store.items.at(0).record.label, "small");
  const platform::IdentityRecord &small = store.items[0].record;
  EXPECT_TRUE(small.canSign && small.canDecrypt && small.canUnwrap);
  EXPECT_EQ(small.publicKeyHash, fakes::madeKey("RSA").publicKey().hash());
}

TEST_F(Import, SkipsAKeyOfAnUnknownAlgorithmUnlessItBelongsToACertificate) {
  const crypto::Identity twice = fakes::makeIdentity("twice");
  std::vector<CVNKeychain::Imported> imported;
  const std::string file = packageOf({twice, twice}, kOwnID + 1);
  const auto content = crypto::readPkcs12(base::viewOf(file), /*password=*/nullptr);
  EXPECT_EQ(keychain.importPackage(*content, &imported), 0);
  EXPECT_EQ(keychain.importPackage(*content, &imported), 0);
  ASSERT_EQ(imported.size(), 2U) << "two keys and two certificates make one identity";
  EXPECT_TRUE(!imported[0].wasThere && imported[1].wasThere);
  EXPECT_FALSE(store.items.at(0).record.canDecrypt) << "no RSA key";
  folder.write("own.p12", packageOf({twice}, kOwnID));
  EXPECT_EQ(import(folder / "own.p12", ""), -1);
  EXPECT_THAT(takeEntries(), ElementsAre("kfy:SecIdentityCopyPrivateKey error"));
}

TEST_F(Import, KeepsTheFileWhenTheStoreFails) {
  store.failure = platform::itemStoreUnusable;
  EXPECT_EQ(importCopy("no-password", ""), -3);
}

}  // namespace
