#include "Peer.hpp"

#include <chrono>
#include <stdexcept>

#include "client/Connection.hpp"
#include "client/TcpConnect.hpp"
#include "protocol/Frame.hpp"

namespace bench {

using Result = crypto::TlsChannel::Result;

Peer::Peer(const crypto::TlsContext &context, std::uint16_t port)
    : socket_(client::connectTcp(client::kLoopbackHost, port, {}, nullptr)),
      channel_(context, crypto::TlsChannel::Role::client, socket_.get()),
      buffer_(crypto::kTlsRecordBytes + protocol::kDroppedChunkBytes) {
  for (Result result = channel_.handshake(); result != Result::done;) {
    waitFor(result);
    result = channel_.handshake();
  }
}

void Peer::waitFor(Result result) {
  const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(10);
  const bool goesOn = (result == Result::wantsRead && base::waitToRead(socket_.get(), deadline)) ||
                      (result == Result::wantsWrite && base::waitToWrite(socket_.get(), deadline));
  if (!goesOn) {
    throw std::runtime_error("no connection, or no answer in time; " + channel_.errorText());
  }
}

void Peer::send(ByteView frame) {
  while (!frame.empty()) {
    frame = frame.subspan(channel_.encryptRecord(frame));
  }
  for (Result result = channel_.flush(); result != Result::done; result = channel_.flush()) {
    waitFor(result);
  }
}

ByteView Peer::receive() {
  while (true) {
    Result wants{};
    if (const auto frame = take(wants)) {
      return *frame;
    }
    waitFor(wants);
  }
}

std::optional<ByteView> Peer::take() {
  Result wants{};
  const auto frame = take(wants);
  if (!frame && wants != Result::wantsRead) {
    waitFor(wants);
  }
  return frame;
}

// `wants`: what to wait for if there is none.
std::optional<ByteView> Peer::take(Result &wants) {
  while (true) {
    ByteView chunk;
    wants = channel_.readChunk(buffer_, chunk);
    if (wants != Result::done) {
      return std::nullopt;
    }
    const auto collected = protocol::collectChunk(frame_, chunk);
    if (collected.outcome == protocol::ChunkOutcome::frame) {
      return collected.payload;
    }
  }
}

QuillMessage Peer::ask(const QuillMessage &message) {
  send(protocol::frameOf(message));
  const auto answer = QuillMessage::initWithJSONData(receive());
  if (!answer || !answer->status) {
    throw std::runtime_error("a command was refused");
  }
  return *answer;
}

}  // namespace bench
