#pragma once

#include <optional>
#include <string>
#include <string_view>

#include "base/Bytes.hpp"
#include "base/Error.hpp"
#include "remote/Address.hpp"

namespace remote {

// SHA-256 of a server's certificate, by which it is known.
using Fingerprint = Bytes;

// Reads 64 hexadecimal digits in either case; colons and white space between them count for
// nothing.
[[nodiscard]] std::optional<Fingerprint> fingerprintFrom(std::string_view text);

// The machines that were trusted before: a text file with one line "host:port fingerprint" for
// each. Lines of another form are skipped; of several for one machine the first counts.
class KnownHosts {
 public:
  explicit KnownHosts(std::string path) : path_(std::move(path)) {}

  // What this machine has to show; the file is read anew. Nothing if it is not known, and also if
  // the file can't be read, then with the reason.
  [[nodiscard]] std::optional<Fingerprint> find(const Address &address,
                                                Error *error = nullptr) const;

  // Adds a line; what is there stays as it is.
  [[nodiscard]] bool add(const Address &address, const Fingerprint &fingerprint,
                         Error *error = nullptr) const;

  // A command, ready to paste, that removes the line of this machine.
  [[nodiscard]] std::string removalCommand(const Address &address) const;

 private:
  std::string path_;
};

}  // namespace remote
