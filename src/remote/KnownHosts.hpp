#pragma once

#include <optional>
#include <string>
#include <string_view>

#include "base/Bytes.hpp"
#include "base/Error.hpp"
#include "remote/Address.hpp"

namespace remote {

// SHA-256 of a server's certificate.
using Fingerprint = Bytes;

// Reads 64 hexadecimal digits in either case. Colons and white space between them are ignored.
[[nodiscard]] std::optional<Fingerprint> fingerprintFrom(std::string_view text);

// The machines that were trusted before: a text file with one line "host:port fingerprint" for
// each. Lines of another form are skipped; of several for one machine the first counts.
class KnownHosts {
 public:
  explicit KnownHosts(std::string path) : path_(std::move(path)) {}

  // The fingerprint of this machine, read from the file at each call. Nothing if the machine is not
  // known; nothing, with the reason, if the file can't be read.
  [[nodiscard]] std::optional<Fingerprint> find(const Address &address,
                                                Error *error = nullptr) const;

  // Adds a line and changes no other.
  [[nodiscard]] bool add(const Address &address, const Fingerprint &fingerprint,
                         Error *error = nullptr) const;

  // A command, ready to paste, that removes the line of this machine.
  [[nodiscard]] std::string removalCommand(const Address &address) const;

 private:
  std::string path_;
};

}  // namespace remote
