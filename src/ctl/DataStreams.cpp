#include "ctl/DataStreams.hpp"

#include <cstddef>
#include <istream>
#include <iterator>
#include <ostream>
#include <vector>

#include "base/Bytes.hpp"
#include "base/Files.hpp"
#include "encodings/HexString.hpp"

namespace ctl {
namespace {

constexpr std::size_t kLargestInput = std::size_t{256} * 1024 * 1024;

bool isStandard(const std::string &path) {
  return path.empty() || path == "-";
}

std::optional<CleansedBytes> readAll(std::istream &input, Failure &failure) {
  CleansedBytes content;
  std::vector<char, base::CleansingAllocator<char>> part(16384);
  while (input.read(part.data(), std::ssize(part)) || input.gcount() > 0) {
    const auto bytes = base::viewOf({part.data(), static_cast<std::size_t>(input.gcount())});
    content.insert(content.end(), bytes.begin(), bytes.end());
    if (content.size() > kLargestInput) {
      failure = {"standard input holds more than " + std::to_string(kLargestInput) + " bytes", ""};
      return std::nullopt;
    }
  }
  return content;
}

}  // namespace

std::optional<CleansedBytes> readInput(const std::string &path, Invocation &invocation,
                                       Failure &failure) {
  if (isStandard(path)) {
    return readAll(invocation.input, failure);
  }
  Error error;
  auto content = base::readFile(path, kLargestInput, &error);
  if (!content) {
    failure = {error.description, ""};
  }
  return content;
}

Outcome writeOutput(const std::string &path, ByteView content, unsigned mode,
                    Invocation &invocation) {
  if (!isStandard(path)) {
    Error error;
    return base::replaceFile(path, content, mode, &error) ? std::nullopt
                                                          : Outcome(Failure{error.description, ""});
  }
  if (invocation.outputIsTerminal) {
    invocation.output << encodings::base64EncodedString(content) << '\n';
  } else {
    invocation.output << base::textOf(content);
  }
  return std::nullopt;
}

}  // namespace ctl
