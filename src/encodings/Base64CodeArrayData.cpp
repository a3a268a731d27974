#include "encodings/Base64CodeArrayData.hpp"

#include "encodings/HexString.hpp"

namespace encodings {

std::vector<ArrayElement> base64DataEncodedArray(std::span<const ArrayElement> array) {
  std::vector<ArrayElement> encoded;
  encoded.reserve(array.size());
  for (const ArrayElement &element : array) {
    const Bytes *bytes = std::get_if<Bytes>(&element);
    encoded.push_back(bytes == nullptr
                          ? element
                          : ArrayElement(base64EncodeBytes(*bytes, /*separateLines=*/false)));
  }
  return encoded;
}

std::vector<ArrayElement> base64DecodedArray(std::span<const ArrayElement> array) {
  std::vector<ArrayElement> decoded;
  decoded.reserve(array.size());
  for (const ArrayElement &element : array) {
    const std::string *text = std::get_if<std::string>(&element);
    decoded.push_back(text == nullptr ? element : ArrayElement(dataFromBase64String(*text)));
  }
  return decoded;
}

}  // namespace encodings
