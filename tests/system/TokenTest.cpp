// The daemon shows an identity whose key never leaves its token.

#include "fakes/SoftTokens.hpp"
#include "system/Machine.hpp"

namespace system_tests {
namespace {

using testing::HasSubstr;

using TokenServer = Machine;

TEST_F(TokenServer, CompletesHandshakesOnBothListenersInBothVersions) {
  fakes::SoftTokens soft;
  soft.make("machine", "1234");
  soft.put("machine", rsaIdentity(), "Signature type: RSA", "01");
  soft.put("machine", ecIdentity(), "Signature type: EC", "02");
  std::filesystem::create_directories(at("/etc/pkcs11"));
  std::filesystem::copy(soft.moduleFolder(), at("/etc/pkcs11/modules"));
  write("/pin", "1234\nnot read\n", 0600);
  succeed("kfyctl", {"defaults", "write", "tlsTokenPinFile", "/pin"});
  for (const char *label : {"Signature type: RSA", "Signature type: EC"}) {
    succeed("kfyctl", {"identity", "use", label});
    startDaemon();
    for (const std::string port : {"4116", "4117"}) {
      for (const std::string version : {"1_2", "1_3"}) {
        EXPECT_THAT(succeed("/usr/bin/openssl", {"s_client", "-brief", "-connect",
                                                 "127.0.0.1:" + port, "-tls" + version}),
                    AllOf(HasSubstr("CONNECTION ESTABLISHED"), HasSubstr(label)));
      }
    }
    EXPECT_TRUE(Peer::local().ask(QuillMessage::initCommandMessageGetCertificates()).status)
        << "clients on this machine pin its certificate";
    EXPECT_EQ(daemon->end(SIGTERM), 128 + SIGTERM);
  }
}

}  // namespace
}  // namespace system_tests
