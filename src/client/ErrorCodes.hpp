#pragma once

namespace client {

// The error domain and the error codes of this folder.
inline constexpr const char *kErrorDomain = "client";
enum ErrorCode : int {
  cannotResolve = 1,    // the host name has no address
  unreachable = 2,      // connection refused, or no route to any address
  handshakeFailed = 3,  // the TLS handshake failed
  keyNotPinned = 4,     // the verifier rejected the certificate; nothing was sent
  timedOut = 5,         // the deadline passed; an existing connection stays open
  peerEnded = 6,        // the peer closed the connection
  connectionLost = 7,   // reset, keepalive timeout, TLS error, or an oversized frame
  stopped = 8,          // the stop descriptor became readable
  notSendable = 9,      // the message lacks a field that its command requires
  pinUnusable = 10,     // the file with the pinned certificate can't be read or holds none
};

}  // namespace client
