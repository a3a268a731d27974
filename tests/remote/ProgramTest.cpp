// The program as a person runs it, with a terminal of its own and a machine that the test plays.

#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>

#include <csignal>
#include <deque>
#include <mutex>
#include <regex>
#include <sstream>

#include "crypto/Padding.hpp"
#include "crypto/RSAEncryption.hpp"
#include "encodings/HexString.hpp"
#include "fakes/FullMessage.hpp"
#include "fakes/PersonAtATerminal.hpp"
#include "fakes/ScriptedDaemon.hpp"
#include "fakes/TemporaryFolder.hpp"
#include "fakes/Transcript.hpp"
#include "identity/FingerprintText.hpp"
#include "remote/AuthenticationKey.hpp"

namespace remote {
namespace {

using fakes::ServedConnection;

const Bytes kMessage = base::bytesOf("message");

// The steps of a machine that await a request, in the order of the commands.
constexpr std::array kSteps{"connect", "authenticate", "insert",  "remove",
                            "get",     "signed",       "account", "decrypted"};

class Program : public testing::Test {
 protected:
  Program() {
    folder_.write("key.pem", fakes::pemOf(card_));
    folder_.write("ed.pem", fakes::pemOf(fakes::madeIdentity("ED25519", "ed")));
    folder_.write("locked.pem",
                  fakes::encryptedPemOf(fakes::madeIdentity("EC", "locked\tkey"), "secret"));
    folder_.write("word", "secret\n");
    transcript_.actions = {
        {"run", [this](const auto &command) { type(" ; " + command); }},
        {"type", [this](const auto &rest) { type(rest); }},
        {"play", [this](const auto &rest) { play(rest); }},
    };
    transcript_.takeLines = [this] { return takeLines(); };
    transcript_.name("~remote " KEYFERRY_REMOTE "\n~port " + std::to_string(port_) + "\n~in " +
                     folder_.path() + "\n~hash " + hashOf(authentication_) + "\n~print " +
                     identity::fingerprintText(server_.certificate.sha256()) + "\n~noPrint " +
                     identity::fingerprintText(Bytes(32)) + "\n~zeros " + std::string(64, '0') +
                     "\n~sha1 " + encodings::hexString(card_.certificate.sha1()) + "\n~keyHash " +
                     hashOf(card_));
    transcript_.name(R"(
~mac 127.0.0.1:~port
~home --home "~in/ann's"
~with ~home --key ~in/key.pem
~keys ~remote keys ~home
~locked ~remote keys ~home --key ~in/locked.pem
~connect ~remote connect ~mac ~with
~safely ~connect --fingerprint ~print
~serve ~safely --no-confirm
~password ~remote password ~mac ~home --fingerprint ~print
~E kfy-remote: error:
~W kfy-remote: warning:
~T kfy-remote: try:
~HELP kfy-remote: try: kfy-remote --help
~card card signs decrypts unwraps
~SERVED connected to ~mac | authenticated | card inserted: 1 key | ~OTHER
~OTHER kfy-remote: warning: refused to sign for ~mac: the request names no key of this card
~UP ~card | ~SERVED
~NOCHALLENGE sent a challenge that is not 16 bytes long; it was not signed
~PAIR sudo kfyctl pair USER ~hash
~FORGET sed -i '/^127\.0\.0\.1:~port /d' '~in/ann'\''s/known_hosts'
~ASKS ~mac is not known yet. Its certificate has the fingerprint |   ~print | which "sudo kfyctl identity show" has to show on that machine. Trust it? [yes/NO] 
~CHANGED is not the one that was trusted: it may have a new certificate, or somebody may be in between; nothing was sent to it
)");
  }

  static std::string hashOf(const crypto::Identity &identity) {
    return encodings::hexString(identity.key.publicKey().hash().value());
  }

  // In a session of its own, whose terminal is the person's.
  void start(const std::string &command) {
    person_.emplace();
    const std::string said = folder_ / "said";
    child_ = ::fork();
    if (child_ == 0) {
      ::setsid();
      ::dup2(::open(person_->path().c_str(), O_RDWR), 0);
      ::dup2(::open(said.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_APPEND, 0600), 1);
      ::dup2(1, 2);
      ::execl("/usr/bin/timeout", "timeout", "--foreground", "20", "/bin/sh", "-c", command.c_str(),
              nullptr);
      ::_exit(1);
    }
  }
  void finish() {
    ASSERT_EQ(::waitpid(child_, &status_, 0), child_);
    status_ = WIFEXITED(status_) ? WEXITSTATUS(status_) : -WTERMSIG(status_);
  }

  // What came of a command: of the machine and the terminal, then its own lines. Of a flood each
  // line once, in the order of the alphabet.
  std::vector<std::string> takeLines() {
    auto lines = std::exchange(lines_, {});
    const std::regex varying("(after |refused )[0-9]+( s| more)");
    std::istringstream said(std::regex_replace(folder_.read("said"), varying, "$1#$2"));
    for (std::string line; std::getline(said, line);) {
      lines.push_back(line);
    }
    if (std::exchange(isFlood_, false)) {
      std::ranges::sort(lines);
      lines.erase(std::ranges::unique(lines).begin(), lines.end());
    }
    lines.resize(lines.size() + (status_ == 0 ? 0 : 1), "status " + std::to_string(status_));
    return lines;
  }

  // "LINES ; COMMAND": the lines are typed where it asks.
  void type(const std::string &rest) {
    const std::size_t end = rest.find(" ; ");
    std::istringstream keys(rest.substr(0, end));
    start(rest.substr(end + 3));
    for (std::string line; keys >> line;) {
      lines_.push_back(fakes::replacedAll(person_->shownUpTo(": "), "\r\n", ""));
      person_->type(line + "\n");
    }
    finish();
  }

  // "STEPS ; COMMAND": the machine takes the steps, on one connection after the other.
  void play(const std::string &rest) {
    const std::size_t end = rest.find(" ; ");
    std::istringstream steps(rest.substr(0, end));
    steps_ = {std::istream_iterator<std::string>(steps), {}};
    {
      const fakes::ScriptedDaemon daemon(
          server_, port_, [this](auto &connection, int /*number*/) { serve(connection); });
      {
        const std::lock_guard starts(starting_);
        start("exec " + rest.substr(end + 3));
      }
      finish();
    }
    EXPECT_EQ(steps_, std::deque<std::string>());
  }

  void serve(ServedConnection &machine) {
    const std::unique_lock started(starting_);  // it comes once the program runs
    while (!steps_.empty()) {
      const std::string step = steps_.front();
      const std::size_t mark = std::min(step.find('='), step.size());
      const std::string how = step.substr(std::min(mark + 1, step.size()));
      steps_.pop_front();
      if (step == "lose") {
        return;
      }
      if (step == "end") {
        EXPECT_FALSE(machine.receive());
        lines_.resize(lines_.size() + (machine.received() == 0 ? 1 : 0), "nothing was sent");
      } else if (step == "term") {
        ::kill(child_, SIGTERM);
      } else if (step.starts_with("type")) {
        std::istringstream shown(fakes::replacedAll(person_->shownUpTo("] "), "\r", ""));
        for (std::string line; std::getline(shown, line);) {
          lines_.resize(lines_.size() + (line.size() > 3 ? 1 : 0), line);  // else an answer's echo
        }
        do {  // again, since what is typed just when it asks counts for nothing
          person_->type(how + "\n");
        } while (!machine.waitForMore(std::chrono::milliseconds(200)));
      } else if (step == "flood") {
        isFlood_ = true;
        while (machine.send(use("sign", "other"))) {
        }
      } else if (step.starts_with("sign=") || step.starts_with("decrypt=")) {
        machine.send(use(step.substr(0, mark), how));
      } else {
        hear(machine, step.substr(0, mark), how);
      }
    }
  }

  // A request for a use of the card's key, or of another.
  QuillMessage use(const std::string &step, const std::string &how) const {
    const Bytes certificate = how == "other" ? Bytes(20) : card_.certificate.sha1();
    if (step == "sign") {
      return QuillMessage::initCommandMessageSignData(kMessage, certificate, SecretText());
    }
    const auto block = crypto::encryptPKCS1(card_.key.publicKey(), kMessage);
    return QuillMessage::initCommandMessageDecryptDataWithObjectID(
        certificate, how == "short" ? Bytes(255) : block.value(), SecretText());
  }

  void hear(ServedConnection &machine, const std::string &step, const std::string &how) {
    const auto message = machine.receive();
    ASSERT_TRUE(message) << "instead of " << step;
    ASSERT_EQ(kSteps.at(static_cast<std::size_t>(message->command)), step);
    const crypto::PublicKey key = card_.key.publicKey();
    if (message->messageType == QuillMessageTypeResponse) {
      ASSERT_EQ(message->status, how.empty());
      if (how.empty() && step == "signed") {
        EXPECT_TRUE(key.verifyRawPKCS1(*message->signedData, kMessage));
      } else if (how.empty()) {
        EXPECT_TRUE(base::equal(
            crypto::unpadPKCS1(message->decryptedData->reveal()).value().reveal(), kMessage));
      }
      return;
    }
    QuillMessage reply = fakes::fullMessage(message->command, QuillMessageTypeResponse);
    reply.messageID = message->messageID;
    reply.status = how != "no" && how != "why";
    reply.errorMessage = how == "why" ? std::optional("nobody\x1b") : std::nullopt;
    reply.selectedCertificateHash =
        how == "other" ? Bytes(20) : authentication_.key.publicKey().hash().value();
    reply.challenge = Bytes(how.starts_with('1') ? std::stoul(how) : 16, 7);
    if (message->challengeSignature) {
      EXPECT_TRUE(authentication_.key.publicKey().verifyRawPKCS1(*message->challengeSignature,
                                                                 Bytes(16, 7)));
    }
    if (message->certificates) {
      inserted_ = message->certificates;
      for (const auto &info : protocol::certificateInfosOf(*inserted_)) {
        lines_.push_back(info.label + (info.canSign ? " signs" : "") +
                         (info.canDecrypt ? " decrypts" : "") + (info.canUnwrap ? " unwraps" : ""));
      }
    }
    reply.certificates = how == "theirs" ? protocol::makeCardList({}) : inserted_;
    reply.ephemeralPassword = SecretText("c2VzYW1l");
    if (how != "silent") {
      machine.send(reply);
    }
    if (step == "insert" && how.empty()) {  // its answer tells that the reply was read
      machine.send(use("sign", "other"));
      hear(machine, "signed", "no");
    }
  }

  const fakes::TemporaryFolder folder_;
  const crypto::Identity authentication_ = authenticationKey(folder_ / "ann's").value();
  const crypto::Identity server_ = fakes::makeIdentity("server");
  const crypto::Identity card_ = fakes::madeIdentity("RSA", "card");
  std::uint16_t port_ = 0;
  const base::Descriptor taken_ = fakes::boundToLoopback(port_);
  fakes::Transcript transcript_;
  std::optional<fakes::PersonAtATerminal> person_;
  std::mutex starting_;  // held while the program is being started
  std::deque<std::string> steps_;
  std::vector<std::string> lines_;
  std::shared_ptr<const protocol::CardList> inserted_;
  bool isFlood_ = false;
  pid_t child_ = -1;
  int status_ = 0;
};

TEST_F(Program, ShowsItsKeys) {
  transcript_.expect(R"(
> run XDG_CONFIG_HOME=rel HOME=~in ~remote keys | tail -1; XDG_CONFIG_HOME=~in/.config HOME=/no ~remote keys | tail -1
2 x   authenticates only, never inserted; kept in ~in/.config/kfy-remote/authentication.pem
> run cd ~in/.config/kfy-remote; stat -c '%a %n' . *; openssl rsa -in auth* -noout -text | head -1
700 . | 600 authentication.pem | 600 lock | Private-Key: (2048 bit, 2 primes)
> run ~keys --key ~in/key.pem --json --label 'my	key' | tr -d '\\'
{"authentication":{"publicKeyHash":"~hash","path":"~in/ann's/authentication.pem"},"keys":[{"label":"my?key","type":"RSA-2048","certificateSHA1":"~sha1","publicKeyHash":"~keyHash"}]}
> run openssl req -x509 -newkey ed25519 -nodes -subj /O=x -keyout ~in/o.pem 2>&- >~in/c; cat ~in/c >>~in/o.pem
> run cd ~in; ~remote keys --home "ann's" --key key.pem --key o.pem | sed -n 1,8p
pair this key: ~hash |   authenticates only, never inserted; kept in ~in/ann's/authentication.pem
inserted: card |   type              RSA-2048 |   certificate SHA-1 ~sha1 |   public-key hash   ~keyHash
inserted: o.pem |   type              Ed25519
> type secret ; ~locked | grep inserted:
Password for ~in/locked.pem:  | inserted: locked?key
> type a b c ; ~locked
3 x Password for ~in/locked.pem: 
~E ~in/locked.pem: no password fitted | status 1
> run ~locked --password-file ~in/word | grep -c locked; ~locked --password-fd 3 3<~in/word | grep -c locked
1 | 1
> run for more in '--password-file ~in/key.pem' '--password-file ~in/none' '--key ~in/none'; do setsid ~locked $more; done
~E ~in/locked.pem: the given password does not fit | ~E cannot read ~in/none: No such file or directory
~E ~in/locked.pem: there is no terminal to ask for the password | status 1
> run ~keys --label x
~E there are more --label than --key | ~HELP | status 2
> run ~remote --version | cut -c 1-11; mkfifo ~in/p; exec 3<>~in/p 4>~in/p 3<&-; ~keys >&4; ~keys >&-
kfy-remote 
2 x ~E the list of keys could not be written to standard output
status 1
> run cd ~in/ann*; chmod 640 *.pem; ~keys; cp ~in/ed.pem *.pem; chmod 600 *.pem; ~keys; ~remote keys --home ~in/word/home
~E ~in/ann's/authentication.pem can be read by others, so its key may be known to them: remove the file for a fresh key and pair that one, or make it private with chmod 600
~E ~in/ann's/authentication.pem holds no RSA key, and only those authenticate
~E cannot make the folder ~in/word/home: Not a directory | status 1
)");
}

TEST_F(Program, KnowsMachinesByTheirNamesAndCertificates) {
  transcript_.name("~UNKNOWN is not known here, so nothing was sent to it");
  transcript_.expect(R"(
> run for host in Mac.example mac:5000 10.0.0.1:4116 FE80::1 [::1] [::1]:99; do ~remote password $host ~home; done 2>&1 | grep error
~E mac.example ~UNKNOWN | ~E mac:5000 ~UNKNOWN | ~E 10.0.0.1 ~UNKNOWN
~E fe80::1 ~UNKNOWN | ~E ::1 ~UNKNOWN | ~E [::1]:99 ~UNKNOWN
> run for host in mac: mac:65536 mac:0 mac:1x [::1]99 [::1 'b c'; do ~remote password "$host" ~home; ~remote connect "$host" ~with; done 2>&1 | grep -c ' is no HOST or HOST:PORT (IPv6: .ADDRESS.:PORT)'
14
> run ~connect --fingerprint ~print0; ~remote connect a b ~with --fingerprint ~print
~E --fingerprint takes the 64 hexadecimal digits of a SHA-256 digest | ~HELP
~E --fingerprint goes with a single HOST | ~HELP | status 2
> run ~connect --reinsert-seconds 86401; ~connect --reinsert-seconds -1
~E --reinsert-seconds: Value 86401 not in range 0 to 86400 | ~HELP
~E --reinsert-seconds: Value -1 not in range 0 to 86400 | ~HELP | status 2
> play type=no end ; ~connect
~ASKS | nothing was sent | ~E the server at ~mac is not trusted | status 1
> run cd ~in/ann*; printf "~port ~zeros\n~mac AB\nx" >known_hosts; chmod 600 *
> play type=yes connect authenticate insert term remove ; ~connect
~ASKS | ~UP | card removed
> run cat ~in/ann*/known_hosts
~port ~zeros | ~mac AB | x | ~mac ~print
> play connect authenticate insert sign= signed=no term remove ; setsid ~remote connect new ~mac ~with
~card | ~E new is not known yet, and there is no terminal to ask whether to trust it
~T kfy-remote connect new --fingerprint SHA256, as shown there by: sudo kfyctl identity show
connected to ~mac | authenticated at ~mac | card inserted: 1 key at ~mac | ~OTHER
~W refused to sign with card for ~mac: there is no terminal to ask for consent (--no-confirm allows all)
card removed at ~mac
> play end ; ~connect --fingerprint ~zeros
nothing was sent | ~E the server at ~mac ~CHANGED | ~W it shows ~print | ~W --fingerprint says ~noPrint | status 1
> run cd ~in/ann*; echo ~mac ~zeros >known_hosts
> play end ; ~connect
nothing was sent | ~E the server at ~mac ~CHANGED | ~W it shows ~print
~T on that machine: sudo kfyctl identity show, and here, only if it shows the same: ~FORGET
status 1
> run ~FORGET; cd ~in/ann*; cat known_hosts; rm known_hosts; mkdir known_hosts; ~connect; ~remote password ~mac ~home
2 x ~E cannot read ~in/ann's/known_hosts: not a regular file
status 1
)");
}

TEST_F(Program, SetsUpWhatIsMissing) {
  transcript_.name(R"(
~setup ~remote setup ~mac ~home --fingerprint ~print
~ASKED connected to ~mac | authenticating; if this device is not paired there yet, do it now | ~T on that machine: ~PAIR
)");
  transcript_.expect(R"(
> run ~remote connect ~mac ~home --fingerprint ~print
~E there is no key to insert: name one with --key FILE, or make one with kfy-remote setup ~mac | status 1
> play connect=why end ; setsid ~setup
made a card key: ~in/ann's/card.pem | ~ASKED
~E ~mac has not paired this key with a user: nobody? | ~T on that machine: ~PAIR | status 1
> run ~remote key new ~home; cd ~in/ann*; openssl ec -in card.pem -noout -text 2>&- | tail -1; stat -c %a card.pem
~E ~in/ann's/card.pem is there already, and its key might be needed: name another file with --out
NIST CURVE: P-256 | 600
> run ~remote key new --type 1
~E --type: 1 not in {p256,rsa2048,rsa3072} | ~HELP | status 2
> run cd ~in; ~remote key new ~home --out k --type rsa3072 --name 'my key'; ~keys --key k | sed -n 3,4p; mv k ann*/card.pem
made the key "my key" in k | inserted: my key |   type              RSA-3072
> play connect authenticate insert=taken remove ; ~setup
my key signs decrypts unwraps | ~ASKED | authenticated | card inserted: 1 key
all is set up; from now on: kfy-remote connect ~mac | card removed
> play connect authenticate insert=taken term remove ; ~remote connect --no-confirm ~home --fingerprint ~print ~mac
my key signs decrypts unwraps | connected to ~mac | authenticated | card inserted: 1 key | card removed
)");
}

TEST_F(Program, IsTheCardOfAMachine) {
  transcript_.expect(R"(
> play connect authenticate insert sign= signed decrypt= decrypted decrypt=short decrypted=no term remove ; ~serve
~UP | signed with card for ~mac | decrypted with card for ~mac
~W refused to decrypt with card for ~mac: 255 bytes are no block of the key | card removed
> play connect authenticate insert sign= type=y signed decrypt= type=n decrypted=no sign= term signed=no remove ; ~safely
~card | ~mac wants to sign 7 bytes of data with the key "card". Allow it? [y/N] 
~mac wants to decrypt a block of 256 bytes with the key "card". Allow it? [y/N] 
~SERVED | signed with card for ~mac | ~W refused to decrypt with card for ~mac: you said no
~W refused to sign with card for ~mac: this program ends | card removed
> play connect authenticate insert term remove ; ~serve --key ~in/locked.pem --key ~in/ed.pem --key ~in/ann*/auth*.pem --password-file ~in/word
~card | locked?key signs decrypts | ed signs | kfy-remote authentication signs
~W kfy-remote authentication is also the key that authenticates: it signs nothing but digests and decrypts nothing
connected to ~mac | authenticated | card inserted: 4 keys | ~OTHER | card removed
> play connect authenticate insert term remove=silent term ; ~serve
~UP
> play connect=no end term ; ~serve
connected to ~mac | ~E ~mac refused to connect; next attempt in 60 s
> play connect=why end term ; ~serve
connected to ~mac | ~E ~mac has not paired this key with a user: nobody?; next attempt in 300 s
~T on that machine: ~PAIR
> play connect=15 end term ; ~serve
connected to ~mac | ~E ~mac ~NOCHALLENGE; next attempt in 300 s
> play connect authenticate=no end term ; ~serve
connected to ~mac | ~E ~mac did not accept the authentication; next attempt in 300 s
> play connect authenticate insert=no end term ; ~serve
~card | connected to ~mac | authenticated | ~E ~mac did not accept the card; next attempt in 60 s
> play connect authenticate insert lose connect authenticate insert term remove ; ~serve
~card | ~UP | disconnected from ~mac | ~E ~mac: the peer has ended the connection; trying again every few seconds
connected to ~mac again after # s | card inserted: 1 key | ~OTHER | card removed
> play connect authenticate insert get insert get=theirs sign= signed get insert=no end term ; ~serve --reinsert-seconds 1
2 x ~card
~UP | ~OTHER
~W another device has put its card in place of this one; kfy-remote started anew takes its place back
signed with card for ~mac | ~E ~mac did not accept the card; next attempt in 60 s
> play connect authenticate insert flood term ; ~serve
authenticated | card inserted: 1 key | ~card | connected to ~mac | disconnected from ~mac
~E ~mac: it does not take its answers; trying again every few seconds
~W refused # more requests of ~mac within a second | ~OTHER
)");
}

TEST_F(Program, FetchesAPassword) {
  transcript_.expect(R"(
> play connect authenticate account ; ~password
account:  x | password: sesame
> play connect authenticate account ; ~password --json
{"account":"x","password":"sesame"}
> play connect authenticate account ; ~password >/dev/full
~E the fresh password could not be written to standard output | status 1
> play connect authenticate lose ; ~password
~E ~mac: the peer has ended the connection | status 1
> play connect authenticate=no end ; ~password
~E ~mac: it did not accept our signature | status 1
> play connect=other end ; ~password
~E ~mac: it has not paired this key with a user; there: ~PAIR | status 1
> play connect=17 end ; ~password
~E ~mac: it ~NOCHALLENGE | status 1
)");
}

}  // namespace
}  // namespace remote
