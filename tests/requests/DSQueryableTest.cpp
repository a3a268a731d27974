#include "requests/DSQueryable.hpp"

#include <gtest/gtest.h>

#include <cerrno>
#include <tuple>

#include "fakes/FakeAccounts.hpp"

namespace {

TEST(DSQueryable, GivesTheOneRecordOrSaysWhyNot) {
  fakes::FakeAccounts accounts;
  EXPECT_NE(DSQueryable(accounts).getLocalRecord("ann"), nullptr);
  const char *const kOwn = "kfyd.DSQueryableErrors";
  for (const auto &[records, nodeError, domain, code] :
       {std::tuple(0U, 0, kOwn, 0), {2U, 0, kOwn, 1}, {1U, EIO, "errno", EIO}}) {
    accounts.records = records;
    accounts.nodeError = nodeError;
    Error error;
    EXPECT_EQ(DSQueryable(accounts).getLocalRecord("ann", &error), nullptr);
    EXPECT_EQ(error.domain, domain);
    EXPECT_EQ(error.code, code);
    EXPECT_EQ(error.description.empty(), domain == kOwn) << "number and domain say it all";
    EXPECT_EQ(DSQueryable(accounts).getLocalRecord("ann"), nullptr);
  }
}

}  // namespace
