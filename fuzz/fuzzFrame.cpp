// Chunks of a connection, against a second and simpler model of the framing. The input is a row of
// chunks, each behind one byte that says its length.

#include "Expect.hpp"
#include "Input.hpp"
#include "protocol/Frame.hpp"

namespace {

// The length that a byte says: itself, or from 0xF0 on a multiple of 256, to 4,096.
std::size_t lengthOf(std::uint8_t byte) {
  return byte < 0xF0 ? byte : (std::size_t{byte} - 0xEF) * 256;
}

// What a buffer ends with after a chunk, in the plainest words.
std::optional<std::string> modelOf(std::string &buffer, const std::string &chunk) {
  if (chunk.size() < 9) {
    return std::nullopt;
  }
  buffer = chunk.starts_with("[DATA]") ? chunk : buffer + chunk;
  if (buffer.size() < 15 || buffer.compare(buffer.size() - 9, 9, "[ENDDATA]") != 0) {
    return std::nullopt;
  }
  return buffer.substr(6, buffer.size() - 15);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size) {
  CleansedBytes buffer;
  std::string model;
  for (Input input({data, size}); !input.isAtEnd();) {
    const ByteView chunk = input.take(lengthOf(input.byte()));
    const auto collected = protocol::collectChunk(buffer, chunk);
    const auto expected = modelOf(model, std::string(base::textOf(chunk)));
    const bool isFrame = collected.outcome == protocol::ChunkOutcome::frame;
    expect(isFrame == expected.has_value() &&
           (!isFrame || base::textOf(collected.payload) == *expected));
  }
  return 0;
}
