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

  // Asks for the next chunk, again and again until the stream ends.
  void receiveLoopWithConnection(const std::shared_ptr<platform::Connection> &connection);

  // Sends a message as one frame; false, with a log line, if there is no connection any more.
  bool sendMessage(const QuillMessage &message);

  // The same with the frame that protocol::frameOf has made of the message.
  bool sendFrame(CleansedBytes frame, const QuillMessage &message);

  // Sends a message and ends the connection; the message still arrives.
  void sendMessageAndDisconnect(const QuillMessage &message);

  // Ends the connection, if there is one.
  void disconnect();

  // A client of the public port that has not authenticated: anybody.
  [[nodiscard]] bool isStranger() const { return !isLocal && !isAuthenticated; }

  // Rises from worker to worker, and with it the order of acceptance.
  const std::uint64_t number = nextNumber();
  bool isLocal = false;  // came in on the loopback listener
  bool isAuthenticated = false;
  std::uint64_t secondsUnauthenticated = 0;  // as far as they are counted
  ReceiveBlock receiveBlock;                 // called for every decoded message
  QuillMessage::Certificates certificates;
  std::optional<Bytes> challenge;
  std::optional<Bytes> authCertificate;
  std::optional<Bytes> selectedCertificateHash;
  // Whether a certificate of the list, by its digest, has the same key as authCertificate, as far
  // as it was asked for.
  std::map<Bytes, bool> keysAlike;
  std::shared_ptr<platform::Connection> g_inbound_connection;  // null once closed or cancelled
  DisconnectedBlock disconnectedBlock;                         // called when the connection ends
  CleansedBytes dataBuffer;                                    // the frame being collected

  // Posts "CVNNotificationConnectionDisconnected" with the worker as its object: the peer has ended
  // its stream. Set by the manager, which observes it.
  std::function<void(const Shared &worker)> postDisconnected;

  // Whether a list of certificates from this peer would count: if not, it is not even decoded.
  // Unset: it does.
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
