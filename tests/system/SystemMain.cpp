// The main of the tests of whole programs: each test runs in a network of its own and in a root of
// its own.

#include <gtest/gtest.h>

#include <cstdlib>

#include "fakes/TemporaryFolder.hpp"
#include "system/OwnNetwork.hpp"

int main(int argc, char **argv) {
  testing::InitGoogleTest(&argc, argv);
  if (testing::GTEST_FLAG(list_tests)) {
    return RUN_ALL_TESTS();
  }
  if (!system_tests::enterOwnNetwork()) {
    return 1;
  }
  const fakes::TemporaryFolder root;
  setenv("KFYD_ROOT", root.path().c_str(), /*overwrite=*/1);
  return RUN_ALL_TESTS();
}
