#include "client/TestServer.hpp"

#include <arpa/inet.h>
#include <netinet/in.h>
#include <sys/socket.h>

#include <bit>
#include <stdexcept>
#include <utility>

#include "protocol/Frame.hpp"

using Result = crypto::TlsChannel::Result;

ServedConnection::ServedConnection(base::Descriptor socket, const crypto::TlsContext &context)
    : deadline_(std::chrono::steady_clock::now() + std::chrono::seconds(10)),
      socket_(std::move(socket)),
      channel_(context, crypto::TlsChannel::Role::server, socket_.get()),
      buffer_(crypto::kTlsRecordBytes + 8) {}

bool ServedConnection::wait(Result result) const {
  return (result == Result::wantsRead && base::waitToRead(socket_.get(), deadline_)) ||
         (result == Result::wantsWrite && base::waitToWrite(socket_.get(), deadline_));
}

bool ServedConnection::handshake() {
  Result result = channel_.handshake();
  while (wait(result)) {
    result = channel_.handshake();
  }
  return result == Result::done;
}

std::optional<QuillMessage> ServedConnection::receive() {
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

void ServedConnection::sendUnit(ByteView unit) {
  while (!unit.empty()) {
    unit = unit.subspan(channel_.encryptRecord(unit));
  }
  while (wait(channel_.flush())) {
  }
}

void ServedConnection::send(const QuillMessage &message) {
  sendUnit(protocol::frameOf(message));
}

base::Descriptor boundToLoopback(std::uint16_t &port) {
  base::Descriptor socket(::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0));
  sockaddr address{};
  socklen_t size = sizeof address;
  auto loopback = std::bit_cast<sockaddr_in>(address);
  loopback.sin_family = AF_INET;
  loopback.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  address = std::bit_cast<sockaddr>(loopback);
  if (::bind(socket.get(), &address, size) != 0 ||
      ::getsockname(socket.get(), &address, &size) != 0) {
    throw std::runtime_error("no loopback socket");
  }
  port = ntohs(std::bit_cast<sockaddr_in>(address).sin_port);
  return socket;
}

TestServer::TestServer(std::function<void(ServedConnection &)> serve)
    : identity_(makeIdentity("test server")), listener_(boundToLoopback(port_)) {
  if (::listen(listener_.get(), 1) != 0) {
    throw std::runtime_error("no loopback listener");
  }
  thread_ = std::thread([this, serve = std::move(serve)] {
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(10);
    if (!base::waitToRead(listener_.get(), deadline)) {
      return;
    }
    base::Descriptor socket(
        ::accept4(listener_.get(), nullptr, nullptr, SOCK_NONBLOCK | SOCK_CLOEXEC));
    ServedConnection connection(std::move(socket), crypto::TlsContext::server(identity_).value());
    serve(connection);
  });
}

void TestServer::join() {
  if (thread_.joinable()) {
    thread_.join();
  }
}

crypto::Identity makeIdentity(const std::string &commonName) {
  const auto key = crypto::PrivateKey::generateP256().value();
  return {crypto::Certificate::selfSigned(key, commonName, /*days=*/2, /*serverName=*/true).value(),
          key};
}
