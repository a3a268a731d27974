#pragma once

#include <gmock/gmock.h>

#include "client/Connection.hpp"
#include "crypto/Identity.hpp"
#include "system/Process.hpp"

namespace system_tests {

// Keys with their certificates, made once.
[[nodiscard]] const crypto::Identity &rsaIdentity();
[[nodiscard]] const crypto::Identity &otherRSAIdentity();
[[nodiscard]] const crypto::Identity &ecIdentity();

// The SHA-1 hash of a key's public half.
[[nodiscard]] Bytes publicKeyHash(const crypto::PrivateKey &key);

// Asks for a signature of the card's key.
[[nodiscard]] QuillMessage signRequest(const Bytes &data,
                                       const crypto::Identity &card = otherRSAIdentity());

// Inserts this card.
[[nodiscard]] QuillMessage insertionOf(const crypto::Identity &card,
                                       const std::string &label = "key");

// A connection to the daemon as a test uses it: asked for and answered in the test's own thread.
class Peer {
 public:
  // Connects; fails the test if that is not possible.
  static Peer remote() { return opened(/*isLocal=*/false); }
  static Peer local() { return opened(/*isLocal=*/true); }
  // A remote client that authenticates as rsaIdentity() and inserts this card.
  static Peer holder(const crypto::Identity &card = otherRSAIdentity());

  QuillMessage ask(const QuillMessage &request);
  void send(const QuillMessage &message);
  void answer(const QuillMessage &request, const Bytes &signature);
  QuillMessage receive();
  // Waits until the daemon has ended the connection.
  [[nodiscard]] bool isEnded();

  // Connects and authenticates with this key; the last reply's status.
  bool authenticate(const crypto::Identity &as);

  std::unique_ptr<client::Connection> connection;

 private:
  static Peer opened(bool isLocal);
};

}  // namespace system_tests
