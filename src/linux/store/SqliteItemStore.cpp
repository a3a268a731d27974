#include "linux/store/SqliteItemStore.hpp"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstdio>
#include <system_error>
#include <utility>

#include "base/Descriptor.hpp"
#include "base/Files.hpp"
#include "crypto/Digest.hpp"
#include "linux/store/Database.hpp"
#include "linux/store/Schema.hpp"

namespace platform_linux {

using platform::IdentityMatches;
using platform::IdentityQuery;
using platform::IdentityRecord;
using platform::ItemStatus;
using platform::StoreTrouble;

namespace {

constexpr const char *kInsertIdentity =
    "INSERT INTO identities (certificate, certificate_sha1, private_key, label, public_key_hash,"
    " can_sign, can_decrypt, can_unwrap, access_group) VALUES (?, ?, ?, ?, ?, ?, ?, ?, ?)";

constexpr const char *kSelectIdentities =
    "SELECT id, certificate, private_key, label, public_key_hash, can_sign, can_decrypt, can_unwrap"
    " FROM identities WHERE ?1 IS NULL OR access_group = ?1 ORDER BY id";

std::string errnoText(int number) {
  return std::generic_category().message(number);
}

std::optional<Bytes> publicKeyHashOf(const IdentityRecord &record) {
  if (record.publicKeyHash) {
    return record.publicKeyHash;
  }
  const auto key = record.reference->certificate.publicKey();
  return key ? key->hash() : std::nullopt;
}

// The record of a row whose certificate is read already; nothing if its key can't be read.
std::optional<IdentityRecord> recordOf(const Statement &row, const crypto::Certificate &certificate,
                                       bool withReference) {
  IdentityRecord record;
  if (withReference) {
    const auto key = crypto::PrivateKey::fromPKCS8(row.bytes(2));
    if (!key) {
      return std::nullopt;
    }
    record.reference =
        std::make_shared<const crypto::Identity>(crypto::Identity{certificate, *key});
  }
  record.label = row.text(3);
  const ByteView hash = row.bytes(4);
  if (!hash.empty()) {
    record.publicKeyHash.emplace(hash.begin(), hash.end());
  }
  record.canSign = row.number(5) != 0;
  record.canDecrypt = row.number(6) != 0;
  record.canUnwrap = row.number(7) != 0;
  return record;
}

struct Objection {
  StoreTrouble trouble;
  std::string cause;
};

// Why a file must not be used; nothing if it may.
std::optional<Objection> objectionTo(const struct stat &file) {
  constexpr mode_t kGroupAndOthers = 077;
  if (!S_ISREG(file.st_mode)) {
    return Objection{StoreTrouble::foreign, "not a regular file"};
  }
  if (file.st_uid != 0 && file.st_uid != ::geteuid()) {
    return Objection{StoreTrouble::foreign, "it belongs to user " + std::to_string(file.st_uid)};
  }
  if ((file.st_mode & kGroupAndOthers) != 0) {
    std::array<char, 8> mode{};
    std::snprintf(mode.data(), mode.size(), "%04o", file.st_mode & 07777U);
    return Objection{StoreTrouble::openToOthers, std::string("group or others can use it (mode ") +
                                                     mode.data() + "), must be 0600"};
  }
  return std::nullopt;
}

StoreTrouble troubleOfErrno(int number) {
  switch (number) {
    case EROFS:
      return StoreTrouble::readOnly;
    case ENOSPC:
    case EDQUOT:
      return StoreTrouble::full;
    default:
      return StoreTrouble::other;
  }
}

}  // namespace

SqliteItemStore::SqliteItemStore(std::string path, Reporter reporter)
    : path_(std::move(path)), reporter_(std::move(reporter)) {}

ItemStatus SqliteItemStore::unusable(StoreTrouble trouble, const std::string &cause) {
  trouble_ = trouble;
  if (reporter_) {
    reporter_("keychain " + path_ + " cannot be used: " + cause);
  }
  return platform::itemStoreUnusable;
}

ItemStatus SqliteItemStore::unusable(const Database &database) {
  return unusable(database.trouble(), database.cause());
}

ItemStatus SqliteItemStore::open(Database &database) {
  trouble_ = StoreTrouble::none;
  struct stat file{};
  if (::stat(path_.c_str(), &file) != 0) {
    return errno == ENOENT ? platform::itemNotFound
                           : unusable(troubleOfErrno(errno), errnoText(errno));
  }
  if (const auto objection = objectionTo(file)) {
    return unusable(objection->trouble, objection->cause);
  }
  if (!database.open(path_)) {
    return unusable(database);
  }
  const std::optional<std::int64_t> version = database.userVersion();
  if (!version) {
    return unusable(database);
  }
  if (*version > kSchema || *version < 0) {
    return unusable(StoreTrouble::newerVersion, "made by a newer version (schema " +
                                                    std::to_string(*version) + ", this one knows " +
                                                    std::to_string(kSchema) + ")");
  }
  return platform::itemSuccess;
}

bool SqliteItemStore::create() {
  constexpr unsigned kFolderMode = 0700;
  constexpr mode_t kFileMode = 0600;
  Error error;
  if (!base::makeFolders(path_.substr(0, path_.rfind('/')), kFolderMode, &error)) {
    unusable(troubleOfErrno(error.code), error.description);
    return false;
  }
  // another program that makes it at the same time is welcome
  const base::Descriptor file(
      ::open(path_.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC, kFileMode));
  if (!file.isOpen() && errno != EEXIST) {
    unusable(troubleOfErrno(errno), errnoText(errno));
    return false;
  }
  return true;
}

ItemStatus SqliteItemStore::beginAdding(Database &database) {
  ItemStatus status = open(database);
  if (status == platform::itemNotFound && create()) {
    status = open(database);
  }
  if (status != platform::itemSuccess) {
    return platform::itemStoreUnusable;
  }
  // the version is asked for again: another program may have been first
  if (!database.run("BEGIN IMMEDIATE") || !migrate(database)) {
    return unusable(database);
  }
  return platform::itemSuccess;
}

ItemStatus SqliteItemStore::commit(Database &database) {
  return database.run("COMMIT") ? platform::itemSuccess : unusable(database);
}

ItemStatus SqliteItemStore::change(Database &database, const Statement &statement) {
  if (database.step(statement) != Database::Step::done) {
    return unusable(database);
  }
  return database.changes() == 0 ? platform::itemNotFound : platform::itemSuccess;
}

IdentityMatches SqliteItemStore::searchIdentities(const IdentityQuery &query) {
  IdentityMatches matches;
  if (query.tokenID || query.accessGroup == platform::kTokenAccessGroup) {
    return matches;
  }
  Database database;
  matches.status = open(database);
  if (matches.status != platform::itemSuccess) {
    return matches;
  }
  matches.status = platform::itemNotFound;
  if (database.userVersion() == 0) {
    return matches;  // made, but nothing was ever added
  }
  const bool withReference = query.returnReference || !query.returnAttributes;
  const Statement row = database.prepare(kSelectIdentities);
  row.bind(0, query.accessGroup);
  Database::Step step = Database::Step::failed;
  while ((step = database.step(row)) == Database::Step::row) {
    const auto certificate = crypto::Certificate::fromDER(row.bytes(1));
    if (certificate && !certificate->subjectContains(query.subjectContains.value_or(""))) {
      continue;
    }
    auto record = certificate ? recordOf(row, *certificate, withReference) : std::nullopt;
    if (record) {
      matches.records.push_back(std::move(*record));
    } else if (reporter_) {
      reporter_("keychain " + path_ + ": identity " + std::to_string(row.number(0)) +
                " cannot be read");
    }
  }
  if (step != Database::Step::done) {
    matches.records.clear();
    matches.status = unusable(database);
  } else if (!matches.records.empty()) {
    matches.status = platform::itemSuccess;
  }
  return matches;
}

ItemStatus SqliteItemStore::add(Database &database, const Statement &insertion) {
  switch (database.step(insertion)) {
    case Database::Step::done:
      return platform::itemSuccess;
    case Database::Step::duplicate:
      return platform::itemDuplicate;
    case Database::Step::row:
    case Database::Step::failed:
      break;
  }
  return unusable(database);
}

ItemStatus SqliteItemStore::insert(Database &database, const IdentityRecord &record,
                                   const std::optional<std::string> &accessGroup) {
  const SecretBytes key = record.reference->key.pkcs8();
  if (key.empty()) {
    return unusable(StoreTrouble::other, "the new identity's private key cannot be exported");
  }
  const Bytes certificate = record.reference->certificate.der();
  const Bytes digest = crypto::sha1Digest(certificate);
  const std::optional<Bytes> hash = publicKeyHashOf(record);
  const Statement statement = database.prepare(kInsertIdentity);
  statement.bind(0, certificate);
  statement.bind(1, digest);
  statement.bind(2, key.reveal());
  statement.bind(3, record.label);
  if (hash) {
    statement.bind(4, *hash);
  }
  statement.bind(5, record.canSign);
  statement.bind(6, record.canDecrypt);
  statement.bind(7, record.canUnwrap);
  statement.bind(8, accessGroup);
  return add(database, statement);
}

ItemStatus SqliteItemStore::addIdentity(const IdentityRecord &record,
                                        const std::optional<std::string> &accessGroup) {
  Database database;
  ItemStatus status = beginAdding(database);
  if (status == platform::itemSuccess) {
    status = insert(database, record, accessGroup);
  }
  return status == platform::itemSuccess ? commit(database) : status;
}

ItemStatus SqliteItemStore::deleteIdentity(ByteView certificateSHA1) {
  Database database;
  const ItemStatus status = open(database);
  if (status != platform::itemSuccess) {
    return status;
  }
  if (database.userVersion() == 0) {
    return platform::itemNotFound;
  }
  const Statement statement = database.prepare("DELETE FROM identities WHERE certificate_sha1 = ?");
  statement.bind(0, certificateSHA1);
  return change(database, statement);
}

}  // namespace platform_linux
