#include <CLI/CLI.hpp>
#include <algorithm>
#include <memory>
#include <ostream>
#include <string_view>
#include <vector>

#include "base/DisplayText.hpp"
#include "ctl/CommandLine.hpp"
#include "ctl/Commands.hpp"
#include "ctl/Facts.hpp"
#include "ctl/StoredSettings.hpp"
#include "settings/SettingFaults.hpp"

namespace ctl {
namespace {

using platform_linux::SettingsFile;
using settings::SettingFault;

struct DefaultsOptions {
  std::string key;
  std::string value;
};

constexpr std::string_view kDomains[] = {settings::kIdentityDomain, platform::kStandardDefaults,
                                         settings::kDriverDomain};

Failure unknownKey(const DefaultsOptions &options, const char *command) {
  return {"there is no setting \"" + options.key + "\"",
          std::string("kfyctl defaults ") + command + " " + nearestKnownKey(options.key) +
              (options.value.empty() ? "" : " " + options.value),
          exitWrongCommandLine};
}

// The facts about one setting; `fault` is null if it is correct.
Facts settingFacts(const std::string &key, std::string_view domain, const std::string &value,
                   bool isSet, const SettingFault *fault) {
  const auto *const known = settings::settingWithKey(key, domain);
  return {{"key", "setting", key},
          {"domain", "domain", std::string(domain)},
          {"value", "value", value},
          {"set", "set", isSet},
          {"meaning", "meaning", known == nullptr ? "not known to kfyd" : known->meaning},
          {"wrong", "wrong", fault == nullptr ? "" : fault->wrong},
          {"inForce", "in force", fault == nullptr ? value : fault->inForce},
          {"nearest", "nearest", fault == nullptr ? "" : fault->nearest}};
}

// A row for people: the setting, and below it its fault.
std::string rowOf(const Facts &facts, const SettingFault *fault) {
  const auto text = [&](std::size_t index) { return std::get<std::string>(facts[index].value); };
  const bool isSet = std::get<bool>(facts[3].value);
  const std::string value = text(2).empty() && !isSet ? "(not set)" : text(2);
  const char *const origin = isSet || text(2).empty() ? "" : " (default)";
  std::string row = base::displayText(text(0) + " = " + value + origin + "  # " + text(4)) + "\n";
  return fault == nullptr ? row : row + "  ! " + base::displayText(settings::lineOf(*fault)) + "\n";
}

struct Listing {
  std::vector<Facts> facts;
  std::string text;

  void add(const Facts &of, const SettingFault *fault) {
    facts.push_back(of);
    text += rowOf(of, fault);
  }
};

// The settings in one file, known or not, then the known ones that are not set.
void addDomain(Listing &listing, std::string_view domain,
               const std::vector<platform_linux::Setting> &settings) {
  const auto faults = settings::faultsIn(domain, settings);
  for (const platform_linux::Setting &setting : settings) {
    const auto fault = std::ranges::find(faults, setting.key, &SettingFault::key);
    const SettingFault *const found = fault == faults.end() ? nullptr : &*fault;
    listing.add(
        settingFacts(setting.key, domain, settings::written(setting.value), /*isSet=*/true, found),
        found);
  }
  for (const settings::Setting *known : settings::kSettings) {
    if (known->domain == domain &&
        std::ranges::find(settings, known->key, &platform_linux::Setting::key) == settings.end()) {
      listing.add(
          settingFacts(known->key, domain, settings::writtenDefault(*known), /*isSet=*/false,
                       /*fault=*/nullptr),
          /*fault=*/nullptr);
    }
  }
}

Outcome listDefaults(Invocation &invocation) {
  Listing listing;
  for (const std::string_view domain : kDomains) {
    Error error;
    const auto settings = SettingsFile(pathOfDomain(domain)).readAll(&error);
    if (!settings) {
      return failureFrom(error, "kfyctl defaults list");
    }
    addDomain(listing, domain, *settings);
  }
  invocation.output << (invocation.json ? jsonOf(listing.facts) : listing.text);
  return std::nullopt;
}

Outcome readDefault(const DefaultsOptions &options, Invocation &invocation) {
  const auto *const known = knownSetting(options.key);
  if (known == nullptr) {
    return unknownKey(options, "read");
  }
  Error error;
  const auto stored = storedSetting(known->domain, known->key, &error);
  if (!stored && !error.description.empty()) {
    return failureFrom(error, "kfyctl defaults read " + options.key);
  }
  const std::string value = stored ? settings::written(*stored) : settings::writtenDefault(*known);
  if (value.empty()) {
    return Failure{options.key + " is not set", "kfyctl defaults write " + options.key + " VALUE"};
  }
  const std::vector<platform_linux::Setting> all{{options.key, stored.value_or(value)}};
  const auto faults = stored ? settings::faultsIn(known->domain, all) : std::vector<SettingFault>();
  invocation.output << (invocation.json
                            ? jsonOf(settingFacts(options.key, known->domain, value,
                                                  /*isSet=*/stored.has_value(),
                                                  faults.empty() ? nullptr : &faults.front()))
                            : value + "\n");
  return std::nullopt;
}

Outcome writeDefault(const DefaultsOptions &options, Invocation & /*invocation*/) {
  const auto *const known = knownSetting(options.key);
  if (known == nullptr) {
    return unknownKey(options, "write");
  }
  Error error;
  const auto value = settingValueFrom(*known, options.value, &error);
  if (!value) {
    return Failure{error.description, "kfyctl defaults list", exitWrongCommandLine};
  }
  if (!SettingsFile(pathOfDomain(known->domain)).set(options.key, *value, &error)) {
    return failureFrom(error, "kfyctl defaults write " + options.key + " " + options.value);
  }
  return std::nullopt;
}

Outcome deleteDefault(const DefaultsOptions &options, Invocation & /*invocation*/) {
  const auto *const known = knownSetting(options.key);
  if (known == nullptr) {
    return unknownKey(options, "delete");
  }
  Error error;
  if (!SettingsFile(pathOfDomain(known->domain)).remove(options.key, &error)) {
    return failureFrom(error, "kfyctl defaults delete " + options.key);
  }
  return std::nullopt;
}

struct DefaultsCommand {
  const char *name;
  const char *description;
  bool takesValue;
  bool answers;
  Outcome (*run)(const DefaultsOptions &, Invocation &);
};

constexpr DefaultsCommand kDefaultsCommands[] = {
    {"read", "print one setting", false, true, readDefault},
    {"write", "set one setting", true, false, writeDefault},
    {"delete", "go back to the default", false, false, deleteDefault},
};

}  // namespace

void addDefaultsCommands(CLI::App &app, Invocation &invocation) {
  CLI::App *const group = app.add_subcommand("defaults", "settings of kfyd");
  group->require_subcommand(1);
  CLI::App *const list = group->add_subcommand("list", "all settings and what they mean");
  addJSONOption(*list, invocation);
  list->callback([&invocation] { invocation.outcome = listDefaults(invocation); });

  for (const DefaultsCommand &row : kDefaultsCommands) {
    const auto options = std::make_shared<DefaultsOptions>();
    CLI::App *const command = group->add_subcommand(row.name, row.description);
    command->add_option("KEY", options->key, "the setting")->required();
    if (row.takesValue) {
      command->add_option("VALUE", options->value, "its new value")->required();
    }
    if (row.answers) {
      addJSONOption(*command, invocation);
    }
    command->callback(
        [options, &invocation, run = row.run] { invocation.outcome = run(*options, invocation); });
  }
}

}  // namespace ctl
