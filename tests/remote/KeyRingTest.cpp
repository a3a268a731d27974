#include "remote/KeyRing.hpp"

#include <gtest/gtest.h>

#include "encodings/HexString.hpp"
#include "fakes/MadeKeys.hpp"
#include "fakes/TemporaryFolder.hpp"
#include "remote/AuthenticationKey.hpp"

namespace remote {
namespace {

constexpr auto noPassword = [](const std::string &, int, Error *) { return std::nullopt; };

TEST(KeyRing, DescribesItsKeysAsTheCardShowsThem) {
  const fakes::TemporaryFolder folder;
  const crypto::Identity named = fakes::makeIdentity("work\tkey");
  const crypto::Identity second = fakes::makeIdentity("second");
  folder.write("a.pem", fakes::pemOf(named));
  folder.write("b.pem", fakes::pemOf(second));
  const std::vector<std::string> files{folder / "a.pem", folder / "b.pem"};
  EXPECT_EQ(KeyRing::load(files, {}, {}, noPassword).value().keys()[0].label, "work?key");
  const auto ring = KeyRing::load(files, std::vector<std::string>{"mine"}, {}, noPassword);
  ASSERT_TRUE(ring);
  const auto infos = protocol::certificateInfosOf(*ring->cardList());
  ASSERT_EQ(infos.size(), 2U);
  EXPECT_EQ(infos[0].label, "mine");
  EXPECT_EQ(infos[1].label, "second");
  EXPECT_TRUE(infos[0].canSign && infos[0].canDecrypt && !infos[0].canUnwrap);
  EXPECT_EQ(infos[0].certificate, encodings::base64EncodeBytes(named.certificate.der(),
                                                               /*separateLines=*/false));
  EXPECT_EQ(ring->find(second.certificate.sha1()), &ring->keys()[1]);
  EXPECT_EQ(ring->find(Bytes(20, 0)), nullptr);
}

TEST(KeyRing, KnowsTheKeyThatAuthenticatesAndOffersItForSignaturesAlone) {
  const fakes::TemporaryFolder folder;
  const std::string &home = folder.path();
  const auto identity = authenticationKey(home).value();
  const auto ring = KeyRing::load(std::vector{authenticationKeyPath(home)}, {},
                                  identity.key.publicKey().hash().value(), noPassword);
  ASSERT_TRUE(ring);
  EXPECT_TRUE(ring->keys()[0].authenticates);
  const auto info = protocol::certificateInfosOf(*ring->cardList()).at(0);
  EXPECT_TRUE(info.canSign && !info.canDecrypt && !info.canUnwrap);
}

}  // namespace
}  // namespace remote
