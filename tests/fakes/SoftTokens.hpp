#pragma once

#include <map>

#include "fakes/MadeKeys.hpp"
#include "fakes/TemporaryFolder.hpp"

namespace fakes {

inline constexpr const char *kSoftTokenModule = "/usr/lib/softhsm/libsofthsm2.so";

// Tokens in software, in a folder of the test's own: what this process and its children see of that
// module as long as this object lives. Labels and PINs hold no quotation marks.
class SoftTokens {
 public:
  SoftTokens() {
    std::filesystem::create_directory(folder_ / "tokens");
    std::filesystem::create_directory(moduleFolder());
    folder_.write("softhsm2.conf", "directories.tokendir = " + (folder_ / "tokens") +
                                       "\nobjectstore.backend = file\nlog.level = ERROR\n");
    setenv("SOFTHSM2_CONF", (folder_ / "softhsm2.conf").c_str(), /*overwrite=*/1);
    configure("soft", kSoftTokenModule);
  }
  ~SoftTokens() { unsetenv("SOFTHSM2_CONF"); }
  SoftTokens(const SoftTokens &) = delete;
  SoftTokens &operator=(const SoftTokens &) = delete;

  // Where the files lie that name the modules.
  [[nodiscard]] std::string moduleFolder() const { return folder_ / "modules"; }
  void configure(const std::string &name, const std::string &modulePath) const {
    folder_.write("modules/" + name + ".module", "module: " + modulePath + "\n");
  }

  // A new token whose PIN is `pin`.
  void make(const std::string &token, const std::string &pin) {
    run("softhsm2-util --init-token --free --so-pin officer --label '" + token + "' --pin '" + pin +
        "'");
    pins_[token] = pin;
  }

  // An identity on a token, with `id` as two hexadecimal digits. Its key shows without a login only
  // if it needs no PIN.
  void put(const std::string &token, const crypto::Identity &identity, const std::string &label,
           const std::string &id, bool needsPIN = true) const {
    folder_.write("identity.pem", pemOf(identity));
    const std::string file = folder_ / "identity.pem";
    const std::string object =
        " --pin '" + pins_.at(token) + "' --id " + id + " --label '" + label + "'";
    if (needsPIN) {
      run("softhsm2-util --import " + file + " --token '" + token + "'" + object);
    } else {
      run("GNUTLS_PIN='" + pins_.at(token) + "' p11tool --provider " + kSoftTokenModule +
          " --login --batch --write --no-mark-private --load-privkey " + file + " --id " + id +
          " --label '" + label + "' 'pkcs11:token=" + token + "'");
    }
    run("pkcs11-tool --module " + std::string(kSoftTokenModule) + " --token-label '" + token +
        "' --login --type cert --write-object " + file + object);
  }

  // Takes the token away.
  void remove(const std::string &token) const {
    run("softhsm2-util --delete-token --token '" + token + "'");
  }

 private:
  void run(const std::string &command) const {
    if (std::system((command + " >" + (folder_ / "log") + " 2>&1").c_str()) != 0) {
      throw std::runtime_error(command + ": " + folder_.read("log"));
    }
  }

  TemporaryFolder folder_;
  std::map<std::string, std::string> pins_;
};

}  // namespace fakes
