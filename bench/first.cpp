// bench_first MODULE [PIN]: prints the times in µs of a fresh program's first steps with a PKCS #11
// module: until it is loaded and initialised, until it has found the key, and of its first
// signature.

#include <cstdio>
#include <exception>
#include <optional>

#include "Pkcs11Module.hpp"
#include "Statistics.hpp"

int main(int count, char **arguments) {
  try {
    bench::check(count == 2 || count == 3, "usage: bench_first MODULE [PIN]");
    std::optional<bench::Pkcs11Module> module;
    std::optional<bench::Pkcs11Module::Signer> signer;
    const double initialised =
        bench::timed([&] { module.emplace(arguments[1], count == 3 ? arguments[2] : ""); });
    const double found = bench::timed([&] { signer.emplace(*module); });
    const double signed_ = bench::timed([&] { signer->sign(); });
    std::printf("%.1f %.1f %.1f\n", initialised, found, signed_);
    return 0;
  } catch (const std::exception &failure) {
    std::fprintf(stderr, "bench_first: error: %s\n", failure.what());
    return 1;
  }
}
