// The module as it is built: what it needs, what it shows, and how it behaves at a program's end.

#include <dlfcn.h>
#include <elf.h>
#include <gtest/gtest.h>
#include <openssl/crypto.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstring>
#include <fstream>
#include <iterator>
#include <set>
#include <string>
#include <vector>

#include "driver/Pkcs11.hpp"

namespace driver {
namespace {

// The dynamic section and symbols of a 64-bit ELF file.
class ModuleFile {
 public:
  explicit ModuleFile(const char *path) {
    std::ifstream file(path, std::ios::binary);
    content_.assign(std::istreambuf_iterator<char>(file), {});
    const auto header = at<Elf64_Ehdr>(0);
    for (std::size_t index = 0; index < header.e_shnum; ++index) {
      sections_.push_back(at<Elf64_Shdr>(header.e_shoff + index * header.e_shentsize));
    }
  }

  [[nodiscard]] std::set<std::string> needed() const {
    std::set<std::string> names;
    each<Elf64_Dyn>(SHT_DYNAMIC, [&](const Elf64_Dyn &entry, const char *texts) {
      if (entry.d_tag == DT_NEEDED) {
        names.insert(texts + entry.d_un.d_val);
      }
    });
    return names;
  }

  [[nodiscard]] std::set<std::string> symbols(bool exported) const {
    std::set<std::string> names;
    each<Elf64_Sym>(SHT_DYNSYM, [&](const Elf64_Sym &symbol, const char *texts) {
      if ((symbol.st_shndx != SHN_UNDEF) == exported) {
        names.insert(texts + symbol.st_name);
      }
    });
    return names;
  }

 private:
  template <typename T>
  [[nodiscard]] T at(std::size_t offset) const {
    T value;
    std::memcpy(&value, content_.data() + offset, sizeof value);
    return value;
  }

  template <typename T, typename Step>
  void each(std::uint32_t type, Step &&step) const {
    for (const Elf64_Shdr &section : sections_) {
      for (std::size_t offset = 0; section.sh_type == type && offset < section.sh_size;
           offset += sizeof(T)) {
        step(at<T>(section.sh_offset + offset),
             content_.data() + sections_.at(section.sh_link).sh_offset);
      }
    }
  }

  std::vector<char> content_;
  std::vector<Elf64_Shdr> sections_;
};

// Sanitizers bring libraries of their own.
TEST(Module, NeedsAndShowsNothingElse) {
  const ModuleFile module(KEYFERRY_MODULE);
  for (const std::string &name : module.needed()) {
    static const std::set<std::string> kAllowed{
        "libssl.so.3", "libcrypto.so.3", "libstdc++.so.6", "libgcc_s.so.1", "libc.so.6",
        "libm.so.6",   "libasan.so.8",   "libubsan.so.1",  "libtsan.so.2",  "ld-linux-x86-64.so.2"};
    EXPECT_TRUE(kAllowed.contains(name)) << name;
  }
  EXPECT_TRUE(module.needed().contains("libcrypto.so.3"));
  EXPECT_EQ(module.symbols(/*exported=*/true), std::set<std::string>{"C_GetFunctionList"});
  EXPECT_FALSE(module.symbols(/*exported=*/false).contains("__cxa_atexit"))
      << "something would be destroyed while programs still call";
}

// As from an exit handler that runs late: OpenSSL has been shut down, the module was unloaded.
TEST(Module, AnswersAfterTheLibraryWasShutDown) {
  const pid_t child = ::fork();
  if (child == 0) {
    void *const module = ::dlopen(KEYFERRY_MODULE, RTLD_NOW | RTLD_LOCAL);
    const auto get = reinterpret_cast<CK_C_GetFunctionList>(::dlsym(module, "C_GetFunctionList"));
    CK_FUNCTION_LIST *f = nullptr;
    CK_ULONG count = 0;
    if (get == nullptr || get(&f) != CKR_OK || f->C_Initialize(nullptr) != CKR_OK ||
        f->C_GetSlotList(CK_TRUE, nullptr, &count) != CKR_OK || count != 0) {
      ::_exit(1);
    }
    ::dlclose(module);
    OPENSSL_cleanup();
    const bool answers = f->C_CloseAllSessions(0) == CKR_CRYPTOKI_NOT_INITIALIZED &&
                         f->C_Finalize(nullptr) == CKR_OK &&
                         f->C_Finalize(nullptr) == CKR_CRYPTOKI_NOT_INITIALIZED;
    ::_exit(answers ? 0 : 2);
  }
  int status = -1;
  ASSERT_EQ(::waitpid(child, &status, 0), child);
  EXPECT_TRUE(WIFEXITED(status)) << "signal " << WTERMSIG(status);
  EXPECT_EQ(WEXITSTATUS(status), 0);
}

}  // namespace
}  // namespace driver
