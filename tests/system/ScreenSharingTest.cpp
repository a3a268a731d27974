// An authenticated client asks for the screen-sharing account's password: the machine's real rules
// and tools, on the root's own account files.

#include <filesystem>

#include "encodings/HexString.hpp"
#include "system/Machine.hpp"

namespace system_tests {
namespace {

using testing::HasSubstr;

class ScreenSharing : public PairedMachine {
 public:
  static QuillMessage create() {
    return Peer::holder().ask(QuillMessage::initCommandMessageCreateEphemeralUser("anybody"));
  }

  static void expectRefusal() {
    const std::string shadow = read("/etc/shadow");
    const QuillMessage reply = create();
    EXPECT_FALSE(reply.status);
    EXPECT_EQ(reply.errorMessage, "Could not set password for screen sharing user");
    EXPECT_EQ(read("/etc/shadow"), shadow) << "nothing was changed";
  }
};

TEST_F(ScreenSharing, PasswordThatComesBackIsTheAccountsOwn) {
  write("/var/cache/cracklib/cracklib_dict.pwd", "not packed");
  write("/var/cache/cracklib/cracklib_dict.pwi", "not packed");
  startDaemon();
  const QuillMessage reply = create();
  EXPECT_TRUE(reply.status) << daemon->output();
  const Bytes password = encodings::dataFromBase64String(reply.ephemeralPassword->reveal());
  EXPECT_EQ(password.size(), 30U);
  EXPECT_THAT(read("/etc/shadow"), HasSubstr("cvnkfyvncuser:$y$"));
  EXPECT_THAT(read("/var/log/unified.log"), testing::Not(HasSubstr(base::textOf(password))));
  EXPECT_TRUE(hasLogged("not held against a dictionary"));
  EXPECT_THAT(daemon->output(), testing::Not(HasSubstr("cracklib"))) << "it speaks for itself";
}

TEST_F(ScreenSharing, IsRefusedByRulesOrFilesThatForbidItUntilTheyDoNot) {
  const std::string accounts = read("/etc/passwd");
  startDaemon();
  write("/etc/shadow.lock", std::to_string(getpid()));
  expectRefusal();
  EXPECT_TRUE(hasLogged("rejected password. trying again."));
  std::filesystem::remove(at("/etc/shadow.lock"));
  write("/etc/passwd", "cvnkfyvncuser:x:500:500::/:/usr/sbin/nologin\n");
  write("/etc/login.defs", "UID_MIN\t\t  600\n");
  expectRefusal();  // an account of the system
  write("/etc/passwd", accounts);
  write("/etc/security/pwquality.conf.d/site.conf", "minlen = 200\ndictcheck = 0\n");
  expectRefusal();
  EXPECT_TRUE(hasLogged("password not allowed."));
  std::filesystem::remove(at("/etc/security/pwquality.conf.d/site.conf"));
  EXPECT_TRUE(create().status);
}

}  // namespace
}  // namespace system_tests
