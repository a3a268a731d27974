#pragma once

#include <memory>
#include <string>

#include "base/Error.hpp"
#include "platform/LocalDirectory.hpp"

// Why a look-up gave no record: the code of its error, in the domain kDSQueryableErrorDomain. Such
// an error has no description.
enum DSQueryableErrors { notLocalUser = 0, multipleUsersFound = 1 };

inline constexpr const char *kDSQueryableErrorDomain = "kfyd.DSQueryableErrors";

// Finds the record of one user of this machine. Keeps nothing: made for one look-up and dropped.
class DSQueryable {
 public:
  explicit DSQueryable(platform::LocalDirectory &directory) : directory_(directory) {}

  // The local node, opened anew at each call; null, with the reason, if that is not possible.
  [[nodiscard]] std::unique_ptr<platform::LocalNode> localNode(Error *error = nullptr) const;

  // The record of the one local user with exactly this name. Null, with one of DSQueryableErrors or
  // the directory's own error, if there is none or more than one. Blocks.
  [[nodiscard]] std::shared_ptr<platform::DirectoryRecord> getLocalRecord(
      const std::string &name, Error *error = nullptr) const;

 private:
  platform::LocalDirectory &directory_;
};
