// The bind line of any listing is one line of it, behind at least two others.

#include <algorithm>
#include <cstdlib>

#include "base/UTF8.hpp"
#include "requests/PairingListing.hpp"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size) {
  const std::string_view listing = base::textOf({data, size});
  const auto line = requests::findBindLine({data, size});
  if (!line) {
    return 0;
  }
  const std::string_view before(listing.data(), line->data());
  if (std::ranges::count(before, '\n') < 2 || line->find('\n') != std::string_view::npos ||
      base::firstCharacters(*line, 40).size() > line->size()) {
    std::abort();
  }
  return 0;
}
