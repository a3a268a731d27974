#pragma once

#include <span>
#include <string>
#include <variant>
#include <vector>

#include "base/Bytes.hpp"

namespace encodings {

// A value that the array conversions pass through: its compact JSON text.
struct OtherValue {
  std::string json;

  friend bool operator==(const OtherValue &left, const OtherValue &right) = default;
};

// One element of an array of values.
using ArrayElement = std::variant<Bytes, std::string, OtherValue>;

// Replaces each byte buffer by its standard Base64 text, padded, on one line; all else stays.
[[nodiscard]] std::vector<ArrayElement> base64DataEncodedArray(std::span<const ArrayElement> array);

// Replaces each text by what dataFromBase64String reads in it; all else stays.
[[nodiscard]] std::vector<ArrayElement> base64DecodedArray(std::span<const ArrayElement> array);

}  // namespace encodings
