#pragma once

#include <chrono>
#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "base/Bytes.hpp"
#include "base/Secret.hpp"
#include "crypto/Identity.hpp"

namespace platform {

// The outcome of a keychain operation. Other numbers are errors of a token: see TokenWatcher.
enum ItemStatus : std::int32_t {
  itemSuccess = 0,
  itemStoreUnusable = -25291,
  itemPINRefused = -25293,
  itemDuplicate = -25299,
  itemNotFound = -25300,
};

// The access group of identities on tokens.
inline constexpr const char *kTokenAccessGroup = "token";

// The criteria of a search for identities. Members that are not set restrict nothing.
struct IdentityQuery {
  std::optional<std::string> tokenID;          // only identities on that token
  std::optional<std::string> accessGroup;      // only items of that group
  std::optional<std::string> subjectContains;  // see crypto::Certificate::subjectContains
  bool returnAttributes = false;
  bool returnReference = false;
  const SecretText *pin = nullptr;  // carried by an authentication context; borrowed for the call
};

// One match of a search, with what was asked for.
struct IdentityRecord {
  std::shared_ptr<const crypto::Identity> reference;
  std::optional<std::string> label;  // as stored
  std::optional<Bytes> publicKeyHash;
  bool canSign = false;
  bool canDecrypt = false;
  bool canUnwrap = false;
};

struct IdentityMatches {
  ItemStatus status = itemNotFound;
  std::vector<IdentityRecord> records;  // in a stable order; empty unless the status is success
};

// The name of a password item. No two items have equal names.
struct PasswordName {
  std::string service;
  std::string account;
  std::optional<std::string> accessGroup;  // nothing: items without one, and no others
  bool synchronizable = true;              // the others are never found, written or deleted
};

struct PasswordMatch {
  ItemStatus status = itemNotFound;
  std::optional<SecretBytes> value;  // only if it was asked for
  std::optional<std::chrono::system_clock::time_point> modificationDate;
};

// Why a store is unusable, for those who tell people what to do about it.
enum class StoreTrouble {
  none,
  openToOthers,  // others than the owner can access it
  foreign,       // it belongs to somebody else, or is no file
  newerVersion,  // made by a newer version of this system
  damaged,       // truncated, overwritten, or never a keychain
  readOnly,      // its file system is read-only
  full,          // its file system is full
  busy,          // other programs held a lock for too long
  other,
};

// The machine's keychain. Every operation asks the store anew, may block on it, and leaves it whole
// if the process dies at any instant. Takes calls from any thread.
class ItemStore {
 public:
  virtual ~ItemStore() = default;

  // All matches, or a status that says why there are none.
  [[nodiscard]] virtual IdentityMatches searchIdentities(const IdentityQuery &query) = 0;

  // Adds an identity with its attributes (`record.reference` must be set). Duplicate if one with
  // the same certificate is there.
  [[nodiscard]] virtual ItemStatus addIdentity(const IdentityRecord &record,
                                               const std::optional<std::string> &accessGroup) = 0;

  // Deletes the identity whose certificate has this SHA-1 digest.
  [[nodiscard]] virtual ItemStatus deleteIdentity(ByteView certificateSHA1) = 0;

  // The item of this name with its attributes, with its value only if `returnData`.
  [[nodiscard]] virtual PasswordMatch searchPassword(const PasswordName &name, bool returnData) = 0;

  // Adds an item; duplicate if there is one of this name.
  [[nodiscard]] virtual ItemStatus addPassword(const PasswordName &name,
                                               const SecretBytes &value) = 0;

  // Gives an item another value and a new modification date.
  [[nodiscard]] virtual ItemStatus updatePassword(const PasswordName &name,
                                                  const SecretBytes &value) = 0;

  [[nodiscard]] virtual ItemStatus deletePassword(const PasswordName &name) = 0;

  // Why the last operation found the store unusable; none if it was usable.
  [[nodiscard]] virtual StoreTrouble trouble() const = 0;
};

}  // namespace platform
