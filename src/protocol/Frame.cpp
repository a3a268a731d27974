#include "protocol/Frame.hpp"

#include "protocol/JSONCodec.hpp"

namespace protocol {
namespace {

// A buffer that has grown beyond this is not kept for the next frame.
constexpr std::size_t kKeptCapacity = std::size_t{64} * 1024;

void startAfresh(CleansedBytes &dataBuffer) {
  if (dataBuffer.capacity() > kKeptCapacity) {
    dataBuffer = CleansedBytes();
  }
  dataBuffer.clear();
}

void append(CleansedBytes &buffer, ByteView bytes) {
  buffer.insert(buffer.end(), bytes.begin(), bytes.end());
}

}  // namespace

CollectedChunk collectChunk(CleansedBytes &dataBuffer, ByteView chunk) {
  if (chunk.size() <= kDroppedChunkBytes) {
    return {ChunkOutcome::tooSmall, {}};
  }
  if (base::textOf(chunk).starts_with(kFrameStart)) {
    startAfresh(dataBuffer);
  }
  append(dataBuffer, chunk);
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
  append(frame, base::viewOf(kFrameStart));
  appendJSON(frame, message);
  append(frame, base::viewOf(kFrameEnd));
  return frame;
}

}  // namespace protocol
