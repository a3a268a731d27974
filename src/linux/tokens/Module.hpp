#pragma once

#include <p11-kit/p11-kit.h>
#include <p11-kit/pkcs11.h>

#include <functional>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <vector>

namespace platform_linux {

// A loaded and initialised PKCS #11 module; finalised and unloaded on destruction. Not every module
// is thread-safe: hold `mutex` during each call.
class Module {
 public:
  // Takes ownership of a loaded module and initialises it. Null, with its answer, if that fails.
  [[nodiscard]] static std::shared_ptr<Module> start(CK_FUNCTION_LIST *functions, CK_RV &result);
  ~Module();
  Module(const Module &) = delete;
  Module &operator=(const Module &) = delete;

  [[nodiscard]] const CK_FUNCTION_LIST &functions() const { return *functions_; }

  std::mutex mutex;

 private:
  explicit Module(CK_FUNCTION_LIST *functions) : functions_(functions) {}

  CK_FUNCTION_LIST *functions_;
};

// Receives one line about each thing that could not be used.
using Report = std::function<void(const std::string &line)>;

// The modules that started, and the first failure of one that did not.
struct Modules {
  std::vector<std::shared_ptr<Module>> started;
  CK_RV failure = CKR_OK;
};

// Loads and initialises modules, in a stable order: those that p11-kit's configuration names for
// this machine or, with `folder`, those named by its files "*.module", sorted by file name
// (p11-kit's file format, of which only the line "module:" with an absolute path is read). Three
// kinds are left out: modules that fail, with a line; our own token driver, which would ask this
// very daemon; and modules that hold only trust anchors. A module that is not installed is no
// failure.
[[nodiscard]] Modules startModules(const std::optional<std::string> &folder, const Report &report);

}  // namespace platform_linux
