#pragma once

#include "base/Secret.hpp"
#include "protocol/QuillMessage.hpp"

namespace protocol {

// Appends the message's JSON text to `output`, straight into the frame that is being built. False,
// with the log lines of QuillMessage::json and nothing appended, if the message can't be written.
bool appendJSON(CleansedBytes &output, const QuillMessage &message);

}  // namespace protocol
