// The main of test programs whose code touches the system's files: they get a root of their own.

#include <gtest/gtest.h>

#include "fakes/TemporaryFolder.hpp"

int main(int argc, char **argv) {
  testing::InitGoogleTest(&argc, argv);
  const fakes::TemporaryFolder root;
  setenv("KFYD_ROOT", root.path().c_str(), /*overwrite=*/1);
  std::filesystem::create_directories(root / "tmp");
  return RUN_ALL_TESTS();
}
