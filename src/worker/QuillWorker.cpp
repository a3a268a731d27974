#include "worker/QuillWorker.hpp"

#include <utility>

#include "encodings/HexString.hpp"
#include "logging/CVNLog.hpp"
#include "logging/StandardErrorLines.hpp"
#include "logging/UnauthenticatedLines.hpp"
#include "protocol/Frame.hpp"
#include "worker/ConnectionLines.hpp"

using encodings::Hex;

QuillWorker::Shared QuillWorker::initWithReceiveBlock(ReceiveBlock receiveBlock,
                                                      DisconnectedBlock disconnected) {
  const Shared worker(new QuillWorker);  // NOLINT: the constructor is private, make_shared can't
  worker->receiveBlock = std::move(receiveBlock);
  worker->disconnectedBlock = std::move(disconnected);
  return worker;
}

std::uint64_t QuillWorker::nextNumber() {
  static std::uint64_t last = 0;
  return ++last;
}

void QuillWorker::startConnection(std::shared_ptr<platform::Connection> connection) {
  g_inbound_connection = std::move(connection);
  // The callbacks outlive the worker and may be called after it has dropped the connection.
  g_inbound_connection->setStateHandler(
      [weak = weak_from_this(), peer = g_inbound_connection->peer()](
          platform::ConnectionState state, int errorNumber) {
        if (const Shared worker = weak.lock()) {
          worker->stateChanged(peer, state, errorNumber);
        }
      });
  g_inbound_connection->start();
}

void QuillWorker::stateChanged(const platform::Endpoint &peer, platform::ConnectionState state,
                               int errorNumber) {
  const logging::UnauthenticatedLines lines(isStranger());
  switch (state) {
    case platform::ConnectionState::waiting:
      logging::warn(errorNumber, "connect to %s port %u (%s) failed, is waiting", peer.host,
                    peer.port, "tcp");
      break;
    case platform::ConnectionState::preparing:
      break;
    case platform::ConnectionState::ready:
      logging::printToStandardError("Connection to %s port %u (%s) succeeded!\n", peer.host,
                                    peer.port, "tcp");
      break;
    case platform::ConnectionState::failed:
      worker::warnConnectionFailed(peer, errorNumber);
      break;
    case platform::ConnectionState::cancelled:
      CVNLog("connection cancelled");
      disconnectedBlock(shared_from_this(), /*error=*/std::nullopt);
      break;
  }
}

void QuillWorker::receiveLoopWithConnection(
    const std::shared_ptr<platform::Connection> &connection) {
  connection->receive([weak = weak_from_this(),
                       weakConnection = std::weak_ptr(connection)](const platform::Chunk &chunk) {
    const Shared worker = weak.lock();
    const std::shared_ptr<platform::Connection> from = weakConnection.lock();
    if (worker && from) {
      worker->received(from, chunk);
    }
  });
}

void QuillWorker::received(const std::shared_ptr<platform::Connection> &connection,
                           const platform::Chunk &chunk) {
  const logging::UnauthenticatedLines lines(isStranger());
  if (!chunk.content.empty()) {
    if (chunk.errorNumber != 0) {
      CVNLog("error receiving content");
    }
    receivedContent(chunk.content);
  }
  if (chunk.isFinal) {
    return peerEndedStream();
  }
  if (chunk.errorNumber == 0) {
    return receiveLoopWithConnection(connection);
  }
  CVNLog("error receiving");
}

void QuillWorker::receivedContent(ByteView content) {
  CVNLogDebug("%@", Hex{content});
  const protocol::CollectedChunk collected = protocol::collectChunk(dataBuffer, content);
  switch (collected.outcome) {
    case protocol::ChunkOutcome::tooSmall:
      CVNLog("data too small. ignoring");
      rejectedChunk();
      break;
    case protocol::ChunkOutcome::collecting:
      break;
    case protocol::ChunkOutcome::frame:
      receivedFrame(collected.payload);
      break;
  }
  if (g_inbound_connection) {
    g_inbound_connection->setAuthenticated(!isStranger());
    g_inbound_connection->setHeldBytes(dataBuffer.size(), certificates ? certificates->bytes() : 0);
  }
}

void QuillWorker::receivedFrame(ByteView payload) {
  const bool readsList = !mayBringList || mayBringList(*this);
  const auto message = QuillMessage::initWithJSONData(payload, readsList);
  if (!message) {
    return rejectedChunk();
  }
  if (receiveBlock) {
    receiveBlock(shared_from_this(), *message);
  }
}

void QuillWorker::rejectedChunk() {
  if (g_inbound_connection) {
    g_inbound_connection->countRejection();
  }
}

void QuillWorker::peerEndedStream() {
  const Shared self = shared_from_this();  // the registry drops its reference below
  g_inbound_connection.reset();
  CVNLogDebug("closing connection");
  if (postDisconnected) {
    postDisconnected(self);
  }
  disconnectedBlock(self, /*error=*/std::nullopt);
}

bool QuillWorker::sendMessage(const QuillMessage &message) {
  return sendFrame(protocol::frameOf(message), message);
}

bool QuillWorker::sendFrame(CleansedBytes frame, const QuillMessage &message) {
  CVNLog("sending message: %s", message);
  if (!g_inbound_connection) {
    CVNLog("connection dropped! Cannot send mesage : %s", Hex{frame});
    return false;
  }
  g_inbound_connection->send(std::move(frame), [isStranger = isStranger()](int errorNumber) {
    const logging::UnauthenticatedLines lines(isStranger);
    if (errorNumber != 0) {
      logging::warn(errorNumber, "write close error");
    }
  });
  return true;
}

void QuillWorker::sendMessageAndDisconnect(const QuillMessage &message) {
  sendMessage(message);
  disconnect();
}

void QuillWorker::disconnect() {
  const auto connection = std::exchange(g_inbound_connection, nullptr);
  if (!connection) {
    return;
  }
  // Keeps the worker alive until `cancelled` is reported, even if the registry drops it before.
  connection->setStateHandler([self = shared_from_this(), peer = connection->peer()](
                                  platform::ConnectionState state, int errorNumber) {
    self->stateChanged(peer, state, errorNumber);
  });
  connection->cancel();
  // Freed now: nothing reads these any more, but the worker may stay registered for long.
  certificates.reset();
  keysAlike.clear();
  dataBuffer = CleansedBytes();
}
