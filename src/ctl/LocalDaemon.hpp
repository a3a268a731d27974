#pragma once

#include <chrono>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "base/Bytes.hpp"
#include "client/Connection.hpp"
#include "crypto/Certificate.hpp"
#include "ctl/Outcome.hpp"
#include "encodings/CertificateInfo.hpp"

namespace ctl {

// "127.0.0.1:4117", for people.
[[nodiscard]] std::string loopbackName();

// A certificate of the virtual card, with the remote client's description.
struct CardCertificate {
  crypto::Certificate certificate;
  encodings::CertificateInfo info;
};

// The daemon of this machine, as a local client sees it.
class LocalDaemon {
 public:
  // Each call below waits as long as `time`. Nothing, with `failure` filled, if it does not answer
  // (exitNoAnswer) or is not the one that this machine pins.
  [[nodiscard]] static std::optional<LocalDaemon> open(std::chrono::seconds time, Failure &failure);

  // The card's certificates; entries that hold none are left out. The daemon keeps the list after
  // the card is withdrawn.
  [[nodiscard]] std::optional<std::vector<CardCertificate>> certificates(Failure &failure);

  // The one with this SHA-1 hash.
  [[nodiscard]] std::optional<CardCertificate> certificate(ByteView hash, Failure &failure);

  // Asks the card's key to sign prepared data, or to decrypt one block. Nothing, with `failure`
  // filled, also if the daemon or the key's holder refuses.
  [[nodiscard]] std::optional<Bytes> sign(ByteView certificateHash, Bytes data, SecretText pin,
                                          Failure &failure);
  [[nodiscard]] std::optional<SecretBytes> decrypt(ByteView certificateHash, Bytes block,
                                                   SecretText pin, Failure &failure);

 private:
  LocalDaemon(std::unique_ptr<client::Connection> connection, std::chrono::seconds time)
      : connection_(std::move(connection)), time_(time) {}

  [[nodiscard]] std::optional<QuillMessage> ask(const QuillMessage &message, Failure &failure);

  std::unique_ptr<client::Connection> connection_;
  std::chrono::seconds time_;
};

}  // namespace ctl
