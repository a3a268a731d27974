#include "linux/store/Database.hpp"

#include <sqlite3.h>

namespace platform_linux {
namespace {

constexpr int kBusyTimeoutMilliseconds = 5000;

// Sorted rows that do not fit the memory would be written to a file in the clear.
constexpr const char *kSettings =
    "PRAGMA synchronous=EXTRA;"
    "PRAGMA secure_delete=ON;"
    "PRAGMA temp_store=MEMORY;"
    "PRAGMA trusted_schema=OFF;";

}  // namespace

void Statement::finalize(sqlite3_stmt *statement) {
  sqlite3_finalize(statement);
}

void Statement::bind(int parameter, ByteView bytes) const {
  if (bytes.empty()) {
    sqlite3_bind_zeroblob(native(), parameter + 1, 0);  // no pointer would mean NULL
    return;
  }
  sqlite3_bind_blob64(native(), parameter + 1, bytes.data(), bytes.size(), SQLITE_STATIC);
}

void Statement::bind(int parameter, const std::string &text) const {
  sqlite3_bind_text64(native(), parameter + 1, text.data(), text.size(), SQLITE_STATIC,
                      SQLITE_UTF8);
}

void Statement::bind(int parameter, const std::optional<std::string> &text) const {
  if (text) {
    bind(parameter, *text);
  }
}

void Statement::bind(int parameter, bool value) const {
  sqlite3_bind_int(native(), parameter + 1, value ? 1 : 0);
}

void Statement::bind(int parameter, std::int64_t value) const {
  sqlite3_bind_int64(native(), parameter + 1, value);
}

ByteView Statement::bytes(int column) const {
  // the size has to be asked for after the content, which may be converted
  const auto *content = static_cast<const std::uint8_t *>(sqlite3_column_blob(native(), column));
  const int size = sqlite3_column_bytes(native(), column);
  return content == nullptr ? ByteView() : ByteView(content, static_cast<std::size_t>(size));
}

std::optional<std::string> Statement::text(int column) const {
  const unsigned char *content = sqlite3_column_text(native(), column);
  const int size = sqlite3_column_bytes(native(), column);
  if (content == nullptr) {
    return std::nullopt;
  }
  return std::string(content, content + size);
}

std::int64_t Statement::number(int column) const {
  return sqlite3_column_int64(native(), column);
}

void Database::close(sqlite3 *database) {
  sqlite3_close_v2(database);
}

bool Database::open(const std::string &path) {
  sqlite3 *database = nullptr;
  const int result = sqlite3_open_v2(path.c_str(), &database,
                                     SQLITE_OPEN_READWRITE | SQLITE_OPEN_NOMUTEX, nullptr);
  database_.reset(database);
  if (result != SQLITE_OK) {
    return false;
  }
  sqlite3_extended_result_codes(database, 1);
  sqlite3_busy_timeout(database, kBusyTimeoutMilliseconds);
  return run(kSettings);
}

bool Database::run(const char *statements) {
  return sqlite3_exec(database_.get(), statements, nullptr, nullptr, nullptr) == SQLITE_OK;
}

Statement Database::prepare(const char *text) {
  sqlite3_stmt *statement = nullptr;
  sqlite3_prepare_v2(database_.get(), text, -1, &statement, nullptr);
  return Statement(statement);
}

Database::Step Database::step(const Statement &statement) {
  if (statement.native() == nullptr) {
    return Step::failed;
  }
  switch (sqlite3_step(statement.native())) {
    case SQLITE_ROW:
      return Step::row;
    case SQLITE_DONE:
      return Step::done;
    case SQLITE_CONSTRAINT_UNIQUE:
      return Step::duplicate;
    default:
      return Step::failed;
  }
}

std::optional<std::int64_t> Database::userVersion() {
  const Statement statement = prepare("PRAGMA user_version");
  if (step(statement) != Step::row) {
    return std::nullopt;
  }
  return statement.number(0);
}

int Database::changes() const {
  return sqlite3_changes(database_.get());
}

std::string Database::cause() const {
  return sqlite3_errmsg(database_.get());
}

platform::StoreTrouble Database::trouble() const {
  constexpr int kPrimaryCode = 0xFF;
  switch (sqlite3_errcode(database_.get()) & kPrimaryCode) {
    case SQLITE_CORRUPT:
    case SQLITE_NOTADB:
    case SQLITE_ERROR:  // the tables are not those of a keychain
      return platform::StoreTrouble::damaged;
    case SQLITE_READONLY:
      return platform::StoreTrouble::readOnly;
    case SQLITE_FULL:
      return platform::StoreTrouble::full;
    case SQLITE_BUSY:
    case SQLITE_LOCKED:
      return platform::StoreTrouble::busy;
    default:
      return platform::StoreTrouble::other;
  }
}

}  // namespace platform_linux
