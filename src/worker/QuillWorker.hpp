#pragma once

#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <string>

#include "base/Bytes.hpp"
#include "base/Secret.hpp"
#include "platform/Network.hpp"
#include "protocol/QuillMessage.hpp"

// One accepted connection: cuts its stream into messages, sends messages as frames, reports the
// connection's end, and carries what the request processor keeps for this peer. Everything happens
// on the main queue.
class QuillWorker : public std::enable_shared_from_this<QuillWorker> {
 public:
  using Shared = std::shared_ptr<QuillWorker>;
  using ReceiveBlock = std::function<void(const Shared &worker, const QuillMessage &message)>;
  using DisconnectedBlock =
      std::function<void(const Shared &worker, const std::optional<std::string> &error)>;

  // A worker without a connection yet.
  [[nodiscard]] static Shared initWithReceiveBlock(ReceiveBlock receiveBlock,
                                                   DisconnectedBlock disconnected);

  // Takes the connection, reports its states and starts it.
  void startConnection(std::shared_ptr<platform::Connection> connection);

  // Receives chunk after chunk until the stream ends.
  void receiveLoopWithConnection(const std::shared_ptr<platform::Connection> &connection);

  // Sends a message as one frame; false, with a log line, if there is no connection any more.
  bool sendMessage(const QuillMessage &message);

  // The same with the frame that protocol::frameOf has made of the message.
  bool sendFrame(CleansedBytes frame, const QuillMessage &message);

  // Sends a message and ends the connection. The message is still delivered.
  void sendMessageAndDisconnect(const QuillMessage &message);

  // Ends the connection, if there is one.
  void disconnect();

  // True for a client of the public port that has not authenticated.
  [[nodiscard]] bool isStranger() const { return !isLocal && !isAuthenticated; }

  // Unique; workers that were accepted later have larger numbers.
  const std::uint64_t number = nextNumber();
  bool isLocal = false;  // came in on the loopback listener
  bool isAuthenticated = false;
  std::uint64_t secondsUnauthenticated = 0;  // counted only with a time limit set
  ReceiveBlock receiveBlock;                 // called for every decoded message
  QuillMessage::Certificates certificates;
  std::optional<Bytes> challenge;
  std::optional<Bytes> authCertificate;
  std::optional<Bytes> selectedCertificateHash;
  // A cache of comparisons: by the digest of a certificate in the list, true if it has the same key
  // as authCertificate.
  std::map<Bytes, bool> keysAlike;
  std::shared_ptr<platform::Connection> g_inbound_connection;  // null once closed or cancelled
  DisconnectedBlock disconnectedBlock;                         // called when the connection ends
  CleansedBytes dataBuffer;                                    // the frame being collected

  // Posts "CVNNotificationConnectionDisconnected" with the worker as its object: the peer has ended
  // its stream. Set by the manager, which observes it.
  std::function<void(const Shared &worker)> postDisconnected;

  // False if a list of certificates from this peer would be refused: then it is not decoded. Unset:
  // every list is decoded.
  std::function<bool(const QuillWorker &worker)> mayBringList;

 private:
  QuillWorker() = default;
  static std::uint64_t nextNumber();

  void stateChanged(const platform::Endpoint &peer, platform::ConnectionState state,
                    int errorNumber);
  void received(const std::shared_ptr<platform::Connection> &connection,
                const platform::Chunk &chunk);
  void receivedContent(ByteView content);
  void receivedFrame(ByteView payload);
  void rejectedChunk();
  void peerEndedStream();
};
