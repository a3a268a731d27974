#include "crypto/KeyOperations.hpp"

#include <gtest/gtest.h>
#include <openssl/bio.h>
#include <openssl/err.h>
#include <openssl/ssl.h>
#include <openssl/x509.h>

#include <array>

#include "crypto/Digest.hpp"
#include "crypto/Owned.hpp"
#include "crypto/TlsChannel.hpp"
#include "fakes/MadeKeys.hpp"

namespace {

using fakes::madeIdentity;
using fakes::madeKey;

// A place that keeps an ordinary key, and refuses where the test wants it to.
class Place : public crypto::KeyOperations {
 public:
  explicit Place(crypto::PrivateKey key) : key_(std::move(key)) {}

  std::optional<Bytes> signPKCS1(ByteView data) override {
    return isRefusing ? std::nullopt : key_.signRawPKCS1(data);
  }
  std::optional<Bytes> signBlock(ByteView block) override {
    const auto signature = decryptBlock(block);
    return signature ? std::optional(Bytes(signature->reveal().begin(), signature->reveal().end()))
                     : std::nullopt;
  }
  std::optional<SecretBytes> decryptBlock(ByteView block) override {
    return isRefusing ? std::nullopt : key_.rawRSA(block);
  }
  std::optional<Bytes> signECDSA(ByteView digest) override {
    const auto der = isRefusing ? std::nullopt : key_.signDigestECDSA(digest);
    const std::uint8_t *start = der ? der->data() : nullptr;
    const crypto::Owned<ECDSA_SIG, ECDSA_SIG_free> signature(
        der ? d2i_ECDSA_SIG(nullptr, &start, static_cast<long>(der->size())) : nullptr);
    constexpr int kHalf = 32;
    Bytes both(2 * kHalf);
    if (!signature ||
        BN_bn2binpad(ECDSA_SIG_get0_r(signature.get()), both.data(), kHalf) != kHalf ||
        BN_bn2binpad(ECDSA_SIG_get0_s(signature.get()), both.data() + kHalf, kHalf) != kHalf) {
      return std::nullopt;
    }
    return both;
  }

  bool isRefusing = false;

 private:
  crypto::PrivateKey key_;
};

// Whether a client of the library alone completes a handshake with this server, in this version.
bool shakesHands(const crypto::TlsContext &server, int version) {
  const crypto::Owned<SSL_CTX, SSL_CTX_free> clientContext(SSL_CTX_new(TLS_client_method()));
  const crypto::Owned<SSL, SSL_free> client(SSL_new(clientContext.get()));
  const crypto::Owned<SSL, SSL_free> serverSide(SSL_new(server.native()));
  SSL_set_min_proto_version(client.get(), version);
  SSL_set_max_proto_version(client.get(), version);
  BIO *left = nullptr;
  BIO *right = nullptr;
  BIO_new_bio_pair(&left, 65536, &right, 65536);
  SSL_set_bio(client.get(), left, left);
  SSL_set_bio(serverSide.get(), right, right);
  SSL_set_connect_state(client.get());
  SSL_set_accept_state(serverSide.get());
  bool isDone = false;
  for (int turn = 0; turn < 8 && !isDone; ++turn) {
    const int ours = SSL_do_handshake(client.get());
    isDone = SSL_do_handshake(serverSide.get()) == 1 && ours == 1;
  }
  ERR_clear_error();
  return isDone && SSL_version(client.get()) == version;
}

class KeyElsewhere : public testing::TestWithParam<const char *> {
 public:
  crypto::Identity real = madeIdentity(GetParam(), "elsewhere");
  std::shared_ptr<Place> place = std::make_shared<Place>(real.key);
  crypto::PrivateKey key = *crypto::privateKeyDoneBy(place, *real.certificate.publicKey());
};

TEST_P(KeyElsewhere, ServesTLSUntilItsPlaceRefuses) {
  Error error;
  const auto server = crypto::TlsContext::server({real.certificate, key}, &error);
  ASSERT_TRUE(server) << error.description;
  EXPECT_TRUE(shakesHands(*server, TLS1_2_VERSION));
  EXPECT_TRUE(shakesHands(*server, TLS1_3_VERSION));
  place->isRefusing = true;
  EXPECT_FALSE(shakesHands(*server, TLS1_2_VERSION));
  EXPECT_FALSE(shakesHands(*server, TLS1_3_VERSION));
}

TEST_P(KeyElsewhere, DoesWhatAnOrdinaryKeyDoes) {
  const auto certificate = crypto::Certificate::selfSigned(key, "new", 1, /*serverName=*/false);
  ASSERT_TRUE(certificate);
  EXPECT_EQ(X509_verify(certificate->native(), real.key.native()), 1);
  EXPECT_EQ(key.publicKey().description(), real.key.publicKey().description());
  EXPECT_TRUE(key.pkcs8().empty()) << "it cannot be written out";
  if (key.publicKey().type() == crypto::KeyType::rsa) {
    EXPECT_EQ(key.signRawPKCS1(Bytes{1, 2}), real.key.signRawPKCS1(Bytes{1, 2}));
    const Bytes block(256, 1);
    EXPECT_TRUE(std::ranges::equal(key.rawRSA(block)->reveal(), real.key.rawRSA(block)->reveal()));
    EXPECT_FALSE(key.rawRSA(Bytes(255, 1)));
  } else {
    EXPECT_TRUE(key.signDigestECDSA(crypto::sha1Digest(Bytes{1})));
  }
}

TEST_P(KeyElsewhere, KeepsItsPlaceAsLongAsItLives) {
  const std::weak_ptr<Place> watched = place;
  place.reset();
  EXPECT_FALSE(watched.expired());
  key = real.key;
  EXPECT_TRUE(watched.expired());
}

INSTANTIATE_TEST_SUITE_P(Types, KeyElsewhere, testing::Values("RSA", "EC"));

TEST(KeyElsewhereTest, OtherTypesAreRefused) {
  const auto key = madeKey("ED25519");
  EXPECT_FALSE(crypto::privateKeyDoneBy(std::make_shared<Place>(key), key.publicKey()));
}

}  // namespace
