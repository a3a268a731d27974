#pragma once

namespace client {

// The domain of this folder's errors, and their codes.
inline constexpr const char *kErrorDomain = "client";
enum ErrorCode : int {
  cannotResolve = 1,    // the host's name has no address
  unreachable = 2,      // refused, or no way to any of its addresses
  handshakeFailed = 3,  // somebody answers, but TLS does not come about
  keyNotPinned = 4,     // the verifier did not accept the certificate; nothing was sent
  timedOut = 5,         // the deadline has passed; the connection, if there was one, still stands
  peerEnded = 6,        // the peer has ended the connection in order
  connectionLost = 7,   // reset, keepalive, TLS error, or a frame beyond all bounds
  stopped = 8,          // the stop descriptor ended the wait
  notSendable = 9,      // the message lacks a field that its command requires
  pinUnusable = 10,     // the file with the pinned certificate can't be read or holds none
};

}  // namespace client
