#include "client/Connection.hpp"

#include <sys/socket.h>

#include <algorithm>
#include <utility>

#include "protocol/Frame.hpp"

namespace client {
namespace {

using Result = crypto::TlsChannel::Result;

// The size that TlsChannel::readChunk requires.
constexpr std::size_t kChunkBytes = crypto::kTlsRecordBytes + protocol::kDroppedChunkBytes;

// By default a daemon accepts and sends frames of at most 2 MiB.
constexpr std::size_t kLargestFrame = std::size_t{16} * 1024 * 1024;

// Bounds of the queue of untaken messages: enough for many requests in flight, and for two of a
// daemon's largest frames. A parsed message can take twelve times the memory of its frame. The
// newest message always stays.
constexpr std::size_t kMaxQueuedMessages = 1000;
constexpr std::size_t kMaxQueuedBytes = std::size_t{4} * 1024 * 1024;

// Chunks read before the caller's deadline and its other descriptors are checked again.
constexpr int kChunksPerPump = 64;

// Needed where the peer never stops sending, so that no wait looks at the stop descriptor.
bool checkStopped(const WaitLimits &limits, Error *error) {
  Error reason;
  const WaitLimits none{std::chrono::steady_clock::now(), limits.stopDescriptor};
  (void)waitFor(/*descriptor=*/-1, /*toWrite=*/false, none, &reason);
  const bool isStopped = reason.code == stopped;
  if (isStopped && error != nullptr) {
    *error = std::move(reason);
  }
  return isStopped;
}

}  // namespace

std::unique_ptr<Connection> Connection::open(const std::string &host, std::uint16_t port,
                                             const CertificateVerifier &verifier,
                                             const WaitLimits &limits, Error *error,
                                             const TcpTimeouts &timeouts) {
  Error reason;
  const auto context = crypto::TlsContext::client(&reason);
  if (!context) {
    base::report(error, kErrorDomain, handshakeFailed, reason.description);
    return nullptr;
  }
  base::Descriptor socket = connectTcp(host, port, limits, error, timeouts);
  if (!socket.isOpen()) {
    return nullptr;
  }
  auto connection = std::make_unique<Connection>(PassKey{}, std::move(socket), *context);
  if (!connection->handshake(limits, error)) {
    return nullptr;
  }
  const auto certificate = connection->channel_.peerCertificate();
  if (!certificate || !verifier(*certificate)) {
    base::report(error, kErrorDomain, keyNotPinned,
                 "the server at " + host + " port " + std::to_string(port) +
                     " is not the one that is trusted");
    return nullptr;
  }
  return connection;
}

Connection::Connection(PassKey /*passKey*/, base::Descriptor socket,
                       const crypto::TlsContext &context)
    : socket_(std::move(socket)),
      identity_(SocketIdentity::of(socket_.get())),
      channel_(context, crypto::TlsChannel::Role::client, socket_.get()),
      buffer_(kChunkBytes) {}

Connection::~Connection() {
  if (!isSocketOurs()) {  // without memory, end_ may be unset
    (void)socket_.release();
  } else if (!end_) {
    channel_.sendCloseNotify();
    (void)channel_.flush();
  }
}

bool Connection::isSocketOurs() const {
  return socket_.isOpen() && SocketIdentity::of(socket_.get()) == identity_;
}

bool Connection::checkSocket() {
  if (socket_.isOpen() && !isSocketOurs()) {
    // closing it would close a descriptor of the program's own
    (void)socket_.release();
    endWith(connectionLost, "connection lost: its descriptor was closed by the program");
  }
  return socket_.isOpen();
}

bool Connection::handshake(const WaitLimits &limits, Error *error) {
  Result result = channel_.handshake();
  while (result == Result::wantsRead || result == Result::wantsWrite) {
    if (!waitFor(socket_.get(), result == Result::wantsWrite, limits, error)) {
      return false;
    }
    result = channel_.handshake();
  }
  if (result != Result::done) {
    base::report(error, kErrorDomain, handshakeFailed,
                 "the TLS handshake failed: " + channel_.errorText());
    return false;
  }
  return true;
}

bool Connection::send(const QuillMessage &message, Error *error) {
  const CleansedBytes frame = protocol::frameOf(message);
  if (frame.size() == protocol::kFrameStart.size() + protocol::kFrameEnd.size()) {
    base::report(error, kErrorDomain, notSendable, "the message lacks a field");
    return false;
  }
  ByteView rest = frame;
  (void)checkSocket();
  while (!end_ && !rest.empty()) {
    const std::size_t taken = channel_.encryptRecord(rest);
    if (taken == 0) {
      endWith(connectionLost, "connection lost: " + channel_.errorText());
    }
    rest = rest.subspan(taken);
  }
  flush();
  if (end_ && error != nullptr) {
    *error = *end_;
  }
  return !end_;
}

std::optional<QuillMessage> Connection::request(const QuillMessage &message,
                                                const WaitLimits &limits, Error *error) {
  if (!message.messageID) {
    base::report(error, kErrorDomain, notSendable, "the request has no message ID");
    return std::nullopt;
  }
  return send(message, error) ? await(*message.messageID, limits, error) : std::nullopt;
}

std::optional<QuillMessage> Connection::await(const UUID &messageID, const WaitLimits &limits,
                                              Error *error) {
  return waitUntil([&] { return takeResponse(messageID); }, limits, error);
}

std::optional<QuillMessage> Connection::receive(const WaitLimits &limits, Error *error) {
  return waitUntil([&] { return take(); }, limits, error);
}

std::optional<QuillMessage> Connection::waitUntil(const Take &take, const WaitLimits &limits,
                                                  Error *error) {
  while (true) {
    if (auto message = take()) {
      return message;
    }
    if (end_) {
      if (error != nullptr) {
        *error = *end_;
      }
      return std::nullopt;
    }
    if (std::chrono::steady_clock::now() >= limits.deadline) {
      base::report(error, kErrorDomain, timedOut, "no answer in time");
      return std::nullopt;
    }
    // data that TLS has buffered already does not make the socket readable
    if (hasMore_ ? checkStopped(limits, error)
                 : !waitFor(socket_.get(), wantsWrite(), limits, error)) {
      return std::nullopt;
    }
    pump();
  }
}

bool Connection::pump() {
  hasMore_ = false;
  if (checkSocket()) {
    flush();
  }
  if (end_) {
    return false;
  }
  hasMore_ = readChunks();
  flush();  // reading may queue output: a key update or an alert
  return !end_;
}

// True if there may be more to read.
bool Connection::readChunks() {
  int chunks = 0;
  while (!end_ && chunks < kChunksPerPump && readChunk()) {
    ++chunks;
  }
  return !end_ && chunks == kChunksPerPump;
}

// True if a chunk was read. A connection that can't send is still read to its end.
bool Connection::readChunk() {
  ByteView chunk;
  switch (channel_.readChunk(buffer_, chunk)) {
    case Result::done:
      try {
        collect(chunk);
      } catch (...) {
        // The next chunk would be appended to an incomplete frame, so the connection ends. The text
        // is short enough to need no allocation.
        endWith(connectionLost, "out of memory");
        throw;
      }
      return true;
    case Result::wantsRead:
    case Result::wantsWrite:
      return false;
    case Result::ended:
      endWith(peerEnded, "the peer has ended the connection");
      return false;
    case Result::failed:
      endWith(connectionLost, "connection lost: " + channel_.errorText());
      return false;
  }
  return false;
}

void Connection::collect(ByteView chunk) {
  const auto collected = protocol::collectChunk(frame_, chunk);
  if (frame_.size() > kLargestFrame) {
    frame_ = CleansedBytes();
    endWith(connectionLost, "connection dropped: the peer sent a frame of more than 16 MiB");
  } else if (collected.outcome == protocol::ChunkOutcome::frame && !collected.payload.empty()) {
    // an empty frame is a message that the peer could not serialize
    if (auto message = QuillMessage::initWithJSONData(collected.payload)) {
      enqueue(std::move(*message), collected.payload.size());
    }
  }
}

void Connection::enqueue(QuillMessage message, std::size_t bytes) {
  while (!queue_.empty() &&
         (queue_.size() >= kMaxQueuedMessages || queuedBytes_ + bytes > kMaxQueuedBytes)) {
    (void)takeAt(queue_.begin());
  }
  queue_.push_back({std::move(message), bytes});
  queuedBytes_ += bytes;
}

std::optional<QuillMessage> Connection::take() {
  return takeAt(queue_.begin());
}

std::optional<QuillMessage> Connection::takeResponse(const UUID &messageID) {
  return takeAt(std::ranges::find_if(queue_, [&](const QueuedMessage &queued) {
    return queued.message.messageType == QuillMessageTypeResponse &&
           queued.message.messageID == messageID;
  }));
}

std::optional<QuillMessage> Connection::takeAt(const std::deque<QueuedMessage>::iterator &place) {
  if (place == queue_.end()) {
    return std::nullopt;
  }
  std::optional<QuillMessage> message(std::move(place->message));
  queuedBytes_ -= place->bytes;
  queue_.erase(place);
  return message;
}

void Connection::flush() {
  if (!end_ && channel_.flush() == Result::failed) {
    // Read what has arrived before ending the connection: it may contain the answer.
    while (readChunks()) {
    }
    endWith(connectionLost, "connection lost: " + channel_.errorText());
  }
}

void Connection::endWith(ErrorCode code, std::string description) {
  if (!end_) {
    end_ = Error{kErrorDomain, code, std::move(description)};
  }
}

void Connection::close(const WaitLimits &limits) {
  if (!checkSocket() || end_) {
    return;
  }
  channel_.sendCloseNotify();
  flush();
  while (wantsWrite() && base::waitToWrite(socket_.get(), limits.deadline)) {
    flush();
  }
  (void)::shutdown(socket_.get(), SHUT_WR);
  // closing a socket with unread data would reset the connection
  while (!end_ && base::waitToRead(socket_.get(), limits.deadline)) {
    (void)readChunks();
  }
  endWith(stopped, "the connection was closed from this side");
}

void Connection::abandon() {
  if (checkSocket()) {
    socket_.close();
  }
  endWith(stopped, "the connection belongs to another process");
}

}  // namespace client
