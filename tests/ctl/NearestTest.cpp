#include "ctl/Nearest.hpp"

#include <gtest/gtest.h>

#include "ctl/KnownSettings.hpp"

namespace {

TEST(Nearest, FindsTheSettingThatWasMeant) {
  EXPECT_EQ(ctl::nearestKnownKey("verbose"), "verboseLogging");
  EXPECT_EQ(ctl::nearestKnownKey("debuglogging"), "debugLogging");
  EXPECT_EQ(ctl::nearestKnownKey("ssl_certificate_hash"), "ssl_certificate_sha1_hash");
  EXPECT_EQ(ctl::nearestKnownKey("pairingToolSecnods"), "pairingToolSeconds");
}

}  // namespace
