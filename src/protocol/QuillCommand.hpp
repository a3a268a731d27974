#pragma once

#include <cstdint>

// What a message asks for or answers. Carried in QuillMessage as a number, since a peer may send
// any.
enum QuillCommand : std::int64_t {
  QuillCommandConnect = 0,
  QuillCommandAuthenticate = 1,
  QuillCommandInsert = 2,
  QuillCommandRemove = 3,
  QuillCommandGetCertificates = 4,
  QuillCommandSignData = 5,
  QuillCommandCreateEmphemeralUser = 6,
  QuillCommandDecryptData = 7,
};

enum QuillMessageType : std::int64_t {
  QuillMessageTypeRequest = 0,
  QuillMessageTypeResponse = 1,
};
