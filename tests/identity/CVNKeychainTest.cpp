#include "identity/CVNKeychain.hpp"

#include "base/LowerCase.hpp"
#include "fakes/FakeItemStore.hpp"
#include "fakes/LoggedTest.hpp"
#include "fakes/MadeIdentity.hpp"

namespace {

using testing::ElementsAre;
using testing::IsEmpty;

const std::optional<SecretText> kNoPIN;

// Two identities in the keychain, two on the token A, none on B, one on C.
class Keychain : public fakes::LoggedTest {
 public:
  Keychain() : keychain(store, store, defaults) {
    store.items = {{first, ""}, {second, ""}, {onToken, "A"}, {alsoOnToken, "A"}, {onOther, "C"}};
    store.items[3].record.publicKeyHash.reset();
  }

  platform::IdentityRecord first = fakes::makeIdentity("One", "server identity");
  platform::IdentityRecord second = fakes::makeIdentity("Two", "Server Identity");
  platform::IdentityRecord onToken = fakes::makeIdentity("Token", "server identity");
  platform::IdentityRecord alsoOnToken = fakes::makeIdentity("Token", "other");
  platform::IdentityRecord onOther = fakes::makeIdentity("Last", "last");
  fakes::FakeItemStore store;
  CVNKeychain keychain;
};

TEST_F(Keychain, FindsByCertificateHashOnTokensOnlyIfAsked) {
  const Bytes hash = second.reference->certificate.sha1();
  EXPECT_EQ(keychain.findIdentityWithSHA1Hash(hash, /*tokenOnly=*/false, kNoPIN), second.reference);
  EXPECT_EQ(store.queries.size(), 1U) << "tokens are left alone where the keychain has a match";
  EXPECT_EQ(keychain.findIdentityWithSHA1Hash(hash, /*tokenOnly=*/true, kNoPIN), nullptr);
}

TEST_F(Keychain, LowersTheNameButNotTheLabel) {
  EXPECT_EQ(keychain.findIdentityWithSubjectName("Server IDENTITY", /*tokenOnly=*/false, kNoPIN),
            first.reference);
  EXPECT_EQ(keychain.findIdentityWithSubjectName("Server Identity", /*tokenOnly=*/true, kNoPIN),
            onToken.reference);
  store.items.erase(store.items.begin());
  EXPECT_EQ(keychain.findIdentityWithSubjectName("Server Identity", /*tokenOnly=*/false, kNoPIN),
            onToken.reference)
      << "a label with capitals never matches";
  EXPECT_EQ(base::lowerCase("ÄÖ\xFFẞ x"), "äö\xFFß x");
}

TEST_F(Keychain, CarriesAPINThatIsNotEmpty) {
  setDebugMode(/*on=*/true);
  const Bytes hash = *onOther.publicKeyHash;
  EXPECT_EQ(keychain.findIdentityWithPubKeyHash(hash, SecretText("")), onOther.reference);
  EXPECT_EQ(store.queries.back().pin, nullptr);
  EXPECT_THAT(takeEntries(), IsEmpty());
  EXPECT_EQ(keychain.findIdentityWithPubKeyHash(hash, SecretText("1")), onOther.reference);
  EXPECT_NE(store.queries.back().pin, nullptr);
  EXPECT_TRUE(store.isWantedGiven);
  EXPECT_EQ(store.queries.back().accessGroup, platform::kTokenAccessGroup);
  EXPECT_THAT(takeEntries(), ElementsAre("kfy:using PIN in LAContext"));
}

TEST_F(Keychain, DescribesTokensInOrderWithKeyHashes) {
  setDebugMode(/*on=*/true);
  store.presentTokens = {"C", "B", "A"};
  const auto list = keychain.smartcardCertificateArrayFromKeychain();
  ASSERT_EQ(list.size(), 3U);
  EXPECT_EQ(list[0].label, "last");
  EXPECT_EQ(list[0].publicKeyHash, support::hexString(*onOther.publicKeyHash));
  EXPECT_EQ(list[2].publicKeyHash, support::hexString(*alsoOnToken.publicKeyHash)) << "computed";
  EXPECT_EQ(support::dataFromBase64String(list[1].certificate),
            onToken.reference->certificate.der());
}

TEST_F(Keychain, TokensThatFailHideTheKeychainFromThoseAloneWhoAskBoth) {
  const Bytes hash = onToken.reference->certificate.sha1();
  store.tokenFailure = platform::itemPINRefused;
  EXPECT_EQ(keychain.findIdentityWithSubjectName("Server Identity", /*tokenOnly=*/false, kNoPIN),
            first.reference);
  EXPECT_THAT(takeEntries(), IsEmpty());
  EXPECT_EQ(keychain.findIdentityWithSHA1Hash(hash, /*tokenOnly=*/false, SecretText("1")), nullptr);
  EXPECT_THAT(takeEntries(), ElementsAre("kfy:SecIdentityCopyCertificate error"));
  EXPECT_THAT(keychain.iosCertificateArrayFromKeychain(), IsEmpty());
  EXPECT_THAT(takeEntries(), ElementsAre("kfy:SecItemCopyMatching error: -25293"));
  EXPECT_EQ(keychain.findIdentityWithSubject("One"), nullptr);
  store.tokenFailure = platform::itemSuccess;
  EXPECT_EQ(keychain.findIdentityWithSubject("one"), first.reference);
  store.failure = platform::itemStoreUnusable;
  EXPECT_EQ(keychain.findIdentityWithSHA1Hash(hash, /*tokenOnly=*/false, kNoPIN), nullptr);
  EXPECT_THAT(takeEntries(), ElementsAre("kfy:SecIdentityCopyCertificate error"));
  EXPECT_EQ(keychain.findIdentityWithSHA1Hash(hash, /*tokenOnly=*/true, kNoPIN), onToken.reference);
}

}  // namespace
