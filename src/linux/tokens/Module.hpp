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

// A PKCS #11 module that is loaded and initialised, until this goes. Not every module takes calls
// from several threads, so whoever calls holds `mutex`.
class Module {
 public:
  // Takes over a module that was loaded. Null, with what it answered, if it does not start.
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

// Gets a line about what could not be used.
using Report = std::function<void(const std::string &line)>;

// The modules in use, and the first failure of one that was to be among them.
struct Modules {
  std::vector<std::shared_ptr<Module>> started;
  CK_RV failure = CKR_OK;
};

// Loads and starts the modules, in a stable order: those that p11-kit's configuration names for
// this machine, or with `folder` those that its files "*.module" name, by the files' names (the
// same form, of which the line "module:" with an absolute path counts). Left out are modules that
// fail, with a line, our own token driver, which would ask the very daemon that asks it, and
// modules that only say whom to trust. A module that is not installed is no failure.
[[nodiscard]] Modules startModules(const std::optional<std::string> &folder, const Report &report);

}  // namespace platform_linux
