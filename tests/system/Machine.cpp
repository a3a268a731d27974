#include "system/Machine.hpp"

#include <sys/stat.h>

#include <csignal>
#include <filesystem>
#include <fstream>
#include <iterator>

#include "base/Root.hpp"
#include "client/PinnedServer.hpp"
#include "support/HexString.hpp"

namespace system_tests {

namespace fs = std::filesystem;

Machine::Machine() {
  write("/etc/passwd", "root:x:0:0::/root:/bin/sh\nann:x:1000:1000::/home/ann:/bin/sh\n");
  for (const char *folder : {"/tmp", "/var/log", "/usr/sbin", "/other-device"}) {
    fs::create_directories(at(folder));
  }
  fs::create_symlink(KEYFERRY_PROGRAMS "/sc_auth", at("/usr/sbin/sc_auth"));
}

Machine::~Machine() {
  if (daemon) {
    EXPECT_EQ(daemon->end(SIGTERM), 128 + SIGTERM) << daemon->output();
  }
  if (HasFailure()) {
    std::fprintf(stderr, "unified log:\n%s\n", read("/var/log/unified.log").c_str());
    if (daemon) {
      std::fprintf(stderr, "daemon:\n%s\n", daemon->output().c_str());
    }
  }
  for (const auto &entry : fs::directory_iterator(base::root())) {
    fs::remove_all(entry);
  }
}

std::string Machine::at(const std::string &path) {
  return base::rooted(path);
}

void Machine::write(const std::string &path, const std::string &content, unsigned mode) {
  fs::create_directories(fs::path(at(path)).parent_path());
  std::ofstream(at(path)) << content;
  chmod(at(path).c_str(), mode);
}

std::string Machine::read(const std::string &path) {
  std::ifstream file(at(path));
  return {std::istreambuf_iterator<char>(file), {}};
}

bool Machine::isMarkerThere() {
  return fs::exists(at("/tmp/scinsert"));
}

bool Machine::isMarkerGone() const {
  return eventually([] { return !isMarkerThere(); });
}

std::unique_ptr<Process> Machine::start(const std::string &program,
                                        const std::vector<std::string> &arguments) {
  ++started_;
  return std::make_unique<Process>(program, arguments,
                                   at("/var/log/output-" + std::to_string(started_)));
}

Outcome Machine::run(const std::string &program, const std::vector<std::string> &arguments) {
  const auto process = start(program, arguments);
  const int status = process->waitForEnd();
  return {status, process->output()};
}

std::string Machine::succeed(const std::string &program,
                             const std::vector<std::string> &arguments) {
  const Outcome outcome = run(program, arguments);
  EXPECT_EQ(outcome.status, 0) << program << ": " << outcome.output;
  return outcome.output;
}

void Machine::makeServerIdentity() {
  succeed("kfyctl", {"identity", "create", "--common-name", "Test Machine"});
  succeed("kfyctl", {"identity", "use", "Test Machine"});
}

void Machine::pair(const std::string &hash) {
  succeed("sc_auth", {"pair", "--user", "ann", "--hash", hash, "--replace"});
}

void Machine::pair(const crypto::PrivateKey &key) {
  pair(support::hexString(publicKeyHash(key)));
}

void Machine::replaceListingTool(const std::string &script) {
  write("/usr/sbin/tool", "#!/bin/sh\n" + script, 0755);
  fs::rename(at("/usr/sbin/tool"), at("/usr/sbin/sc_auth"));  // at no moment half a script
}

void Machine::startDaemon() {
  daemon = start("kfyd", {});
  ASSERT_TRUE(daemon->hasSaid("Listener on port 4116 (tcp) ready!")) << daemon->output();
  ASSERT_TRUE(daemon->hasSaid("Listener on port 4117 (tcp) ready!")) << daemon->output();
}

bool Machine::hasLogged(const std::string &text) const {
  return eventually([&] { return read("/var/log/unified.log").find(text) != std::string::npos; });
}

crypto::Identity makeIdentity(const crypto::PrivateKey &key, const std::string &name) {
  return {*crypto::Certificate::selfSigned(key, name, /*days=*/2, /*serverName=*/false), key};
}

const crypto::Identity &rsaIdentity() {
  static const crypto::Identity identity =
      makeIdentity(*crypto::PrivateKey::generateRSA(2048), "RSA key");
  return identity;
}

const crypto::Identity &otherRSAIdentity() {
  static const crypto::Identity identity =
      makeIdentity(*crypto::PrivateKey::generateRSA(2048), "Other RSA key");
  return identity;
}

const crypto::Identity &ecIdentity() {
  static const crypto::Identity identity =
      makeIdentity(*crypto::PrivateKey::generateP256(), "EC key");
  return identity;
}

Bytes publicKeyHash(const crypto::PrivateKey &key) {
  return support::sha1(*key.publicKey().externalRepresentation());
}

std::string writeIdentity(const crypto::Identity &identity, const std::string &path) {
  Machine::write(
      path, std::string(base::textOf(identity.key.pem().reveal())) + identity.certificate.pem(),
      0600);
  return Machine::at(path);
}

Peer Peer::remote() {
  Error error;
  Peer peer{client::Connection::open(
      client::kLoopbackHost, client::kPublicPort, [](const crypto::Certificate &) { return true; },
      client::Patience::lasting(kPatience), &error)};
  EXPECT_TRUE(peer.connection) << error.description;
  return peer;
}

Peer Peer::local() {
  Error error;
  Peer peer{client::openLoopback(client::Patience::lasting(kPatience), &error)};
  EXPECT_TRUE(peer.connection) << error.description;
  return peer;
}

QuillMessage Peer::ask(const QuillMessage &request) {
  Error error;
  auto answer = connection->request(request, client::Patience::lasting(kPatience), &error);
  EXPECT_TRUE(answer) << error.description;
  return answer.value_or(QuillMessage());
}

void Peer::send(const QuillMessage &message) {
  Error error;
  EXPECT_TRUE(connection->send(message, &error)) << error.description;
}

QuillMessage Peer::receive() {
  Error error;
  auto message = connection->receive(client::Patience::lasting(kPatience), &error);
  EXPECT_TRUE(message) << error.description;
  return message.value_or(QuillMessage());
}

bool Peer::isEnded() {
  Error error;
  const auto message = connection->receive(client::Patience::lasting(kPatience), &error);
  return !message && error.code == client::peerEnded;
}

QuillMessage Peer::connect(const crypto::PrivateKey &key) {
  return ask(QuillMessage::initCommandMessageConnectWithCertificate({publicKeyHash(key)}));
}

bool Peer::authenticate(const crypto::Identity &as) {
  const QuillMessage reply = connect(as.key);
  return reply.challenge && ask(QuillMessage::initCommandMessageAuthenticateWithSignature(
                                    *as.key.signRawPKCS1(*reply.challenge), as.certificate.der()))
                                .status;
}

bool Peer::insert(const std::vector<const crypto::Identity *> &identities) {
  std::vector<protocol::CardElement> elements;
  for (const crypto::Identity *identity : identities) {
    elements.emplace_back(support::CertificateInfo{
        support::base64EncodeBytes(identity->certificate.der(), /*separateLines=*/false), true,
        true, true, "key", std::nullopt});
  }
  return ask(QuillMessage::initCommandMessageInsertSmartCardWithCertificates(
                 protocol::makeCardList(elements)))
      .status;
}

void signOnce(Peer &holder, const crypto::Identity &identity) {
  const QuillMessage request = holder.receive();
  holder.send(QuillMessage::initWithReplyMessageForSignMessage(
      /*status=*/true, request.messageID,
      identity.key.signRawPKCS1(request.dataToSign.value_or(Bytes{})).value_or(Bytes{})));
}

}  // namespace system_tests
