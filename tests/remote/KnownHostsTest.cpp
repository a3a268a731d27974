#include "remote/KnownHosts.hpp"

#include <gtest/gtest.h>

#include <cstdlib>

#include "fakes/TemporaryFolder.hpp"
#include "identity/FingerprintText.hpp"

namespace remote {
namespace {

TEST(Fingerprint, IsReadInEveryFormThatPeopleCopy) {
  const Fingerprint expected(32, 0xAA);
  EXPECT_EQ(fingerprintFrom(identity::fingerprintText(expected)), expected);
  EXPECT_EQ(fingerprintFrom(" aaAA Aa" + std::string(58, 'a') + " \n"), expected);
  EXPECT_FALSE(fingerprintFrom(std::string(64, 'g')));
}

TEST(KnownHosts, KeepsAFingerprintForEachHostAndPort) {
  const fakes::TemporaryFolder folder;
  const std::string path = folder / "known_hosts";
  const KnownHosts hosts(path);
  const Address mac{"mac.example", 4116};
  const Address other{"mac.example", 4000};
  EXPECT_FALSE(hosts.find(mac));
  ASSERT_TRUE(hosts.add(mac, Fingerprint(32, 1)));
  ASSERT_TRUE(hosts.add(other, Fingerprint(32, 2)));
  ASSERT_TRUE(hosts.add(mac, Fingerprint(32, 3)));
  EXPECT_EQ(hosts.find(mac), Fingerprint(32, 1)) << "a later line must not replace the first";
  EXPECT_EQ(KnownHosts(path).find(other), Fingerprint(32, 2));
  Error error;
  EXPECT_FALSE(hosts.find({"mac.example.org", 4116}, &error));
  EXPECT_EQ(error.description, "");
  EXPECT_FALSE(KnownHosts(folder.path()).find(mac, &error));
  EXPECT_NE(error.description, "") << "a folder was read as an empty list";
}

TEST(KnownHosts, ShowsACommandThatRemovesExactlyOneHost) {
  const fakes::TemporaryFolder folder;
  folder.write("ann's hosts", "cut.example:4116 AB:CD");
  const KnownHosts hosts(folder / "ann's hosts");
  const Address mac{"mac.example", 4116};
  const Address similar{"macxexample", 4116};
  const Address six{"::1", 4116};
  for (const Address &address : {mac, similar, six}) {
    ASSERT_TRUE(hosts.add(address, Fingerprint(32, 1)));
    EXPECT_EQ(hosts.find(address), Fingerprint(32, 1)) << "behind a line that was cut";
  }
  for (const Address &address : {mac, six}) {
    ASSERT_EQ(std::system(hosts.removalCommand(address).c_str()), 0);
    EXPECT_FALSE(hosts.find(address));
    EXPECT_TRUE(hosts.find(similar));
  }
}

}  // namespace
}  // namespace remote
