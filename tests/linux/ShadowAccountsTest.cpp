#include "linux/accounts/ShadowAccounts.hpp"

#include <gtest/gtest.h>
#include <unistd.h>

#include "linux/process/SpawnToolRunner.hpp"

namespace platform_linux {
namespace {

TEST(ShadowAccounts, GiveTheRightOfAnAdministratorToRootAlone) {
  constexpr uid_t kNobody = 65534;
  SpawnToolRunner tools;
  ShadowAccounts accounts(tools);
  std::int32_t status = -1;
  const auto authorization = accounts.createAuthorization(status);
  ASSERT_EQ(status, 0);
  const bool isRoot = geteuid() == 0;
  EXPECT_EQ(authorization->copyRight("system.privilege.admin", 19) == 0, isRoot);
  if (isRoot) {
    ASSERT_EQ(seteuid(kNobody), 0);
    EXPECT_NE(authorization->copyRight("system.privilege.admin", 19), 0);
    ASSERT_EQ(seteuid(0), 0);
  }
}

}  // namespace
}  // namespace platform_linux
