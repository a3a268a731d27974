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

// The address of this machine's daemon; its port is base::kLoopbackPort.
inline constexpr const char *kLoopbackHost = "127.0.0.1";

// Decides whether a server with this certificate is trusted. Called on the opening thread after the
// handshake and before anything is sent. May block; the deadline does not apply meanwhile.
using CertificateVerifier = std::function<bool(const crypto::Certificate &certificate)>;

// One TLS connection to a daemon. It has no thread of its own and is used by one thread at a time.
// Whoever waits reads for everybody; other messages are queued. The queue holds at most 1000
// messages or 4 MiB, then the oldest are dropped, so that no peer can exhaust memory. Never raises
// SIGPIPE. When a connection to the public port ends, the daemon removes its card. If the program
// closed our descriptor, it is never touched again and the connection counts as lost.
class Connection {
 public:
  // Resolves the host, connects, performs the handshake and calls the verifier. Blocks within
  // `limits`; only the resolution of a name (not of a numeric address) may take longer.
  [[nodiscard]] static std::unique_ptr<Connection> open(
      const std::string &host, std::uint16_t port, const CertificateVerifier &verifier,
      const WaitLimits &limits = {}, Error *error = nullptr,
      const TcpTimeouts &timeouts = kLoopbackTimeouts);

  // Sends close_notify if that needs no wait, and closes.
  ~Connection();
  Connection(const Connection &) = delete;
  Connection &operator=(const Connection &) = delete;

  // Queues the message as one frame and sends what the socket accepts now; later calls of any
  // function send the rest. False if the message can't be serialized or the connection has ended.
  [[nodiscard]] bool send(const QuillMessage &message, Error *error = nullptr);

  // Sends a request and waits for the response with the same message ID.
  [[nodiscard]] std::optional<QuillMessage> request(const QuillMessage &message,
                                                    const WaitLimits &limits = {},
                                                    Error *error = nullptr);

  // Waits for the response to a request that was sent before. Any number of requests may be in
  // flight, and their responses may be awaited in any order.
  [[nodiscard]] std::optional<QuillMessage> await(const UUID &messageID,
                                                  const WaitLimits &limits = {},
                                                  Error *error = nullptr);

  // Waits for a message of any kind and returns the oldest in the queue.
  [[nodiscard]] std::optional<QuillMessage> receive(const WaitLimits &limits = {},
                                                    Error *error = nullptr);

  // For programs with their own poll loop: call pump() when descriptor() is readable, when it is
  // writable while wantsWrite(), or at once while hasMore(). Then call take() until the queue is
  // empty. pump() never blocks and returns false when the connection has ended; queued messages can
  // still be taken then.
  bool pump();
  [[nodiscard]] std::optional<QuillMessage> take();
  [[nodiscard]] int descriptor() const { return socket_.get(); }
  [[nodiscard]] bool wantsWrite() const { return unsentBytes() > 0; }
  [[nodiscard]] bool hasMore() const { return hasMore_; }

  // Bytes that the peer has not accepted yet. Unbounded: it grows with each send() while the peer
  // does not read.
  [[nodiscard]] std::size_t unsentBytes() const { return end_ ? 0 : channel_.unsentBytes(); }

  // The reason why the connection ended; nothing while it is open.
  [[nodiscard]] const std::optional<Error> &end() const { return end_; }

  // Closes the connection gracefully: sends pending output and close_notify, shuts the write side
  // down and waits for the peer to close. Blocks within `limits`.
  void close(const WaitLimits &limits);

  // For the child of a fork: closes the descriptor and sends nothing, since any byte would corrupt
  // the parent's TLS stream.
  void abandon();

 private:
  struct PassKey {};  // only open() creates connections

 public:
  Connection(PassKey passKey, base::Descriptor socket, const crypto::TlsContext &context);

 private:
  using Take = std::function<std::optional<QuillMessage>()>;

  // A received message that nobody has taken yet.
  struct QueuedMessage {
    QuillMessage message;
    std::size_t bytes;  // of the frame
  };

  [[nodiscard]] bool isSocketOurs() const;
  // Releases a descriptor that is no longer ours and ends the connection.
  [[nodiscard]] bool checkSocket();
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
  crypto::TlsChannel channel_;  // borrows socket_
  CleansedBytes buffer_;        // for one chunk
  CleansedBytes frame_;         // the incomplete frame
  std::deque<QueuedMessage> queue_;
  std::size_t queuedBytes_ = 0;
  std::optional<Error> end_;
  bool hasMore_ = false;
};

}  // namespace client
