#pragma once

#include <chrono>
#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "base/Bytes.hpp"
#include "base/Secret.hpp"
#include "crypto/Identity.hpp"

namespace platform {

// One end of a connection, for people: an IPv4-mapped address is written as IPv4.
struct Endpoint {
  std::string host;
  std::uint16_t port = 0;
  // The unit in which connections are counted: an IPv4 address, or the /64 network of an IPv6
  // address, since a host usually has all addresses of its network.
  std::string source;
};

// The largest allowed amount, and the setting that gives it.
struct Limit {
  std::uint64_t most = 0;
  std::string_view setting;
};

// A limit that was reached, and its consequence for people ("connection from 192.0.2.7 refused").
struct ReachedLimit {
  Limit limit;
  std::string consequence;
};
using LimitReporter = std::function<void(const ReachedLimit &reached)>;

// What a receive delivers.
struct Chunk {
  ByteView content;  // borrowed for the time of the call; empty when none came
  bool isFinal =
      false;            // the peer has ended its stream, or the connection is lost: nothing follows
  int errorNumber = 0;  // an errno value; 0 when none came
};

enum class ConnectionState { waiting, preparing, ready, failed, cancelled };

// An established TLS connection. All calls and callbacks are on the main queue. It is shared;
// dropping the last reference closes it after its output has left, without a further callback.
class Connection {
 public:
  using StateHandler = std::function<void(ConnectionState state, int errorNumber)>;
  using ReceiveCompletion = std::function<void(const Chunk &chunk)>;
  using SendCompletion = std::function<void(int errorNumber)>;

  virtual ~Connection() = default;

  [[nodiscard]] virtual Endpoint peer() const = 0;

  // Sets the handler of state changes, which gets the errno value of a failure (0: none).
  // `ready` comes after start. A connection that is lost without a clean end first reports
  // `failed`, then its receive completes with the error as the final one; no other event follows.
  virtual void setStateHandler(StateHandler handler) = 0;

  // Starts reporting states and delivering data.
  virtual void start() = 0;

  // Asks for one chunk: the plaintext of one TLS record of at least one byte, and where that record
  // is of full size (16,384 bytes) and one of 8 bytes or fewer directly follows and is already
  // there, both together. At most one receive is outstanding. Never completes after cancel().
  virtual void receive(ReceiveCompletion completion) = 0;

  // Sends `unit` as one piece, after all that was sent before. Never blocks. Exactly one completion
  // comes on a later event, when the unit was handed to the system or can't be sent any more.
  virtual void send(CleansedBytes unit, SendCompletion completion) = 0;

  // Ends the connection from this side. What was sent before is still delivered. `cancelled` comes
  // on a later event, even if the last reference is dropped meanwhile; nothing more is received. A
  // second call does nothing.
  virtual void cancel() = 0;

  // The bytes that were sent and that the system has not taken yet.
  [[nodiscard]] virtual std::size_t unsentBytes() const = 0;

  // Tells how many bytes the owner holds of the frame that it collects, and of earlier frames. They
  // count against the limits of this connection; beyond a limit it is lost.
  virtual void setHeldBytes(std::size_t frameBytes, std::size_t otherBytes) = 0;

  // Tells whether the peer has authenticated. Connections of a public listener start without it;
  // all such connections together get at most half of the loop's time.
  virtual void setAuthenticated(bool isAuthenticated) = 0;

  // Tells that the owner has rejected a chunk or a frame. After a hundred of them within a second
  // this connection is not read for 100 ms.
  virtual void countRejection() = 0;
};

// The limits of one connection and of all together. Beyond a limit a connection is lost.
struct ConnectionLimits {
  Limit frameBytes;     // of the frame that its owner holds
  Limit unsentBytes;    // that wait to be sent on it
  Limit bufferedBytes;  // both, of all connections together: the one that holds most is lost
  Limit stalledOutput;  // how many seconds a peer may acknowledge nothing
};

enum class ListenerState { waiting, ready, failed, cancelled };

// The limits of a listener. It refuses before the handshake, so that no refusal ends an established
// connection.
struct ListenerLimits {
  std::chrono::milliseconds handshakeTime{0};  // while the loop runs; blocked time is not counted
  Limit handshakes;                            // unfinished ones
  Limit handshakesPerSource;                   // of a loopback listener: per user, root left out
  Limit connections;                           // established ones
  Limit connectionsPerSource;                  // of a loopback listener: per user, root left out
  std::optional<std::vector<std::uint32_t>> users;  // who may use a loopback listener beside root;
                                                    // nothing: everybody
};

struct ListenerParameters {
  std::string host;                                  // a numeric address; "::" takes IPv4 as well
  std::string port;                                  // decimal
  std::shared_ptr<const crypto::Identity> identity;  // shown to every client
  int keepaliveIdleSeconds = 0;
  int keepaliveIntervalSeconds = 0;
  int keepaliveCount = 0;
  bool isLoopback = false;  // connections are counted per user of this machine, not per address
  std::function<ListenerLimits()> limits;  // asked anew for each acceptance
};

// Accepts TLS connections over TCP. All calls and callbacks are on the main queue.
class Listener {
 public:
  using StateHandler = std::function<void(ListenerState state, int errorNumber)>;
  using ConnectionHandler = std::function<void(std::shared_ptr<Connection> connection)>;
  using FailedHandshakeHandler = std::function<void(const Endpoint &peer, int errorNumber)>;

  virtual ~Listener() = default;

  // The port that is listened on; before `ready` the one that was asked for.
  [[nodiscard]] virtual std::uint16_t port() const = 0;

  virtual void setStateHandler(StateHandler handler) = 0;

  // Called for each connection when its handshake is done, in the order in which handshakes finish.
  virtual void setConnectionHandler(ConnectionHandler handler) = 0;

  // Called for each connection whose handshake failed or took too long; no connection comes of it.
  virtual void setFailedHandshakeHandler(FailedHandshakeHandler handler) = 0;

  // Binds and listens. The state handler hears the result on a later event: `ready`, or `failed`
  // for good (a port in use, an address of another machine).
  virtual void start() = 0;
};

class Network {
 public:
  virtual ~Network() = default;

  // A listener that has not started yet.
  [[nodiscard]] virtual std::unique_ptr<Listener> createListener(
      const ListenerParameters &parameters) = 0;

  // Which program of this machine listens on a TCP port, for people: "NAME (process NUMBER)".
  // Nothing if that can't be told.
  [[nodiscard]] virtual std::optional<std::string> ownerOfPort(std::uint16_t port) = 0;
};

}  // namespace platform
