// Any account file is read to its end or refused, and gives accounts of the asked name alone.

#include "Expect.hpp"
#include "base/AccountFile.hpp"
#include "base/Bytes.hpp"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size) {
  Bytes content(data, data + size);
  const auto accounts = base::accountsIn(content, "ann");
  for (const auto &account : accounts.value_or(std::vector<base::Account>{})) {
    expect(account.name == "ann");
  }
  return 0;
}
