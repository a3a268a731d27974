#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <string>

#include "base/Bytes.hpp"
#include "platform/ItemStore.hpp"

struct sqlite3;
struct sqlite3_stmt;

namespace platform_linux {

// A statement that is prepared for one use. Indexes of parameters and of columns begin at 0.
class Statement {
 public:
  explicit Statement(sqlite3_stmt *statement) : statement_(statement, finalize) {}

  // What is bound is borrowed until this object goes. Nothing binds NULL, no bytes bind a blob
  // without any.
  void bind(int parameter, ByteView bytes) const;
  void bind(int parameter, const std::string &text) const;
  void bind(int parameter, const std::optional<std::string> &text) const;
  void bind(int parameter, bool value) const;
  void bind(int parameter, std::int64_t value) const;

  // What a column holds, borrowed until the next step; numbers and texts that are not there count
  // as false and as nothing.
  [[nodiscard]] ByteView bytes(int column) const;
  [[nodiscard]] std::optional<std::string> text(int column) const;
  [[nodiscard]] std::int64_t number(int column) const;

  // Null if the text could not be prepared.
  [[nodiscard]] sqlite3_stmt *native() const { return statement_.get(); }

 private:
  static void finalize(sqlite3_stmt *statement);

  std::unique_ptr<sqlite3_stmt, void (*)(sqlite3_stmt *)> statement_;
};

// One opened SQLite file, with the settings of a store of secrets: rollback journal, every commit
// on the disk before it returns, deleted content overwritten, up to five seconds of waiting for
// other writers. What is not committed when it goes is undone.
class Database {
 public:
  enum class Step { row, done, duplicate, failed };

  // Opens a file that is there.
  [[nodiscard]] bool open(const std::string &path);

  // Runs statements that answer nothing.
  [[nodiscard]] bool run(const char *statements);

  [[nodiscard]] Statement prepare(const char *text);
  [[nodiscard]] Step step(const Statement &statement);

  // The number that the file keeps for its users; nothing if it can't be read.
  [[nodiscard]] std::optional<std::int64_t> userVersion();

  // Rows that the last statement changed.
  [[nodiscard]] int changes() const;

  // Why the last call failed.
  [[nodiscard]] std::string cause() const;
  [[nodiscard]] platform::StoreTrouble trouble() const;

 private:
  static void close(sqlite3 *database);

  std::unique_ptr<sqlite3, void (*)(sqlite3 *)> database_{nullptr, close};
};

}  // namespace platform_linux
