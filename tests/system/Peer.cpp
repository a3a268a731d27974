#include "system/Peer.hpp"

#include "base/Places.hpp"
#include "client/PinnedServer.hpp"
#include "encodings/HexString.hpp"
#include "fakes/MadeKeys.hpp"

namespace system_tests {

const crypto::Identity &rsaIdentity() {
  static const crypto::Identity identity = fakes::madeIdentity("RSA", "RSA key");
  return identity;
}

const crypto::Identity &otherRSAIdentity() {
  static const auto identity =
      fakes::identityOf(*crypto::PrivateKey::generateRSA(2048), "Other RSA key");
  return identity;
}

const crypto::Identity &ecIdentity() {
  static const crypto::Identity identity = fakes::madeIdentity("EC", "EC key");
  return identity;
}

Bytes publicKeyHash(const crypto::PrivateKey &key) {
  return encodings::sha1(*key.publicKey().externalRepresentation());
}

QuillMessage signRequest(const Bytes &data, const crypto::Identity &card) {
  return QuillMessage::initCommandMessageSignData(data, card.certificate.sha1(), SecretText());
}

QuillMessage insertionOf(const crypto::Identity &card, const std::string &label) {
  const auto text = encodings::base64EncodeBytes(card.certificate.der(), /*separateLines=*/false);
  const protocol::CardElement element =
      encodings::CertificateInfo{text, true, true, true, label, std::nullopt};
  return QuillMessage::initCommandMessageInsertSmartCardWithCertificates(
      protocol::makeCardList({&element, 1}));
}

Peer Peer::opened(bool isLocal) {
  Error error;
  const auto limits = client::WaitLimits::within(kLongestWait);
  Peer peer;
  peer.connection = isLocal ? client::openLoopback(limits, &error)
                            : client::Connection::open(
                                  client::kLoopbackHost, base::kPublicPort,
                                  [](const auto &) { return true; }, limits, &error);
  EXPECT_TRUE(peer.connection) << error.description;
  return peer;
}

Peer Peer::holder(const crypto::Identity &card) {
  Peer peer = remote();
  EXPECT_TRUE(peer.authenticate(rsaIdentity()) && peer.ask(insertionOf(card)).status);
  return peer;
}

QuillMessage Peer::ask(const QuillMessage &request) {
  Error error;
  auto answer = connection->request(request, client::WaitLimits::within(kLongestWait), &error);
  EXPECT_TRUE(answer) << error.description;
  return answer.value_or(QuillMessage());
}

void Peer::send(const QuillMessage &message) {
  Error error;
  EXPECT_TRUE(connection->send(message, &error)) << error.description;
}

void Peer::answer(const QuillMessage &request, const Bytes &signature) {
  send(QuillMessage::initWithReplyMessageForSignMessage(/*status=*/true, request.messageID,
                                                        signature));
}

QuillMessage Peer::receive() {
  Error error;
  auto message = connection->receive(client::WaitLimits::within(kLongestWait), &error);
  EXPECT_TRUE(message) << error.description;
  return message.value_or(QuillMessage());
}

bool Peer::isEnded() {
  Error error;
  const auto message = connection->receive(client::WaitLimits::within(kLongestWait), &error);
  return !message && error.code == client::peerEnded;
}

bool Peer::authenticate(const crypto::Identity &as) {
  const QuillMessage reply =
      ask(QuillMessage::initCommandMessageConnectWithCertificate({publicKeyHash(as.key)}));
  return reply.challenge && ask(QuillMessage::initCommandMessageAuthenticateWithSignature(
                                    *as.key.signRawPKCS1(*reply.challenge), as.certificate.der()))
                                .status;
}

}  // namespace system_tests
