// The module as it is built: what it needs, what it shows, and how it behaves at a program's end.

#include <dlfcn.h>
#include <openssl/crypto.h>

#include <array>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <set>
#include <string>

#include "driver/TokenUser.hpp"
#include "fakes/ChildProcess.hpp"

namespace driver {
namespace {

// The lines that a command prints about the module.
std::set<std::string> linesOf(const std::string &command) {
  const std::unique_ptr<FILE, int (*)(FILE *)> output(::popen(command.c_str(), "r"), ::pclose);
  std::set<std::string> lines;
  std::array<char, 4096> line{};
  while (std::fgets(line.data(), line.size(), output.get()) != nullptr) {
    lines.emplace(line.data(), std::strlen(line.data()) - 1);
  }
  return lines;
}

// Sanitizers bring libraries of their own.
TEST(Module, NeedsAndShowsNothingElse) {
  const auto needed = linesOf("objdump -p " KEYFERRY_MODULE " | sed -n 's/ *NEEDED *//p'");
  const std::string symbols =
      "nm -D --format=just-symbols --without-symbol-versions " KEYFERRY_MODULE;
  for (const std::string &name : needed) {
    static const std::set<std::string> kAllowed{
        "libssl.so.3", "libcrypto.so.3", "libstdc++.so.6", "libgcc_s.so.1", "libc.so.6",
        "libm.so.6",   "libasan.so.8",   "libubsan.so.1",  "libtsan.so.2",  "ld-linux-x86-64.so.2"};
    EXPECT_TRUE(kAllowed.contains(name)) << name;
  }
  EXPECT_TRUE(needed.contains("libcrypto.so.3"));
  EXPECT_EQ(linesOf(symbols + " --defined-only"), std::set<std::string>{"C_GetFunctionList"});
  const auto undefined = linesOf(symbols + " --undefined-only");
  EXPECT_TRUE(undefined.contains("EVP_PKEY_free"));
  EXPECT_FALSE(undefined.contains("__cxa_atexit"))
      << "something would be destroyed while programs still call";
}

// As from an exit handler that runs late: OpenSSL has been shut down, the module was unloaded. The
// trace tells what came of the calls.
TEST(Module, AnswersAfterTheLibraryWasShutDown) {
  const std::string trace = base::rooted("/tmp/trace");
  EXPECT_EQ(fakes::statusOfChild([&] {
              void *const module = ::dlopen(KEYFERRY_MODULE, RTLD_NOW | RTLD_LOCAL);
              const auto get =
                  reinterpret_cast<CK_C_GetFunctionList>(::dlsym(module, "C_GetFunctionList"));
              CK_FUNCTION_LIST *f = nullptr;
              CK_ULONG count = 0;
              ::setenv("KFY_PKCS11_DEBUG", "1", /*overwrite=*/1);
              if (get(&f) != CKR_OK || std::freopen(trace.c_str(), "w", stderr) == nullptr) {
                return 1;
              }
              f->C_Initialize(nullptr);
              f->C_GetSlotList(CK_TRUE, nullptr, &count);
              ::dlclose(module);
              OPENSSL_cleanup();
              f->C_CloseAllSessions(0);
              f->C_Finalize(nullptr);
              f->C_Finalize(nullptr);
              return count == 0 ? 0 : 2;
            }),
            0);
  std::ifstream file(trace);
  EXPECT_EQ(std::string(std::istreambuf_iterator<char>(file), {}),
            "kfy-pkcs11: C_Initialize: CKR_OK\n"
            "kfy-pkcs11: C_GetSlotList: CKR_OK\n"
            "kfy-pkcs11: C_CloseAllSessions: CKR_CRYPTOKI_NOT_INITIALIZED\n"
            "kfy-pkcs11: C_Finalize: CKR_OK\n"
            "kfy-pkcs11: C_Finalize: CKR_CRYPTOKI_NOT_INITIALIZED\n");
}

}  // namespace
}  // namespace driver
