#include "crypto/KeyParts.hpp"

#include <openssl/bn.h>
#include <openssl/core_names.h>
#include <openssl/ec.h>
#include <openssl/err.h>
#include <openssl/evp.h>

#include <algorithm>
#include <array>
#include <string_view>

#include "crypto/Owned.hpp"

namespace crypto {
namespace {

using Number = Owned<BIGNUM, BN_free>;

struct Curve {
  std::string_view name;
  ByteView identifier;
};

constexpr std::array<std::uint8_t, 10> kP256{0x06, 0x08, 0x2A, 0x86, 0x48,
                                             0xCE, 0x3D, 0x03, 0x01, 0x07};  // 1.2.840.10045.3.1.7
constexpr std::array<std::uint8_t, 7> kP384{0x06, 0x05, 0x2B, 0x81,
                                            0x04, 0x00, 0x22};  // 1.3.132.0.34
constexpr std::array<std::uint8_t, 7> kP521{0x06, 0x05, 0x2B, 0x81,
                                            0x04, 0x00, 0x23};  // 1.3.132.0.35

// With the library's names.
constexpr std::array kCurves{Curve{"prime256v1", kP256}, Curve{"secp384r1", kP384},
                             Curve{"secp521r1", kP521}};

const Curve *curveOf(const PublicKey &key) {
  std::array<char, 64> name{};
  if (key.type() != KeyType::ec ||
      EVP_PKEY_get_group_name(key.native(), name.data(), name.size(), nullptr) != 1) {
    ERR_clear_error();
    return nullptr;
  }
  const auto *const found = std::ranges::find(kCurves, std::string_view(name.data()), &Curve::name);
  return found == kCurves.end() ? nullptr : found;
}

Bytes numberOf(const PublicKey &key, const char *name) {
  BIGNUM *read = nullptr;
  if (EVP_PKEY_get_bn_param(key.native(), name, &read) != 1) {
    ERR_clear_error();
    return {};
  }
  const Number number(read);
  Bytes bytes(static_cast<std::size_t>(BN_num_bytes(number.get())));
  BN_bn2bin(number.get(), bytes.data());
  return bytes;
}

}  // namespace

std::optional<RSAParts> rsaPartsOf(const PublicKey &key) {
  if (key.type() != KeyType::rsa) {
    return std::nullopt;
  }
  return RSAParts{numberOf(key, OSSL_PKEY_PARAM_RSA_N), numberOf(key, OSSL_PKEY_PARAM_RSA_E)};
}

std::optional<Bytes> curveIdentifierOf(const PublicKey &key) {
  const Curve *const curve = curveOf(key);
  return curve == nullptr
             ? std::nullopt
             : std::optional(Bytes(curve->identifier.begin(), curve->identifier.end()));
}

bool isPointFor(const PublicKey &key, ByteView point) {
  constexpr std::uint8_t kUncompressed = 4;
  if (curveOf(key) == nullptr || point.size() != 1 + 2 * key.sizeInBytes() ||
      point[0] != kUncompressed) {
    return false;
  }
  const Owned<EVP_PKEY, EVP_PKEY_free> other(EVP_PKEY_new());
  const bool isOne = other && EVP_PKEY_copy_parameters(other.get(), key.native()) == 1 &&
                     EVP_PKEY_set1_encoded_public_key(other.get(), point.data(), point.size()) == 1;
  ERR_clear_error();
  return isOne;
}

std::optional<Bytes> joinedSignature(ByteView der, std::size_t fieldBytes) {
  const std::uint8_t *end = der.data();
  const Owned<ECDSA_SIG, ECDSA_SIG_free> signature(
      d2i_ECDSA_SIG(nullptr, &end, static_cast<long>(der.size())));
  ERR_clear_error();
  if (!signature || end != der.data() + der.size()) {
    return std::nullopt;
  }
  Bytes joined(2 * fieldBytes);
  const int length = static_cast<int>(fieldBytes);
  if (BN_bn2binpad(ECDSA_SIG_get0_r(signature.get()), joined.data(), length) != length ||
      BN_bn2binpad(ECDSA_SIG_get0_s(signature.get()), joined.data() + fieldBytes, length) !=
          length) {
    return std::nullopt;
  }
  return joined;
}

std::optional<Bytes> derSignature(ByteView joined) {
  const int half = static_cast<int>(joined.size() / 2);
  Number r(BN_bin2bn(joined.data(), half, nullptr));
  Number s(BN_bin2bn(joined.data() + half, half, nullptr));
  const Owned<ECDSA_SIG, ECDSA_SIG_free> signature(ECDSA_SIG_new());
  if (!r || !s || !signature || joined.size() % 2 != 0 ||
      ECDSA_SIG_set0(signature.get(), r.get(), s.get()) != 1) {
    return std::nullopt;
  }
  // now owned by the signature
  static_cast<void>(r.release());
  static_cast<void>(s.release());
  const int length = i2d_ECDSA_SIG(signature.get(), nullptr);
  Bytes der(static_cast<std::size_t>(std::max(length, 0)));
  std::uint8_t *place = der.data();
  return length > 0 && i2d_ECDSA_SIG(signature.get(), &place) == length
             ? std::optional(std::move(der))
             : std::nullopt;
}

}  // namespace crypto
