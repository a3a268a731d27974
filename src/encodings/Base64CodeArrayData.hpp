#pragma once

#include <span>
#include <string>
#include <variant>
#include <vector>

#include "base/Bytes.hpp"

namespace encodings {

// A value that the array conversions do not change: its compact JSON text.
struct OtherValue {
  std::string json;

  friend bool operator==(const OtherValue &left, const OtherValue &right) = default;
};

// One element of an array of values.
using ArrayElement = std::variant<Bytes, std::string, OtherValue>;

// Replaces each byte buffer by its standard Base64 text, padded, on one line. Keeps all else.
[[nodiscard]] std::vector<ArrayElement> base64DataEncodedArray(std::span<const ArrayElement> array);

// Replaces each text by the bytes that dataFromBase64String decodes from it. Keeps all else.
[[nodiscard]] std::vector<ArrayElement> base64DecodedArray(std::span<const ArrayElement> array);

}  // namespace encodings
