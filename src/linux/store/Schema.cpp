#include "linux/store/Schema.hpp"

#include <cstddef>
#include <iterator>

namespace platform_linux {
namespace {

// The step at each index leads to the version above it.
constexpr const char *kSteps[] = {
    "CREATE TABLE identities ("
    "  id INTEGER PRIMARY KEY,"
    "  certificate BLOB NOT NULL,"              // X.509, DER
    "  certificate_sha1 BLOB NOT NULL UNIQUE,"  // what identities are named by
    "  private_key BLOB NOT NULL,"              // PKCS #8 PrivateKeyInfo, DER
    "  label TEXT,"
    "  public_key_hash BLOB,"  // SHA-1 of the exported public key
    "  can_sign INTEGER NOT NULL,"
    "  can_decrypt INTEGER NOT NULL,"
    "  can_unwrap INTEGER NOT NULL,"
    "  access_group TEXT"
    ") STRICT;"
    "PRAGMA user_version=1;",

    "CREATE TABLE passwords ("
    "  id INTEGER PRIMARY KEY,"
    "  service TEXT NOT NULL,"
    "  account TEXT NOT NULL,"
    "  access_group TEXT,"
    "  synchronizable INTEGER NOT NULL,"
    "  value BLOB NOT NULL,"
    "  modified INTEGER NOT NULL"  // milliseconds since 1970 in UTC
    ") STRICT;"
    // an index takes two NULLs for different, so its third column says whether there is a group
    "CREATE UNIQUE INDEX passwords_by_name ON passwords"
    " (service, account, access_group IS NULL, ifnull(access_group, ''), synchronizable);"
    "PRAGMA user_version=2;",
};
static_assert(std::size(kSteps) == kSchema);

}  // namespace

bool migrate(Database &database) {
  const auto version = database.userVersion();
  if (!version || *version < 0 || *version > kSchema) {
    return false;  // another program was first, with a newer version
  }
  for (auto step = static_cast<std::size_t>(*version); step < std::size(kSteps); ++step) {
    if (!database.run(kSteps[step])) {
      return false;
    }
  }
  return true;
}

}  // namespace platform_linux
