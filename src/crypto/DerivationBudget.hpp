#pragma once

#include <openssl/types.h>

#include <cstddef>
#include <cstdint>
#include <string>

namespace crypto {

// Limits the work that one file with encrypted keys may cause (the bounds stand in Pkcs12.hpp).
// Each piece of work is taken from this budget before it is done. For this folder's own files.
class DerivationBudget {
 public:
  // Takes the rounds of a MAC; null stands for the default of RFC 7292.
  [[nodiscard]] bool takeRounds(const ASN1_INTEGER *rounds);

  // Takes the rounds of a password-based encryption: PBES2 (RFC 8018) with PBKDF2 or scrypt (RFC
  // 7914), else one of the schemes of PKCS #12 and PKCS #5 v1.5, which share their parameters'
  // form. An algorithm without parameters to read asks for none: the library refuses it before any
  // work.
  [[nodiscard]] bool takeDerivation(const X509_ALGOR *algorithm);

  // Takes a bag, or one of the parts that contain bags.
  [[nodiscard]] bool takeBag();

  // The exceeded bound, after one of these returned false: "1024 bags".
  [[nodiscard]] const std::string &excess() const { return excess_; }

 private:
  bool takeRounds(std::uint64_t count);
  bool takeScrypt(const ASN1_TYPE *parameters);

  std::uint64_t rounds_ = 0;
  std::size_t bags_ = 0;
  std::string excess_;
};

}  // namespace crypto
