#include "remote/ScreenSharing.hpp"

#include <utility>

#include "encodings/HexString.hpp"
#include "remote/AuthenticationKey.hpp"

namespace remote {
namespace {

// The request needs an account name, but the machine has only one account to give.
constexpr const char *kAccount = "cvnkfyvncuser";

std::nullopt_t fail(Error *error, const std::string &reason) {
  base::report(error, "remote", 0, reason);
  return std::nullopt;
}

// Sends `connect` and `authenticate`. False, with the reason, if one is refused.
bool authenticate(client::Connection &connection, const crypto::Identity &authentication,
                  const client::WaitLimits &limits, Error *error) {
  const auto hash = authentication.key.publicKey().hash(error);
  if (!hash) {
    return false;
  }
  const auto reply = connection.request(
      QuillMessage::initCommandMessageConnectWithCertificate({*hash}), limits, error);
  if (!reply) {
    return false;
  }
  if (!reply->status || reply->selectedCertificateHash != hash) {
    fail(error, "it has not paired this key with a user; there: sudo kfyctl pair USER " +
                    encodings::hexString(*hash));
    return false;
  }
  Error reason;
  auto signature = answerToChallenge(reply->challenge, authentication, &reason);
  if (!signature) {
    fail(error, reason.domain == "challenge" ? "it " + reason.description : reason.description);
    return false;
  }
  const auto answer =
      connection.request(QuillMessage::initCommandMessageAuthenticateWithSignature(
                             std::move(*signature), authentication.certificate.der()),
                         limits, error);
  if (answer && !answer->status) {
    fail(error, "it did not accept our signature");
  }
  return answer && answer->status;
}

}  // namespace

std::optional<ScreenSharingAccount> fetchScreenSharingAccount(
    const Address &address, const Fingerprint &pinned, const crypto::Identity &authentication,
    const client::WaitLimits &limits, Error *error) {
  const auto verifier = [&](const crypto::Certificate &shown) { return shown.sha256() == pinned; };
  const auto connection = client::Connection::open(address.host, address.port, verifier, limits,
                                                   error, client::kNetworkTimeouts);
  if (!connection || !authenticate(*connection, authentication, limits, error)) {
    return std::nullopt;
  }
  const auto reply = connection->request(
      QuillMessage::initCommandMessageCreateEphemeralUser(kAccount), limits, error);
  if (!reply) {
    return std::nullopt;
  }
  if (!reply->status || !reply->ephemeralUsername || !reply->ephemeralPassword) {
    return fail(error, reply->errorMessage.value_or("it refused"));
  }
  const auto password = encodings::dataFromBase64Field(reply->ephemeralPassword->reveal());
  if (!password) {
    return fail(error, "it sent a password that cannot be read");
  }
  return ScreenSharingAccount{*reply->ephemeralUsername, SecretText(*password)};
}

}  // namespace remote
