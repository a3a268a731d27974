#include "remote/AuthenticationKey.hpp"

#include <gtest/gtest.h>
#include <sys/stat.h>

#include "encodings/HexString.hpp"
#include "fakes/TemporaryFolder.hpp"

namespace remote {
namespace {

std::string hashOf(const std::string &home) {
  Error error;
  const auto identity = authenticationKey(home, &error);
  EXPECT_TRUE(identity) << error.description;
  return identity ? encodings::hexString(identity->key.publicKey().hash().value()) : "";
}

TEST(AuthenticationKey, IsMadeOnceAndIsUsedOnlyWhilePrivate) {
  const fakes::TemporaryFolder folder;
  const std::string home = folder / "new/kfy-remote";
  const std::string hash = hashOf(home);
  EXPECT_EQ(folder.modeOf("new/kfy-remote"), 0700U);
  EXPECT_EQ(folder.modeOf(authenticationKeyPath("new/kfy-remote")), 0600U);
  EXPECT_EQ(hashOf(home), hash);
  EXPECT_NE(hashOf(home + "-other"), hash);
  ASSERT_EQ(::chmod(authenticationKeyPath(home).c_str(), 0640), 0);
  Error error;
  EXPECT_FALSE(authenticationKey(home, &error));
  EXPECT_NE(error.description.find("chmod 600"), std::string::npos) << error.description;
}

}  // namespace
}  // namespace remote
