#include "directory/DSQueryable.hpp"

#include <gtest/gtest.h>

#include <cerrno>

#include "fakes/FakeAccounts.hpp"

namespace {

TEST(DSQueryable, GivesTheOneRecordOrSaysWhyNot) {
  fakes::FakeAccounts accounts;
  EXPECT_NE(DSQueryable(accounts).getLocalRecord("ann"), nullptr);
  struct Case {
    std::size_t records;
    int nodeError;
    const char *domain;
    int code;
  };
  for (const Case &row : {Case{0, 0, "kfyd.DSQueryableErrors", 0},
                          Case{2, 0, "kfyd.DSQueryableErrors", 1}, Case{1, EIO, "errno", EIO}}) {
    accounts.records = row.records;
    accounts.nodeError = row.nodeError;
    Error error;
    EXPECT_EQ(DSQueryable(accounts).getLocalRecord("ann", &error), nullptr);
    EXPECT_EQ(error.domain, row.domain);
    EXPECT_EQ(error.code, row.code);
    EXPECT_EQ(DSQueryable(accounts).getLocalRecord("ann"), nullptr);
  }
}

}  // namespace
