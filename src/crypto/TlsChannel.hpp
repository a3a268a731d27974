#pragma once

#include <cstddef>
#include <functional>
#include <memory>
#include <optional>
#include <span>
#include <string>

#include "base/Bytes.hpp"
#include "base/Error.hpp"
#include "base/Secret.hpp"
#include "crypto/Identity.hpp"
#include "crypto/PublicKey.hpp"

struct ssl_ctx_st;

namespace crypto {

// The most plaintext that one TLS record holds (RFC 8446 5.1).
inline constexpr std::size_t kTlsRecordBytes = 16384;

// What all connections of one kind share. A cheap value. TLS 1.2 and up; no tickets, no session
// cache, no renegotiation, no early data, so nothing grows per handshake.
class TlsContext {
 public:
  // For a server that shows `identity` and asks for no client certificate.
  [[nodiscard]] static std::optional<TlsContext> server(const Identity &identity,
                                                        Error *error = nullptr);

  // For a client. It does not judge certificates: the caller compares peerPublicKey() with the key
  // that it expects before it sends anything.
  [[nodiscard]] static std::optional<TlsContext> client(Error *error = nullptr);

  [[nodiscard]] ssl_ctx_st *native() const { return context_.get(); }

 private:
  explicit TlsContext(std::shared_ptr<ssl_ctx_st> context) : context_(std::move(context)) {}

  std::shared_ptr<ssl_ctx_st> context_;
};

// One TLS connection over a connected, non-blocking stream socket, which it borrows. Never blocks
// and never raises SIGPIPE. Knows nothing of queues and events: the caller waits for the socket.
class TlsChannel {
 public:
  enum class Role { server, client };
  enum class Result {
    done,        // it was done
    wantsRead,   // wait until the socket can be read, then call again
    wantsWrite,  // wait until the socket can be written, then call again
    ended,       // the peer has ended its stream; a FIN without close_notify counts as that
    failed,      // lost; see errorNumber()
  };

  // `socket` must stay open as long as this object lives, and is not closed by it.
  TlsChannel(const TlsContext &context, Role role, int socket);
  ~TlsChannel();
  TlsChannel(const TlsChannel &) = delete;
  TlsChannel &operator=(const TlsChannel &) = delete;

  // Takes the handshake a step further; `done` when it is complete. Each call sends what it has to
  // send. A peer that ends its stream before that is `failed`, ECONNRESET.
  [[nodiscard]] Result handshake();

  // Reads one record's plaintext into `buffer`, which must hold kTlsRecordBytes, and sets `length`
  // to 1 or more. Reads ahead: after `done` there may be more without the socket becoming readable
  // again, so call until it answers something else. May put something to send into the output
  // buffer (the answer to a key update, an alert). After a failed flush() what has come in can
  // still be read.
  [[nodiscard]] Result readRecord(std::span<std::uint8_t> buffer, std::size_t &length);

  // Reads one chunk: one record, and where that record is full (kTlsRecordBytes) and one of 8 bytes
  // or fewer directly follows and is already there, both, so that the short tail of a long frame
  // stays with it. `chunk` is borrowed from this object or from `buffer` until the next call;
  // `buffer` must hold kTlsRecordBytes + 8.
  [[nodiscard]] Result readChunk(std::span<std::uint8_t> buffer, ByteView &chunk);

  // False if a read has nothing to give before the socket becomes readable again.
  [[nodiscard]] bool mayHoldMore() const;

  // Encrypts the first record of `unit` into the output buffer and returns how many bytes of
  // plaintext it took: full records, except that the last one of a unit never holds 8 bytes or
  // fewer (unless the unit does). 0: failed. Nothing is sent before flush().
  [[nodiscard]] std::size_t encryptRecord(ByteView unit);

  // Sends what stands in the output buffer: done, wantsWrite or failed.
  [[nodiscard]] Result flush();

  // Gives back the memory that is only needed while bytes flow, some 35 KB. Later calls allocate it
  // again.
  void releaseBuffers();

  // Bytes in the output buffer.
  [[nodiscard]] std::size_t unsentBytes() const;

  // Puts close_notify into the output buffer.
  void sendCloseNotify();

  // The errno value of the failure; EPROTO for one of TLS itself.
  [[nodiscard]] int errorNumber() const;

  // Why it failed, for people.
  [[nodiscard]] std::string errorText() const;

  // The certificate that the peer has shown, after the handshake; nothing if none.
  [[nodiscard]] std::optional<Certificate> peerCertificate() const;

 private:
  struct State;
  std::unique_ptr<State> state_;
};

}  // namespace crypto
