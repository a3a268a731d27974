#include "ctl/LocalDaemon.hpp"

#include <algorithm>
#include <string>
#include <utility>

#include "base/Places.hpp"
#include "base/Root.hpp"
#include "client/PinnedServer.hpp"
#include "encodings/HexString.hpp"
#include "protocol/CardList.hpp"

namespace ctl {
namespace {

constexpr const char *kStart = "sudo systemctl enable --now kfyd.service";
constexpr const char *kRestart = "sudo systemctl restart kfyd.service";

Failure failureFromClient(const Error &error) {
  if (error.domain == client::kErrorDomain && error.code == client::pinUnusable) {
    return {"kfyd cannot be told from others: " + error.description, kRestart};
  }
  if (error.domain == client::kErrorDomain && error.code == client::keyNotPinned) {
    return {"what answers on " + loopbackName() + " does not hold the key of " +
                base::rooted(base::kServerCertificate),
            kRestart};
  }
  return {"kfyd does not answer: " + error.description, kStart, exitNoAnswer};
}

// Without a certificate to pin, first find out whether a daemon runs at all.
std::optional<Failure> whyNobodyAnswers(const client::WaitLimits &limits) {
  Error error;
  const auto nobody = client::Connection::open(
      client::kLoopbackHost, base::kLoopbackPort, [](const crypto::Certificate &) { return false; },
      limits, &error);
  return error.code == client::keyNotPinned ? std::nullopt
                                            : std::optional(failureFromClient(error));
}

// The daemon and the key's holder refuse with the same message.
Failure refusal(const std::string &what) {
  return {"kfyd or the remote client that holds the key refused to " + what,
          "kfyctl status; journalctl -u kfyd.service -n 20"};
}

std::optional<CardCertificate> cardCertificateFrom(encodings::CertificateInfo info) {
  auto certificate =
      crypto::Certificate::fromDER(encodings::dataFromBase64String(info.certificate));
  return certificate ? std::optional(CardCertificate{std::move(*certificate), std::move(info)})
                     : std::nullopt;
}

}  // namespace

std::string loopbackName() {
  return client::kLoopbackHost + (":" + std::to_string(base::kLoopbackPort));
}

std::optional<LocalDaemon> LocalDaemon::open(std::chrono::seconds time, Failure &failure) {
  Error error;
  const auto limits = client::WaitLimits::within(time);
  auto connection = client::openLoopback(limits, &error);
  if (!connection) {
    const auto worse = error.code == client::pinUnusable ? whyNobodyAnswers(limits) : std::nullopt;
    failure = worse.value_or(failureFromClient(error));
    return std::nullopt;
  }
  return LocalDaemon(std::move(connection), time);
}

std::optional<QuillMessage> LocalDaemon::ask(const QuillMessage &message, Failure &failure) {
  Error error;
  auto answer = connection_->request(message, client::WaitLimits::within(time_), &error);
  if (!answer) {
    failure = failureFromClient(error);
  }
  return answer;
}

std::optional<std::vector<CardCertificate>> LocalDaemon::certificates(Failure &failure) {
  const auto answer = ask(QuillMessage::initCommandMessageGetCertificates(), failure);
  if (!answer) {
    return std::nullopt;
  }
  std::vector<CardCertificate> list;
  if (answer->certificates) {
    for (auto &info : protocol::certificateInfosOf(*answer->certificates)) {
      if (auto certificate = cardCertificateFrom(std::move(info))) {
        list.push_back(std::move(*certificate));
      }
    }
  }
  return list;
}

std::optional<CardCertificate> LocalDaemon::certificate(ByteView hash, Failure &failure) {
  const auto list = certificates(failure);
  if (!list) {
    return std::nullopt;
  }
  const auto found = std::ranges::find_if(*list, [&](const CardCertificate &card) {
    return base::equal(card.certificate.sha1(), hash);
  });
  if (found == list->end()) {
    failure = {"the card holds no certificate with the SHA-1 hash " + encodings::hexString(hash),
               "kfyctl certificates"};
    return std::nullopt;
  }
  return *found;
}

std::optional<Bytes> LocalDaemon::sign(ByteView certificateHash, Bytes data, SecretText pin,
                                       Failure &failure) {
  const auto answer = ask(
      QuillMessage::initCommandMessageSignData(
          std::move(data), Bytes(certificateHash.begin(), certificateHash.end()), std::move(pin)),
      failure);
  if (!answer) {
    return std::nullopt;
  }
  if (!answer->status || !answer->signedData || answer->signedData->empty()) {
    failure = refusal("sign");
    return std::nullopt;
  }
  return answer->signedData;
}

std::optional<SecretBytes> LocalDaemon::decrypt(ByteView certificateHash, Bytes block,
                                                SecretText pin, Failure &failure) {
  auto answer = ask(
      QuillMessage::initCommandMessageDecryptDataWithObjectID(
          Bytes(certificateHash.begin(), certificateHash.end()), std::move(block), std::move(pin)),
      failure);
  if (!answer) {
    return std::nullopt;
  }
  if (!answer->status || !answer->decryptedData || answer->decryptedData->empty()) {
    failure = refusal("decrypt");
    return std::nullopt;
  }
  return std::move(answer->decryptedData);
}

}  // namespace ctl
