#include "linux/tokens/Module.hpp"

#include <algorithm>
#include <cstdlib>
#include <filesystem>
#include <memory>
#include <string_view>

#include "base/Bytes.hpp"
#include "base/Files.hpp"

namespace platform_linux {
namespace {

namespace fs = std::filesystem;

constexpr const char *kOwnDriver = "kfy-pkcs11.so";
constexpr std::size_t kLargestModuleFile = 64 * 1024;

struct Free {
  void operator()(void *memory) const { std::free(memory); }  // NOLINT: p11-kit allocates so
};
using OwnedText = std::unique_ptr<char, Free>;

std::string textOr(char *allocated, const char *instead) {
  const OwnedText text(allocated);
  return text ? text.get() : instead;
}

std::string lastReason() {
  const char *const message = p11_kit_message();
  return message == nullptr ? "unknown error" : message;
}

bool isOwnDriver(const std::string &path) {
  return fs::path(path).filename() == kOwnDriver;
}

bool isTrustPolicy(CK_FUNCTION_LIST *module) {
  return textOr(p11_kit_config_option(module, "trust-policy"), "no") == "yes";
}

void startOne(CK_FUNCTION_LIST *loaded, const std::string &path, Modules &modules,
              const Report &report) {
  CK_RV result = CKR_OK;
  if (auto module = Module::start(loaded, result)) {
    modules.started.push_back(std::move(module));
  } else {
    report("PKCS #11 module " + path + " left out: " + p11_kit_strerror(result));
    modules.failure = modules.failure == CKR_OK ? result : modules.failure;
  }
}

Modules startConfigured(const Report &report) {
  using Loaded = std::unique_ptr<CK_FUNCTION_LIST *, Free>;
  const Loaded loaded(p11_kit_modules_load(/*reserved=*/nullptr, /*flags=*/0));
  if (!loaded) {
    report("no PKCS #11 module is used: " + lastReason());
    return {{}, CKR_GENERAL_ERROR};
  }
  // p11-kit skips a module that can't be loaded; the reason is its last message
  if (const char *const leftOut = p11_kit_message()) {
    report(std::string("a PKCS #11 module is left out: ") + leftOut);
  }
  Modules modules;
  for (CK_FUNCTION_LIST **each = loaded.get(); *each != nullptr; ++each) {
    const std::string path = textOr(p11_kit_module_get_filename(*each), "");
    if (isOwnDriver(path) || isTrustPolicy(*each)) {
      p11_kit_module_release(*each);
    } else {
      startOne(*each, path, modules, report);
    }
  }
  return modules;
}

// The value of the line "module:" in such a file; empty if it has none.
std::string modulePathIn(const std::string &file) {
  constexpr std::string_view kKey = "module:";
  const auto content = base::readFile(file, kLargestModuleFile);
  std::string_view rest = content ? base::textOf(*content) : std::string_view();
  while (!rest.empty()) {
    std::string_view line = rest.substr(0, rest.find('\n'));
    rest.remove_prefix(std::min(line.size() + 1, rest.size()));
    if (line.starts_with(kKey)) {
      line.remove_prefix(std::min(line.find_first_not_of(" \t", kKey.size()), line.size()));
      return std::string(line.substr(0, line.find_last_not_of(" \t\r") + 1));
    }
  }
  return "";
}

Modules startIn(const std::string &folder, const Report &report) {
  std::vector<std::string> files;
  std::error_code none;
  for (const auto &entry : fs::directory_iterator(folder, none)) {
    if (entry.path().extension() == ".module") {
      files.push_back(entry.path());
    }
  }
  std::ranges::sort(files);
  Modules modules;
  for (const std::string &file : files) {
    const std::string path = modulePathIn(file);
    if (isOwnDriver(path)) {
      continue;
    }
    if (!path.starts_with('/')) {
      report("PKCS #11 module left out: " + file + " names no absolute path");
    } else if (CK_FUNCTION_LIST *const loaded = p11_kit_module_load(path.c_str(), /*flags=*/0)) {
      startOne(loaded, path, modules, report);
    } else {
      report("PKCS #11 module " + path + " left out: " + lastReason());
    }
  }
  return modules;
}

}  // namespace

std::shared_ptr<Module> Module::start(CK_FUNCTION_LIST *functions, CK_RV &result) {
  result = p11_kit_module_initialize(functions);
  if (result != CKR_OK) {
    p11_kit_module_release(functions);
    return nullptr;
  }
  return std::shared_ptr<Module>(new Module(functions));
}

Module::~Module() {
  p11_kit_module_finalize(functions_);
  p11_kit_module_release(functions_);
}

Modules startModules(const std::optional<std::string> &folder, const Report &report) {
  p11_kit_be_quiet();  // otherwise it writes to standard error
  return folder ? startIn(*folder, report) : startConfigured(report);
}

}  // namespace platform_linux
