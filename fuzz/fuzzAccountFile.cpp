// Any account file is read to its end or refused, and gives accounts of the asked name alone.

#include <cstdlib>

#include "base/Bytes.hpp"
#include "linux/accounts/AccountFile.hpp"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size) {
  Bytes content(data, data + size);
  const auto accounts = platform_linux::accountsIn(content, "ann");
  for (const auto &account : accounts.value_or(std::vector<platform_linux::Account>{})) {
    if (account.name != "ann") {
      std::abort();
    }
  }
  return 0;
}
