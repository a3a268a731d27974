#pragma once

#include <chrono>
#include <optional>
#include <utility>

#include "base/Descriptor.hpp"
#include "crypto/TlsChannel.hpp"
#include "protocol/Frame.hpp"
#include "protocol/QuillMessage.hpp"

namespace fakes {

// One connection as a daemon sees it. Nothing waits longer than ten seconds.
class ServedConnection {
 public:
  ServedConnection(base::Descriptor socket, const crypto::TlsContext &context)
      : deadline_(std::chrono::steady_clock::now() + std::chrono::seconds(10)),
        socket_(std::move(socket)),
        channel_(context, crypto::TlsChannel::Role::server, socket_.get()),
        buffer_(crypto::kTlsRecordBytes + 8) {}

  [[nodiscard]] bool handshake() {
    Result result = channel_.handshake();
    while (wait(result)) {
      result = channel_.handshake();
    }
    return result == Result::done;
  }

  // The next message; nothing at the end of the stream or when none comes in time.
  [[nodiscard]] std::optional<QuillMessage> receive() {
    while (true) {
      ByteView chunk;
      const Result result = channel_.readChunk(buffer_, chunk);
      if (result != Result::done && !wait(result)) {
        return std::nullopt;
      }
      received_ += chunk.size();
      const auto collected = protocol::collectChunk(frame_, chunk);
      if (collected.outcome == protocol::ChunkOutcome::frame) {
        return QuillMessage::initWithJSONData(collected.payload);
      }
    }
  }

  void send(const QuillMessage &message) {
    const auto frame = protocol::frameOf(message);
    ByteView unit = frame;
    while (!unit.empty()) {
      unit = unit.subspan(channel_.encryptRecord(unit));
    }
    while (wait(channel_.flush())) {
    }
  }

  // How much plaintext has come in all.
  [[nodiscard]] std::size_t received() const { return received_; }

 private:
  using Result = crypto::TlsChannel::Result;

  [[nodiscard]] bool wait(Result result) const {
    return (result == Result::wantsRead && base::waitToRead(socket_.get(), deadline_)) ||
           (result == Result::wantsWrite && base::waitToWrite(socket_.get(), deadline_));
  }

  std::chrono::steady_clock::time_point deadline_;
  base::Descriptor socket_;
  crypto::TlsChannel channel_;
  CleansedBytes buffer_;
  CleansedBytes frame_;
  std::size_t received_ = 0;
};

}  // namespace fakes
