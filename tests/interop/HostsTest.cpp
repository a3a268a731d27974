// What the driver is to the kinds of programs that load it; interop/host is such a program.

#include <filesystem>

#include "system/CardMachine.hpp"

namespace system_tests {
namespace {

using testing::HasSubstr;

class Hosts : public CardMachine {
 public:
  std::unique_ptr<Process> remote = startConfirmingRemote();
};

TEST_F(Hosts, ForkWhileTheirThreadsSign) {
  succeed(KEYFERRY_HOST, {"ForksAndEndsTheDriverWhileThreadsSign"});
}

// The program's OpenSSL is as odd, or as broken, with the driver as without it.
TEST_F(Hosts, KeepsItsOpenSSLAsConfigured) {
  const std::string section = "openssl_conf = own\n[own]\nproviders = them\nalg_section = how\n";
  for (const std::string &configuration :
       {section + "[them]\nlegacy = on\n[on]\nactivate = 1\n[how]\ndefault_properties = fips=yes\n",
        section + "[them]\nnothing = on\n[on]\nmodule = /nonexistent\nactivate = 1\n",
        std::string("[[[ broken")}) {
    SCOPED_TRACE(configuration);
    write("/openssl.cnf", configuration);
    std::vector<std::string> line{"OPENSSL_CONF=" + at("/openssl.cnf"), KEYFERRY_HOST,
                                  "ShowsItsOpenSSL"};
    const Outcome without = run("/usr/bin/env", line);
    line.emplace_back("with the driver");
    const Outcome with = run("/usr/bin/env", line);
    EXPECT_EQ(with.status, 0);
    EXPECT_EQ(with.output, without.output);
    EXPECT_THAT(with.output, HasSubstr("properties"));
  }
}

TEST_F(Hosts, WithRaisedPrivilegesListensToNoEnvironment) {
  const std::string raised = at("/raised-host");
  std::filesystem::copy(KEYFERRY_HOST, raised);
  if (chown(raised.c_str(), 0, 1) != 0 || chmod(raised.c_str(), 02755) != 0) {
    GTEST_SKIP() << "only a root that has another group can raise a program";
  }
  const std::string debug = "KFY_PKCS11_DEBUG=1";
  const Outcome usual = run("/usr/bin/env", {debug, KEYFERRY_HOST, "LooksForTheKey"});
  const Outcome secure = run("/usr/bin/env", {debug, raised, "LooksForTheKey"});
  EXPECT_THAT(usual.output, HasSubstr("kfy-pkcs11: C_Initialize: CKR_OK"));
  EXPECT_THAT(usual.output, HasSubstr("usual environment, found\n"));
  EXPECT_EQ(secure.output, "secure environment, nothing\n");
}

}  // namespace
}  // namespace system_tests
