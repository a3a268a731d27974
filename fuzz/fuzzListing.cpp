// The bind line of any listing is one line of it, behind at least two others.

#include <algorithm>

#include "Expect.hpp"
#include "base/UTF8.hpp"
#include "requests/PairingListing.hpp"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size) {
  const std::string_view listing = base::textOf({data, size});
  if (const auto line = requests::findBindLine({data, size})) {
    const std::string_view before(listing.data(), line->data());
    expect(std::ranges::count(before, '\n') >= 2 && line->find('\n') == std::string_view::npos);
    expect(base::firstCharacters(*line, 40).size() <= line->size());
  }
  return 0;
}
