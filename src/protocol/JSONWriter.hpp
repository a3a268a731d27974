#pragma once

#include <initializer_list>
#include <string_view>

#include "base/Bytes.hpp"
#include "base/Secret.hpp"

namespace protocol {

// Writes compact JSON text straight into a buffer. "/" is escaped: all readers of the protocol
// accept that, and some expect it. The caller opens and closes brackets in the right order; the
// writer adds the commas.
class JSONWriter {
 public:
  explicit JSONWriter(CleansedBytes &output) : output_(output) {}

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
  // What stands before the next value: a comma or nothing.
  [[nodiscard]] std::string_view separator();
  void put(std::initializer_list<std::string_view> pieces);
  void putText(std::string_view characters, std::string_view end);
  void putEscaped(std::string_view characters);
  void putBase64(ByteView bytes);

  CleansedBytes &output_;
  bool needsComma_ = false;
};

}  // namespace protocol
