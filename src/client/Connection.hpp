#pragma once

#include <cstddef>
#include <cstdint>
#include <deque>
#include <functional>
#include <memory>
#include <optional>
#include <string>

#include "base/Bytes.hpp"
#include "base/Descriptor.hpp"
#include "base/Error.hpp"
#include "base/Secret.hpp"
#include "base/UUID.hpp"
#include "client/SocketIdentity.hpp"
#include "client/TcpConnect.hpp"
#include "client/WaitLimits.hpp"
#include "crypto/Certificate.hpp"
#include "crypto/TlsChannel.hpp"
#include "protocol/QuillMessage.hpp"

namespace client {

// Where this machine's own daemon listens, at base::kLoopbackPort.
inline constexpr const char *kLoopbackHost = "127.0.0.1";

// Says whether a server that shows this certificate is the right one. Called on the opening thread,
// after the handshake and before anything is sent; may block, which the deadline does not count.
using CertificateVerifier = std::function<bool(const crypto::Certificate &certificate)>;

// One TLS connection to a daemon. Has no thread of its own and is used from one thread at a time:
// whoever waits reads for all, and messages that are not waited for are kept for later, a thousand
// of them, and of several 4 MiB; then the oldest go, so that no peer fills the memory. Never
// raises SIGPIPE. Any end of a connection to the public port withdraws the card there. A descriptor
// that something else stands under by now is never touched again: the connection counts as lost.
class Connection {
 public:
  // Resolves the host, connects, makes the handshake and asks the verifier. Blocks; only a look-up
  // of a name (not of a numeric address) may take longer than `limits` says.
  [[nodiscard]] static std::unique_ptr<Connection> open(
      const std::string &host, std::uint16_t port, const CertificateVerifier &verifier,
      const WaitLimits &limits = {}, Error *error = nullptr,
      const TcpTimeouts &timeouts = kLoopbackTimeouts);

  // Says goodbye (close_notify) as far as that works without waiting, and closes.
  ~Connection();
  Connection(const Connection &) = delete;
  Connection &operator=(const Connection &) = delete;

  // Queues the message as one frame and sends what the socket takes at once; the rest leaves in
  // later calls of any operation here. False if the message can't be written or the connection is
  // at its end.
  [[nodiscard]] bool send(const QuillMessage &message, Error *error = nullptr);

  // Sends a request and waits for the response with its message ID.
  [[nodiscard]] std::optional<QuillMessage> request(const QuillMessage &message,
                                                    const WaitLimits &limits = {},
                                                    Error *error = nullptr);

  // Waits for the response with this message ID, to a request that was sent before. Many requests
  // may be in flight; their responses may be awaited in any order.
  [[nodiscard]] std::optional<QuillMessage> await(const UUID &messageID,
                                                  const WaitLimits &limits = {},
                                                  Error *error = nullptr);

  // Waits for a message of any kind: the oldest that nobody has taken yet.
  [[nodiscard]] std::optional<QuillMessage> receive(const WaitLimits &limits = {},
                                                    Error *error = nullptr);

  // For programs with a poll loop of their own: call pump() when descriptor() can be read, or
  // written while wantsWrite(), or at once while hasMore(); then take messages until none is left.
  // pump() never blocks. False at the connection's end; what came before can still be taken.
  bool pump();
  [[nodiscard]] std::optional<QuillMessage> take();
  [[nodiscard]] int descriptor() const { return socket_.get(); }
  [[nodiscard]] bool wantsWrite() const { return unsentBytes() > 0; }
  [[nodiscard]] bool hasMore() const { return hasMore_; }

  // What the peer has not taken yet. There is no bound: it grows with each send() to a peer that
  // does not read.
  [[nodiscard]] std::size_t unsentBytes() const { return end_ ? 0 : channel_.unsentBytes(); }

  // Why the connection is at its end; nothing while it stands.
  [[nodiscard]] const std::optional<Error> &end() const { return end_; }

  // Ends it in order: what was sent before still leaves, then close_notify, then the write side is
  // shut and the peer's own end awaited. Blocks at most as long as `limits` says.
  void goodbye(const WaitLimits &limits);

  // Closes the descriptor without a word, for a process that got the connection through fork: one
  // byte from it would spoil the other's stream.
  void abandon();

 private:
  struct PassKey {};  // so that open() alone makes connections

 public:
  Connection(PassKey passKey, base::Descriptor socket, const crypto::TlsContext &context);

 private:
  using Take = std::function<std::optional<QuillMessage>()>;

  // A message that nobody has taken yet.
  struct QueuedMessage {
    QuillMessage message;
    std::size_t bytes;  // of its frame
  };

  [[nodiscard]] bool isSocketOurs() const;
  [[nodiscard]] bool checkSocket();  // lets go of what is not ours, with the end noted
  [[nodiscard]] bool handshake(const WaitLimits &limits, Error *error);
  [[nodiscard]] std::optional<QuillMessage> waitUntil(const Take &take, const WaitLimits &limits,
                                                      Error *error);
  [[nodiscard]] bool readChunks();
  [[nodiscard]] bool readChunk();
  void collect(ByteView chunk);
  void enqueue(QuillMessage message, std::size_t bytes);
  void flush();
  void endWith(ErrorCode code, std::string description);
  [[nodiscard]] std::optional<QuillMessage> takeResponse(const UUID &messageID);
  [[nodiscard]] std::optional<QuillMessage> takeAt(
      const std::deque<QueuedMessage>::iterator &place);

  base::Descriptor socket_;
  std::optional<SocketIdentity> identity_;
  crypto::TlsChannel channel_;  // borrows the socket
  CleansedBytes buffer_;        // for one chunk
  CleansedBytes frame_;         // that is being collected
  std::deque<QueuedMessage> queue_;
  std::size_t queuedBytes_ = 0;
  std::optional<Error> end_;
  bool hasMore_ = false;
};

}  // namespace client
