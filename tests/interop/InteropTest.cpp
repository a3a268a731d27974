// What people use with a smart card, on a real daemon and a real remote client that holds an RSA
// and an EC key.

#include "encodings/HexString.hpp"
#include "system/CardMachine.hpp"

namespace system_tests {
namespace {

using testing::HasSubstr;

// Before this program enters a user namespace, whose root may not become another user.
const bool kIsRealRoot = geteuid() == 0;

class Programs : public CardMachine {
 public:
  Programs() {
    shell(
        "mkdir -p home; printf 'the letter' >letter\n"
        "make() { openssl req -x509 -newkey $2 -noenc -days 2 -subj \"/CN=$3 key\" -keyout $1.key "
        "\\\n"
        "    -out $1.crt 2>log; cat $1.key $1.crt >other-device/$1.pem; rm $1.key\n"
        "  openssl x509 -in $1.crt -pubkey -noout >$1.pub; ssh-keygen -i -m PKCS8 -f $1.pub "
        ">$1.ssh; }\n"
        "make rsa rsa:2048 RSA; make ec 'ec -pkeyopt ec_paramgen_curve:P-256' EC");
    remote = startConfirmingRemote();
  }

  // Runs a script that has to succeed, in the root of this machine; MODULE is the driver. Returns
  // what it printed.
  std::string shell(const std::string &script) {
    return succeed("/bin/sh", {"-ec", "cd " + at("") + "; MODULE=" KEYFERRY_MODULE "\n" + script});
  }

  std::unique_ptr<Process> remote;
};

TEST_F(Programs, OpenSSHListsTheKeysAndLogsIn) {
  EXPECT_EQ(shell("ssh-keygen -D $MODULE | cut -d' ' -f1,2 | sort"), shell("sort rsa.ssh ec.ssh"));
  if (!kIsRealRoot) {
    GTEST_SKIP() << "a login server needs a root that can become other users";
  }
  shell("ssh-keygen -q -t ed25519 -N '' -f host.key");
  const auto server = start(
      "/usr/sbin/sshd", {"-Def/dev/null", "-h" + at("/host.key"), "-oListenAddress=127.0.0.1:2222",
                         "-oAuthorizedKeysFile=" + at("/admitted"), "-oStrictModes=no",
                         "-oPasswordAuthentication=no", "-oPidFile=none"});
  ASSERT_TRUE(server->hasSaid("Server listening on 127.0.0.1 port 2222.")) << server->output();
  for (const std::string key : {"rsa", "ec"}) {
    EXPECT_EQ(shell("cp " + key +
                    ".ssh admitted\n"
                    "ssh -F none -I $MODULE -p 2222 -o BatchMode=yes -o IdentityFile=none \\\n"
                    "  -o UserKnownHostsFile=known -o StrictHostKeyChecking=accept-new \\\n"
                    "  root@127.0.0.1 'echo I am in' 2>ssh.log || { cat ssh.log; exit 1; }"),
              "I am in\n");
  }
}

// The second line would be pasted into authorized_keys as well.
TEST_F(Programs, OpenSSHPrintsOneLineForAKeyWhateverItsLabel) {
  pair(encodings::hexString(publicKeyHash(otherRSAIdentity().key)));
  Peer holder = Peer::remote();
  ASSERT_TRUE(holder.authenticate(otherRSAIdentity()));
  ASSERT_TRUE(holder.ask(insertionOf(rsaIdentity(), "key\nssh-rsa AAAA mallory\x1B[2K")).status);
  EXPECT_EQ(shell("ssh-keygen -D $MODULE | cut -d' ' -f3-"), "key?ssh-rsa AAAA mallory?[2K\n");
}

// The agent runs the driver in a process of its own and keeps it for long.
TEST_F(Programs, AgentKeepsTheKeysAndGitSignsWithThem) {
  write("/agent.sh",
        "ssh-add -q -s $MODULE 2>&1\nssh-add -L | cut -d' ' -f1,2 | sort >listed\n"
        "sort rsa.ssh ec.ssh | cmp - listed\n"
        "git init -q work; cd work\n"
        "for k in rsa ec; do\n"
        "  git -c user.name=Ann -c user.email=ann@x.example -c gpg.format=ssh \\\n"
        "    -c user.signingkey=\"key::$(cat ../$k.ssh)\" commit -q -S --allow-empty -m $k\n"
        "  echo \"ann@x.example $(cat ../$k.ssh)\" >>../signers; done\n"
        "git -c gpg.ssh.allowedSignersFile=../signers log --format='%G? %GS %s'\n"
        "ssh-add -q -e $MODULE 2>&1\n");
  const std::string said = shell(
      "export MODULE SSH_ASKPASS=/bin/true SSH_ASKPASS_REQUIRE=force\n"
      "ssh-agent -P \"$(dirname $MODULE)/*\" sh -e agent.sh");
  EXPECT_THAT(said, HasSubstr("G ann@x.example ec\nG ann@x.example rsa\n"));
}

TEST_F(Programs, WebClientsShowTheCardsCertificate) {
  // It admits the card's certificates alone and says whose it saw.
  write("/nginx.conf",
        "daemon off; master_process off; pid nginx.pid; error_log stderr;\nevents {}\n"
        "http { access_log off; client_body_temp_path t; proxy_temp_path t;\n"
        " fastcgi_temp_path t; uwsgi_temp_path t; scgi_temp_path t;\n"
        " server { listen 127.0.0.1:8443 ssl; ssl_verify_client on; ssl_certificate web.crt;\n"
        "  ssl_certificate_key web.key; ssl_client_certificate clients.crt;\n"
        "  location / { return 200 \"seen: $ssl_client_s_dn\\n\"; } } }\n");
  shell(
      "openssl req -x509 -newkey rsa:2048 -noenc -days 2 -subj /CN=localhost \\\n"
      "  -addext subjectAltName=DNS:localhost -keyout web.key -out web.crt 2>/dev/null\n"
      "cat rsa.crt ec.crt >clients.crt");
  const auto server =
      start("/usr/sbin/nginx", {"-p", at("/"), "-c", at("/nginx.conf"), "-e", "stderr"});
  shell(
      "for n in $(seq 100); do\n"
      "  ! openssl s_client -connect localhost:8443 </dev/null >/dev/null 2>&1 || exit 0\n"
      "  sleep 0.1; done; exit 1");
  for (const std::string row : {"RSA rsa.crt", "EC ec.crt"}) {
    for (const std::string command :
         {"printf \"$get\" | openssl s_client -quiet -connect localhost:8443 -engine pkcs11 \\\n"
          "  -keyform engine -key $key -cert $2 2>/dev/null",
          "curl -sS --cacert web.crt --engine pkcs11 --key-type ENG --key $key --cert $2 $url",
          "(printf \"$get\"; sleep 1) | gnutls-cli --x509cafile web.crt \\\n"
          "  --x509certfile $cert --x509keyfile $key -p 8443 localhost",
          "wget -q -O - --ca-certificate=web.crt --certificate=$cert --private-key=$key $url"}) {
      EXPECT_THAT(
          shell("set -- " + row +
                "\nexport PKCS11_MODULE_PATH=$MODULE; url=https://localhost:8443/\n"
                "key=\"pkcs11:object=$1%20key;type=private\"; get='GET / HTTP/1.0\\r\\n\\r\\n'\n"
                "cert=\"pkcs11:object=$1%20key;type=cert\"\n" +
                command),
          HasSubstr("seen: CN=" + row.substr(0, row.find(' ')) + " key"));
    }
  }
}

TEST_F(Programs, CardToolsPassTheirOwnTests) {
  EXPECT_THAT(shell("pkcs11-tool --module $MODULE --test 2>&1"),
              AllOf(HasSubstr("No errors"), Not(HasSubstr("ERR"))));
  EXPECT_THAT(shell("pkcs11-tool --module /usr/lib/$(uname -m)-linux-gnu/p11-kit-proxy.so -O 2>&1"),
              AllOf(HasSubstr("RSA key"), HasSubstr("EC key")));
}

}  // namespace
}  // namespace system_tests
