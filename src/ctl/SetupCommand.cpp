#include <CLI/CLI.hpp>
#include <memory>
#include <ostream>
#include <string>
#include <vector>

#include "base/DisplayText.hpp"
#include "base/Files.hpp"
#include "base/HostName.hpp"
#include "base/Root.hpp"
#include "ctl/Commands.hpp"
#include "ctl/DaemonState.hpp"
#include "ctl/Identities.hpp"
#include "ctl/StoredSettings.hpp"
#include "identity/FingerprintText.hpp"

namespace ctl {
namespace {

constexpr const char *kHardenedProfile = "/usr/share/keyferry/kfyd.toml";
constexpr std::size_t kLargestProfile = std::size_t{64} * 1024;

// Lets kfyd, which uses none, use an identity. Where the keychain holds none yet, one is made;
// where it holds a single one, that is taken. Among several nothing is chosen for the
// administrator: `failure` stays as it is.
std::optional<IdentityRecord> chooseFirstIdentity(const std::string &name, Invocation &invocation,
                                                  Failure &failure) {
  Failure unreadable;
  const auto present = allIdentities(invocation, unreadable);
  if (!present) {
    failure = std::move(unreadable);
    return std::nullopt;
  }
  if (present->size() > 1) {
    return std::nullopt;
  }
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
  const std::string path = pathOfDomain(platform::kStandardDefaults);
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

Outcome setUp(const std::string &commonName, Invocation &invocation) {
  const std::string name = commonName.empty() ? base::hostName() : commonName;
  Failure failure;
  auto record = identityInUse(invocation, failure);
  const bool isNew = !record;
  if (isNew) {
    record = chooseFirstIdentity(name, invocation, failure);
  }
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
  const auto name = std::make_shared<std::string>();
  CLI::App *const command =
      app.add_subcommand("setup", "give kfyd an identity if it has none, and say what comes next");
  command->add_option(
      "--common-name", *name,
      "the name under which devices reach this machine; default: the one it gives itself");
  command->callback([name, &invocation] { invocation.outcome = setUp(*name, invocation); });
}

}  // namespace ctl
