#pragma once

#include <cstddef>
#include <string_view>

#include "base/Bytes.hpp"
#include "base/Secret.hpp"
#include "protocol/QuillMessage.hpp"

namespace protocol {

// A frame is the start marker, a message's JSON text and the end marker: no length, no escaping,
// nothing between frames. It begins where a chunk begins and ends where a chunk ends.
inline constexpr std::string_view kFrameStart = "[DATA]";
inline constexpr std::string_view kFrameEnd = "[ENDDATA]";

// Chunks of this many bytes or fewer are dropped.
inline constexpr std::size_t kDroppedChunkBytes = 8;

enum class ChunkOutcome { tooSmall, collecting, frame };

struct CollectedChunk {
  ChunkOutcome outcome = ChunkOutcome::collecting;
  ByteView payload;  // of a frame: borrowed from the buffer, may be empty
};

// Adds a chunk to the buffer in which a connection collects its frames, and says whether it now
// ends with a frame. A chunk that begins with the start marker empties the buffer first; a complete
// frame stays in the buffer. Both sides of a connection use this rule.
[[nodiscard]] CollectedChunk collectChunk(CleansedBytes &dataBuffer, ByteView chunk);

// The message as a frame; the two markers alone if it can't be written as JSON.
[[nodiscard]] CleansedBytes frameOf(const QuillMessage &message);

}  // namespace protocol
