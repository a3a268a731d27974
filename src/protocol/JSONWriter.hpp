#pragma once

#include <string_view>
#include <utility>

#include "base/Bytes.hpp"
#include "base/Secret.hpp"

namespace protocol {

// Writes compact JSON text straight into a buffer. "/" is escaped: all readers of the protocol
// accept that, and some expect it. The caller opens and closes brackets in the right order; the
// writer adds the commas.
class JSONWriter {
 public:
  JSONWriter() = default;
  // The text is appended to `beginning`.
  explicit JSONWriter(CleansedBytes &&beginning)
      : output_(std::move(beginning)), end_(output_.size()) {}

  // All that was written. The writer is of no use afterwards.
  [[nodiscard]] CleansedBytes take();

  void beginObject() { open('{'); }
  void endObject() { close('}'); }
  void beginArray() { open('['); }
  void endArray() { close(']'); }
  void key(std::string_view name);
  void text(std::string_view value);
  void boolean(bool value);
  // A text that is the Base64 form of the bytes, with CR LF after every 64 characters where
  // `separateLines`.
  void base64(ByteView bytes, bool separateLines);
  // Writes JSON text without changing it.
  void raw(std::string_view json);

 private:
  void open(char bracket);
  void close(char bracket);
  void putSeparator();
  void put(std::string_view characters);
  void putText(std::string_view characters);
  void putBase64(ByteView bytes);

  CleansedBytes output_;
  std::size_t end_ = 0;  // of what was written; what stands behind it is room
  bool needsComma_ = false;
};

}  // namespace protocol
