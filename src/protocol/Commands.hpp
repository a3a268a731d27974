#pragma once

#include <cstdint>
#include <span>
#include <string_view>

#include "protocol/MessageFields.hpp"

namespace protocol {

using FieldList = std::span<const Field *const>;

// What a request or a response of a command holds besides "type", "command" and "message_id". A
// response also has "status".
struct Form {
  const char *trace;                // when it is written
  FieldList required = {};          // without one of these the message can't be written
  FieldList emptyIfUnset = {};      // written as "" where not set
  const Field *optional = nullptr;  // written only where set
};

// A command: all that the protocol says of it. Who may send it, requests/Dispatcher says.
struct Command {
  QuillCommand command;
  std::string_view text;  // on the wire
  const char *trace;      // when it is read
  Form request;
  Form response;
  // Of a request for a key of the card, which the daemon passes to the key's holder: the hash of
  // the key's certificate. Null for all others.
  std::optional<Bytes> QuillMessage::*certificateHash = nullptr;
};

// Null if there is none.
[[nodiscard]] const Command *commandOf(std::int64_t command);
[[nodiscard]] const Command *commandNamed(std::string_view text);

// The form that a message of this command takes by its type.
[[nodiscard]] const Form &formOf(const Command &command, const QuillMessage &message);

// Sets what the message requires and does not have to empty values: so a refusal can be written.
void setRequiredEmpty(QuillMessage &message);

}  // namespace protocol
