#pragma once

#include <cstdint>
#include <span>
#include <string_view>

#include "protocol/MessageFields.hpp"

namespace protocol {

using FieldList = std::span<const Field *const>;

// The fields of a command's request or response besides "type", "command" and "message_id". A
// response also has "status".
struct Form {
  const char *trace;                // when it is written
  FieldList required = {};          // without one of these the message can't be written
  FieldList emptyIfUnset = {};      // written as "" where not set
  const Field *optional = nullptr;  // written only where set
};

// All that the protocol says of a command. Who may send it stands in requests/Dispatcher.
struct Command {
  QuillCommand command;
  std::string_view text;  // on the wire
  const char *trace;      // when it is read
  Form request;
  Form response;
  // The field with the hash of the key's certificate, in requests that the daemon relays to the
  // key's holder. Null for commands that are not relayed.
  std::optional<Bytes> QuillMessage::*certificateHash = nullptr;
};

// Null if there is no such command.
[[nodiscard]] const Command *commandOf(std::int64_t command);
[[nodiscard]] const Command *commandNamed(std::string_view text);

// The command's request form or response form, depending on the message's type.
[[nodiscard]] const Form &formOf(const Command &command, const QuillMessage &message);

// Sets missing required fields to empty values, so that a refusal can be encoded.
void setRequiredEmpty(QuillMessage &message);

}  // namespace protocol
