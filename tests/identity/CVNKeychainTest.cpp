#include "identity/CVNKeychain.hpp"

#include "base/LowerCase.hpp"
#include "fakes/FakeItemStore.hpp"
#include "fakes/LoggedTest.hpp"
#include "fakes/MadeIdentity.hpp"
#include "identity/FingerprintText.hpp"

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
  EXPECT_TRUE(store.queries[0].returnAttributes && store.queries[0].returnReference);
  EXPECT_EQ(store.queries.size(), 1U) << "tokens are left alone where the keychain has a match";
  EXPECT_EQ(keychain.findIdentityWithSHA1Hash(hash, /*tokenOnly=*/true, kNoPIN), nullptr);
  EXPECT_EQ(keychain.publicKeyHashForCertificateWithSHA1Hash(hash, kNoPIN), std::nullopt);
  EXPECT_EQ(keychain.publicKeyHashForCertificateWithSHA1Hash(onOther.reference->certificate.sha1(),
                                                             kNoPIN),
            onOther.publicKeyHash);
  EXPECT_EQ(identity::fingerprintText(Bytes{1, 0xAB}), "01:AB");
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
  EXPECT_EQ(base::lowerCase(std::string_view("A\0Ä\xC3", 5)), std::string_view("a\0ä\xC3", 5));
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

class Lists : public Keychain, public testing::WithParamInterface<bool> {};
INSTANTIATE_TEST_SUITE_P(DebugMode, Lists, testing::Bool());

TEST_P(Lists, HoldWhatIsThereAndSayWhatFails) {
  fakes::Transcript transcript;
  setDebugMode(transcript.isDebugMode = GetParam());
  store.presentTokens = {"C", "B", "A"};
  store.items[4].record.canSign = false;
  store.items[4].record.canDecrypt = store.items[3].record.canUnwrap = true;
  const auto tell = [this](const std::vector<encodings::CertificateInfo> &list) {
    for (const encodings::CertificateInfo &info : list) {
      log.entries.push_back(info.label + (info.canSign ? " s" : " ") +
                            (info.canDecrypt ? "d" : "") + (info.canUnwrap ? "u " : " ") +
                            info.publicKeyHash.value_or("-"));
    }
  };
  transcript.actions["fail"] = [&](const auto &both) {
    store.failure = static_cast<platform::ItemStatus>(std::stoi(both));
    store.tokenFailure = static_cast<platform::ItemStatus>(std::stoi(both.substr(both.find(' '))));
  };
  transcript.actions["card"] = [&](const auto &) {
    tell(keychain.smartcardCertificateArrayFromKeychain());
  };
  transcript.actions["all"] = [&](const auto &verbose) {
    defaults.values["kfyd/verboseLogging"] = !verbose.empty();
    tell(keychain.iosCertificateArrayFromKeychain());
  };
  transcript.actions["info"] = [&](const auto &) {
    for (const auto &[name, hash] : keychain.availableIdentityInfo()) {
      log.entries.push_back(name + " " + std::to_string(hash.size()));
    }
  };
  transcript.takeLines = [&] { return takeEntries(); };
  for (const auto &[record, tokenID] : store.items) {
    const std::string name =
        *record.reference->certificate.commonName() + record.label->substr(0, 5);
    transcript.name(
        "~CERT" + name + " " +
        encodings::base64EncodeBytes(record.reference->certificate.der(), /*separateLines=*/false) +
        "\n~KEY" + name + " " + encodings::hexString(*record.reference->key.publicKey().hash()));
  }
  transcript.expect(R"(
> card
dbg:token IDS: (C, B, A) | dbg:querying for identities on C | dbg:found 1 identities | dbg:querying for identities on B
kfy:No identities found for B | dbg:querying for identities on A | dbg:found 2 identities
dbg:------certificate array from keychain------ | dbg:~CERTLastlast | dbg:~CERTTokenserve | dbg:~CERTTokenother
last d ~KEYLastlast | server identity s ~KEYTokenserve | other su ~KEYTokenother
> all
dbg:querying ios certificates | server identity s - | Server Identity s - | server identity s - | other su - | last d -
> all verbose
dbg:querying ios certificates | dbg:------certificate array from keychain------
dbg:certificate in keychain:~CERTOneserve | dbg:certificate in keychain:~CERTTwoServe
dbg:certificate in keychain:~CERTTokenserve | dbg:certificate in keychain:~CERTTokenother | dbg:certificate in keychain:~CERTLastlast
server identity s - | Server Identity s - | server identity s - | other su - | last d -
> info
One 40 | Two 40 | Token 40 | Token 40 | Last 40
> fail 0 -25293
> card
dbg:token IDS: (C, B, A) | dbg:querying for identities on C | kfy:SecItemCopyMatching error: -25293
dbg:querying for identities on B | kfy:SecItemCopyMatching error: -25293
dbg:querying for identities on A | kfy:SecItemCopyMatching error: -25293 | dbg:------certificate array from keychain------
> info
kfy:SecIdentityCopyCertificate error
> all verbose
dbg:querying ios certificates | kfy:SecItemCopyMatching error: -25293 | dbg:------certificate array from keychain------
> fail -25300 -25300
> all
dbg:querying ios certificates | kfy:No identities found
)");
  store.failure = store.tokenFailure = platform::itemSuccess;
  EXPECT_EQ(keychain.findIdentityWithSubject("Token"), nullptr) << "there are two";
  EXPECT_EQ(keychain.findIdentityWithSubject("one"), first.reference);
}

TEST_F(Keychain, TokensThatFailHideTheKeychainFromThoseAloneWhoAskBoth) {
  const Bytes hash = onToken.reference->certificate.sha1();
  store.tokenFailure = platform::itemPINRefused;
  EXPECT_EQ(keychain.findIdentityWithSubjectName("Server Identity", /*tokenOnly=*/false, kNoPIN),
            first.reference);
  EXPECT_THAT(takeEntries(), IsEmpty());
  EXPECT_EQ(keychain.findIdentityWithSHA1Hash(hash, /*tokenOnly=*/false, SecretText("1")), nullptr);
  EXPECT_THAT(takeEntries(), ElementsAre("kfy:SecIdentityCopyCertificate error"));
  EXPECT_EQ(keychain.findIdentityWithSubject("One"), nullptr);
  store.tokenFailure = platform::itemSuccess;
  store.failure = platform::itemStoreUnusable;
  EXPECT_EQ(keychain.findIdentityWithSHA1Hash(hash, /*tokenOnly=*/false, kNoPIN), nullptr);
  EXPECT_THAT(takeEntries(), ElementsAre("kfy:SecIdentityCopyCertificate error"));
  EXPECT_EQ(keychain.findIdentityWithSHA1Hash(hash, /*tokenOnly=*/true, kNoPIN), onToken.reference);
}

}  // namespace
