#pragma once

#include <optional>
#include <span>
#include <string>
#include <vector>

#include "base/Bytes.hpp"
#include "base/Error.hpp"
#include "ctl/Outcome.hpp"

namespace ctl {

// A key that is paired with a user of this machine. Its holder may authenticate as a remote client.
struct Pairing {
  std::string user;
  Bytes publicKeyHash;  // SHA-1 of the exported public key, 20 bytes

  friend bool operator==(const Pairing &left, const Pairing &right) = default;
};

// The file of pairings: a TOML file with lines `user = "40 hexadecimal digits"`.
class PairingFile {
 public:
  // `path` is used as given (see base::rooted).
  explicit PairingFile(std::string path);

  // All pairings in the order of their lines; none if there is no file. Nothing, with the reason in
  // *error, if it can't be read, does not parse, holds anything else, or is writable by others than
  // root: whoever writes it decides who is admitted.
  [[nodiscard]] std::optional<std::vector<Pairing>> read(Error *error = nullptr) const;

  // Makes these the only pairings; comments stay. Atomic; the file is root's alone (0600).
  [[nodiscard]] bool write(std::span<const Pairing> pairings, Error *error = nullptr) const;

 private:
  [[nodiscard]] std::optional<std::string> readText(Error *error) const;

  std::string path_;
};

// The one on this system.
[[nodiscard]] PairingFile pairingFile();

// The failure of a command that could not read or write it.
[[nodiscard]] Failure unusablePairings(const Error &error, const std::string &command);

// What `sc_auth identities` prints, which is also what the daemon reads: a header, and if there are
// pairings, a section line and a line for each.
[[nodiscard]] std::string listingOf(std::span<const Pairing> pairings);

}  // namespace ctl
