// The built module: its dependencies, its exported symbols, and its behaviour when a program ends.

#include <dlfcn.h>
#include <openssl/crypto.h>

#include <cstdio>
#include <cstdlib>

#include "driver/TokenUser.hpp"
#include "fakes/ChildProcess.hpp"

namespace driver {
namespace {

bool succeeds(const std::string &command) {
  return std::system(command.c_str()) == 0;
}

TEST(Module, NeedsAndShowsNothingElse) {
  const std::string needed = "objdump -p " KEYFERRY_MODULE " | grep NEEDED | grep ";
  EXPECT_TRUE(succeeds(needed + "-q 'libcrypto.so.3$'"));
  // Sanitizers add libraries of their own.
  EXPECT_FALSE(succeeds(needed + "-vE ' (lib(ssl|crypto|stdc[+]{2}|gcc_s|c|m|asan|ubsan|tsan)"
                                 "|ld-linux-x86-64)[.]so[.][0-9]$'"));
  const std::string symbols =
      "nm -D --format=just-symbols --without-symbol-versions " KEYFERRY_MODULE;
  EXPECT_TRUE(succeeds("test \"$(" + symbols + " --defined-only)\" = C_GetFunctionList"));
  EXPECT_TRUE(succeeds(symbols + " --undefined-only | grep -qx EVP_PKEY_free"));
  EXPECT_FALSE(succeeds(symbols + " --undefined-only | grep -x __cxa_atexit"))
      << "something would be destroyed while programs still call";
}

// Like a late exit handler: OpenSSL was shut down and the module unloaded. The trace shows the
// results of the calls.
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
