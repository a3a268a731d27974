#include "Machine.hpp"

#include <sys/resource.h>

#include <chrono>
#include <thread>

#include "Statistics.hpp"
#include "base/Places.hpp"
#include "base/Root.hpp"
#include "client/Connection.hpp"
#include "client/TcpConnect.hpp"
#include "encodings/HexString.hpp"

namespace bench {
namespace {

crypto::Identity identityOf(const crypto::PrivateKey &key) {
  return {crypto::Certificate::selfSigned(key, "bench", /*days=*/1, /*serverName=*/false).value(),
          key};
}

bool isListening() {
  return client::connectTcp(client::kLoopbackHost, base::kLoopbackPort, {}, nullptr).isOpen();
}

}  // namespace

crypto::Identity makeCard() {
  return identityOf(crypto::PrivateKey::generateRSA(2048).value());
}

crypto::Identity makeRelayIdentity() {
  return identityOf(crypto::PrivateKey::generateP256().value());
}

Machine::Machine(const std::string &kfyd) : daemon_([&] { execute({kfyd}); }) {
  for (int tries = 0; !isListening(); ++tries) {
    check(tries < 1000, "kfyd does not listen");
    std::this_thread::sleep_for(std::chrono::milliseconds(10));
  }
}

void authenticate(Peer &holder, const crypto::Identity &card) {
  const Bytes hash = encodings::sha1(card.key.publicKey().externalRepresentation().value());
  const auto reply = holder.ask(QuillMessage::initCommandMessageConnectWithCertificate({hash}));
  (void)holder.ask(QuillMessage::initCommandMessageAuthenticateWithSignature(
      card.key.signRawPKCS1(reply.challenge.value()).value(), card.certificate.der()));
}

QuillMessage insertOf(const std::vector<crypto::Certificate> &certificates) {
  std::vector<protocol::CardElement> list;
  for (const crypto::Certificate &certificate : certificates) {
    encodings::CertificateInfo info;
    info.certificate = encodings::base64EncodeBytes(certificate.der(), /*separateLines=*/false);
    info.canSign = true;
    list.emplace_back(info);
  }
  return QuillMessage::initCommandMessageInsertSmartCardWithCertificates(
      protocol::makeCardList(list));
}

void raiseDescriptorLimit() {
  rlimit descriptors{};
  ::getrlimit(RLIMIT_NOFILE, &descriptors);
  descriptors.rlim_cur = descriptors.rlim_max;
  ::setrlimit(RLIMIT_NOFILE, &descriptors);
}

}  // namespace bench
