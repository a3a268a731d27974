#include "client/PinnedServer.hpp"

#include <gtest/gtest.h>

#include "base/Files.hpp"
#include "base/Places.hpp"
#include "base/Root.hpp"
#include "fakes/MadeKeys.hpp"

namespace client {
namespace {

TEST(PinnedServer, IsTheOneThatHoldsTheKeyInThePinFile) {
  const std::string path = base::rooted(base::kServerCertificate);
  ASSERT_TRUE(base::makeFolders(base::rooted("/etc/keyferry"), 0755));

  Error error;
  EXPECT_FALSE(loopbackVerifier(&error));
  EXPECT_EQ(error.code, pinUnusable);
  ASSERT_TRUE(base::replaceFile(path, base::viewOf("no certificate"), 0644));
  EXPECT_FALSE(loopbackVerifier(&error));
  EXPECT_EQ(error.code, pinUnusable);

  const crypto::Identity server = fakes::makeIdentity("server");
  ASSERT_TRUE(base::replaceFile(path, base::viewOf(server.certificate.pem()), 0644));
  const auto renewed =
      crypto::Certificate::selfSigned(server.key, "renewed", /*days=*/9, /*serverName=*/false);
  const auto verifier = loopbackVerifier(&error);
  ASSERT_TRUE(verifier && renewed);
  EXPECT_TRUE((*verifier)(server.certificate));
  EXPECT_TRUE((*verifier)(*renewed));
  EXPECT_FALSE((*verifier)(fakes::makeIdentity("server").certificate));
}

}  // namespace
}  // namespace client
