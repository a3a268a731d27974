#include <unistd.h>

#include <CLI/CLI.hpp>
#include <array>
#include <memory>
#include <ostream>
#include <string>
#include <vector>

#include "base/DisplayText.hpp"
#include "base/Files.hpp"
#include "base/Root.hpp"
#include "ctl/Commands.hpp"
#include "ctl/DaemonState.hpp"
#include "ctl/Identities.hpp"
#include "identity/FingerprintText.hpp"

namespace ctl {
namespace {

constexpr const char *kSettingsPath = "/etc/keyferry/kfyd.toml";
constexpr const char *kHardenedProfile = "/usr/share/keyferry/kfyd.toml";
constexpr std::size_t kLargestProfile = std::size_t{64} * 1024;

std::string nameOfMachine() {
  std::array<char, 256> name{};
  (void)::gethostname(name.data(), name.size() - 1);
  return name.data();
}

// The identity that kfyd uses. Where the keychain holds none yet, one is made; where it holds a
// single one, that is taken. Among several nothing is chosen for the administrator.
std::optional<IdentityRecord> identityForUse(const std::string &name, bool &isNew,
                                             Invocation &invocation, Failure &failure) {
  if (auto used = identityInUse(invocation, failure)) {
    return used;
  }
  Failure unreadable;
  const auto present = allIdentities(invocation, unreadable);
  if (!present) {
    failure = std::move(unreadable);
    return std::nullopt;
  }
  if (present->size() > 1) {
    return std::nullopt;
  }
  isNew = true;
  auto record = present->empty()
                    ? makeIdentity(name, name, kDaysOfNewIdentities, invocation, failure)
                    : std::optional(present->front());
  if (!record) {
    return std::nullopt;
  }
  if (auto notUsed = useIdentity(*record)) {
    failure = std::move(*notUsed);
    return std::nullopt;
  }
  return record;
}

// A new installation begins hardened: where there are no settings, those that came with the
// programs are taken.
Outcome putSettings(Invocation &invocation) {
  const std::string path = base::rooted(kSettingsPath);
  const std::string profile = base::rooted(kHardenedProfile);
  Error error;
  if (base::fileExists(path) || !base::fileExists(profile)) {
    return std::nullopt;
  }
  const auto content = base::readFile(profile, kLargestProfile, &error);
  if (!content || !base::replaceFile(path, *content, 0644, &error)) {
    return failureFrom(error, "kfyctl setup");
  }
  invocation.notes << "kfyctl: hardened settings are now in " << path << '\n';
  return std::nullopt;
}

Outcome setUp(const std::string &name, Invocation &invocation) {
  Failure failure;
  bool isNew = false;
  const auto record = identityForUse(name, isNew, invocation, failure);
  if (!record) {
    return failure;
  }
  if (auto notPut = putSettings(invocation)) {
    return notPut;
  }
  Error ignored;
  const auto state = readDaemonState(&ignored);
  invocation.notes << "kfyctl: " << (isNew ? "kfyd will show" : "kfyd shows") << " \""
                   << base::displayText(labelOf(*record)) << "\", with the fingerprint\n";
  invocation.output << identity::fingerprintText(record->reference->certificate.sha256()) << '\n';
  if (!state || !state->isRunning) {
    invocation.notes << "kfyctl: start it: sudo systemctl enable --now kfyd.service\n";
  } else if (isNew) {
    invocation.notes << "kfyctl: start it anew: sudo systemctl restart kfyd.service\n";
  }
  invocation.notes << "kfyctl: then, on the device that holds the key: kfy-remote setup "
                   << base::displayText(name) << '\n'
                   << "kfyctl: and here, when it asks for that: sudo kfyctl pair USER\n";
  return std::nullopt;
}

}  // namespace

void addSetupCommand(CLI::App &app, Invocation &invocation) {
  const auto name = std::make_shared<std::string>(nameOfMachine());
  CLI::App *const command =
      app.add_subcommand("setup", "give kfyd an identity if it has none, and say what comes next");
  command->add_option("--common-name", *name,
                      "the name under which devices reach this machine; default: " + *name);
  command->callback([name, &invocation] { invocation.outcome = setUp(*name, invocation); });
}

}  // namespace ctl
