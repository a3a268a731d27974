#pragma once

#include <cstdint>
#include <optional>

#include "base/Bytes.hpp"
#include "base/Descriptor.hpp"
#include "base/Secret.hpp"
#include "crypto/TlsChannel.hpp"
#include "protocol/QuillMessage.hpp"

namespace bench {

// One end of a relay: a TLS connection to a port of this machine that sends and receives frames as
// they are, so that what it costs is the same for every relay. Waits; failures are thrown.
class Peer {
 public:
  Peer(const crypto::TlsContext &context, std::uint16_t port);

  void send(ByteView frame);

  // The content of the next frame, borrowed until the next call.
  ByteView receive();

  // The same without waiting: nothing if no whole frame has come. As long as this may hold more,
  // the socket says nothing of it.
  std::optional<ByteView> take();
  [[nodiscard]] bool mayHoldMore() const { return channel_.mayHoldMore(); }
  [[nodiscard]] int descriptor() const { return socket_.get(); }

  // Sends a message and reads the next one as its answer, which must be a good one.
  QuillMessage ask(const QuillMessage &message);

 private:
  std::optional<ByteView> take(crypto::TlsChannel::Result &wants);
  void waitFor(crypto::TlsChannel::Result result);

  base::Descriptor socket_;
  crypto::TlsChannel channel_;
  CleansedBytes buffer_;
  CleansedBytes frame_;
};

}  // namespace bench
