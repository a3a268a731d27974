#include "requests/DSQueryable.hpp"

std::unique_ptr<platform::LocalNode> DSQueryable::localNode(Error *error) const {
  return directory_.openLocalNode(error);
}

std::shared_ptr<platform::DirectoryRecord> DSQueryable::getLocalRecord(const std::string &name,
                                                                       Error *error) const {
  // Without a node the query has nothing to ask, so the node's error is the look-up's.
  const auto node = localNode(error);
  const auto records = node ? node->queryUsers(name, error) : std::nullopt;
  if (!records) {
    return nullptr;
  }
  if (records->size() > 1) {
    base::report(error, kDSQueryableErrorDomain, multipleUsersFound, /*description=*/"");
    return nullptr;
  }
  if (records->empty()) {
    base::report(error, kDSQueryableErrorDomain, notLocalUser, /*description=*/"");
    return nullptr;
  }
  return records->front();
}
