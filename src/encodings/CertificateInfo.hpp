#pragma once

#include <optional>
#include <string>

namespace encodings {

// The description of one identity in a certificate list: the certificate info dictionary. The
// members are named like its keys.
struct CertificateInfo {
  std::string certificate;  // DER bytes in standard Base64, padded, on one line
  bool canSign = false;
  bool canDecrypt = false;
  bool canUnwrap = false;
  std::string label;
  std::optional<std::string> publicKeyHash;  // upper-case hexadecimal text of 20 bytes
};

}  // namespace encodings
