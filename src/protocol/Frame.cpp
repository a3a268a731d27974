#include "protocol/Frame.hpp"

#include "protocol/JSONCodec.hpp"

namespace protocol {
namespace {

// A buffer that has grown beyond this is not kept for the next frame.
constexpr std::size_t kKeptCapacity = std::size_t{64} * 1024;

// Room for a signature's request or answer.
constexpr std::size_t kUsualFrame = 1024;

void startAfresh(CleansedBytes &dataBuffer) {
  if (dataBuffer.capacity() > kKeptCapacity) {
    dataBuffer = CleansedBytes();
  }
  dataBuffer.clear();
}

}  // namespace

CollectedChunk collectChunk(CleansedBytes &dataBuffer, ByteView chunk) {
  if (chunk.size() <= kDroppedChunkBytes) {
    return {ChunkOutcome::tooSmall, {}};
  }
  if (base::textOf(chunk).starts_with(kFrameStart)) {
    startAfresh(dataBuffer);
  }
  base::append(dataBuffer, chunk);
  const ByteView buffer(dataBuffer);
  // a chunk that is only the end marker is no frame: the start marker is missing
  if (!base::textOf(buffer).ends_with(kFrameEnd) ||
      buffer.size() < kFrameStart.size() + kFrameEnd.size()) {
    return {ChunkOutcome::collecting, {}};
  }
  return {
      ChunkOutcome::frame,
      buffer.subspan(kFrameStart.size(), buffer.size() - kFrameStart.size() - kFrameEnd.size())};
}

CleansedBytes frameOf(const QuillMessage &message) {
  CleansedBytes frame;
  frame.reserve(kUsualFrame);
  base::append(frame, base::viewOf(kFrameStart));
  appendJSON(frame, message);
  base::append(frame, base::viewOf(kFrameEnd));
  return frame;
}

}  // namespace protocol
