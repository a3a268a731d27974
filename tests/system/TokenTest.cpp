// The daemon shows an identity whose key never leaves its token.

#include <filesystem>

#include "fakes/SoftTokens.hpp"
#include "system/Machine.hpp"

namespace system_tests {
namespace {

using testing::HasSubstr;

class TokenServer : public Machine, public testing::WithParamInterface<const char *> {
 public:
  TokenServer() {
    soft.make("machine", "1234");
    soft.put("machine", isRSA() ? rsaIdentity() : ecIdentity(), "tls", "01");
    std::filesystem::create_directories(at("/etc/pkcs11"));
    std::filesystem::copy(soft.moduleFolder(), at("/etc/pkcs11/modules"));
    succeed("kfyctl", {"identity", "use", "tls"});
    succeed("kfyctl", {"defaults", "write", "tlsTokenPinFile", "/pin"});
  }

  static bool isRSA() { return std::string(GetParam()) == "RSA"; }

  fakes::SoftTokens soft;
};

TEST_P(TokenServer, CompletesHandshakesOnBothListenersInBothVersions) {
  write("/pin", "1234\nnot read\n", 0600);
  startDaemon();
  for (const char *port : {"4116", "4117"}) {
    for (const char *version : {"1_2", "1_3"}) {
      const auto outcome = run("/usr/bin/openssl",
                               {"s_client", "-brief", "-connect", std::string("127.0.0.1:") + port,
                                std::string("-tls") + version});
      EXPECT_EQ(outcome.status, 0) << port << version;
      EXPECT_THAT(outcome.output, HasSubstr("CONNECTION ESTABLISHED"));
      EXPECT_THAT(outcome.output,
                  HasSubstr(isRSA() ? "Signature type: RSA" : "Signature type: EC"));
    }
  }
  EXPECT_TRUE(Peer::local().ask(QuillMessage::initCommandMessageGetCertificates()).status)
      << "clients on this machine pin its certificate";
}

INSTANTIATE_TEST_SUITE_P(Keys, TokenServer, testing::Values("RSA", "EC"),
                         [](const auto &row) { return std::string(row.param); });

}  // namespace
}  // namespace system_tests
