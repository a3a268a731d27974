#include <CLI/CLI.hpp>
#include <algorithm>
#include <memory>
#include <ostream>

#include "base/DisplayText.hpp"
#include "ctl/CommandLine.hpp"
#include "ctl/Commands.hpp"
#include "ctl/Facts.hpp"
#include "ctl/KnownSettings.hpp"

namespace ctl {
namespace {

using platform_linux::Setting;
using platform_linux::SettingsFile;

struct Options {
  std::string key;
  std::string value;
};

constexpr const char *kDomains[] = {kIdentityDomain, "kfyd", "pkcs11"};

Failure unknownKey(const Options &options, const char *command) {
  return {"there is no setting \"" + options.key + "\"",
          std::string("kfyctl defaults ") + command + " " + nearestKnownKey(options.key) +
              (options.value.empty() ? "" : " " + options.value),
          exitWrongCommandLine};
}

Facts factsOf(const std::string &key, const std::string &domain, const std::string &value,
              bool isSet) {
  const KnownSetting *const known = knownSetting(key);
  return {{"key", "setting", key},
          {"domain", "domain", domain},
          {"value", "value", value},
          {"set", "set", isSet},
          {"meaning", "meaning", known == nullptr ? "not known to kfyd" : known->meaning}};
}

// What stands in one file, known or not, then the known ones that don't.
void addDomain(std::vector<Facts> &list, const std::string &domain,
               const std::vector<Setting> &settings) {
  for (const Setting &setting : settings) {
    list.push_back(factsOf(setting.key, domain, textOf(setting.value), /*isSet=*/true));
  }
  for (const KnownSetting &known : knownSettings()) {
    if (known.domain == domain &&
        std::ranges::find(settings, known.key, &Setting::key) == settings.end()) {
      list.push_back(factsOf(known.key, domain, known.valueIfAbsent, /*isSet=*/false));
    }
  }
}

std::string lineOf(const Facts &facts) {
  const auto text = [&](std::size_t index) { return std::get<std::string>(facts[index].value); };
  const bool isSet = std::get<bool>(facts[3].value);
  const std::string value = text(2).empty() && !isSet ? "(not set)" : text(2);
  const char *const origin = isSet || text(2).empty() ? "" : " (default)";
  return base::displayText(text(0) + " = " + value + origin + "  # " + text(4)) + "\n";
}

Outcome listDefaults(Session &session) {
  std::vector<Facts> list;
  for (const char *const domain : kDomains) {
    Error error;
    const auto settings = SettingsFile(pathOfDomain(domain)).readAll(&error);
    if (!settings) {
      return failureFrom(error, "kfyctl defaults list");
    }
    addDomain(list, domain, *settings);
  }
  if (session.json) {
    session.output << jsonOf(list);
    return std::nullopt;
  }
  for (const Facts &facts : list) {
    session.output << lineOf(facts);
  }
  return std::nullopt;
}

Outcome readDefault(const Options &options, Session &session) {
  const KnownSetting *const known = knownSetting(options.key);
  if (known == nullptr) {
    return unknownKey(options, "read");
  }
  Error error;
  const auto stored = storedSetting(known->domain, known->key, &error);
  if (!stored && !error.description.empty()) {
    return failureFrom(error, "kfyctl defaults read " + options.key);
  }
  const std::string value = stored ? textOf(*stored) : known->valueIfAbsent;
  if (value.empty()) {
    return Failure{options.key + " is not set", "kfyctl defaults write " + options.key + " VALUE"};
  }
  session.output << (session.json ? jsonOf(factsOf(options.key, known->domain, value,
                                                   /*isSet=*/stored.has_value()))
                                  : value + "\n");
  return std::nullopt;
}

Outcome writeDefault(const Options &options, Session & /*session*/) {
  const KnownSetting *const known = knownSetting(options.key);
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

Outcome deleteDefault(const Options &options, Session & /*session*/) {
  const KnownSetting *const known = knownSetting(options.key);
  if (known == nullptr) {
    return unknownKey(options, "delete");
  }
  Error error;
  if (!SettingsFile(pathOfDomain(known->domain)).remove(options.key, &error)) {
    return failureFrom(error, "kfyctl defaults delete " + options.key);
  }
  return std::nullopt;
}

struct Row {
  const char *name;
  const char *description;
  bool takesValue;
  bool answers;
  Outcome (*run)(const Options &, Session &);
};

constexpr Row kRows[] = {
    {"read", "print one setting", false, true, readDefault},
    {"write", "set one setting", true, false, writeDefault},
    {"delete", "go back to the default", false, false, deleteDefault},
};

}  // namespace

void addDefaultsCommands(CLI::App &app, Session &session) {
  CLI::App *const group = app.add_subcommand("defaults", "settings of kfyd");
  group->require_subcommand(1);
  CLI::App *const list = group->add_subcommand("list", "all settings and what they mean");
  addJSONOption(*list, session);
  list->callback([&session] { session.outcome = listDefaults(session); });

  for (const Row &row : kRows) {
    const auto options = std::make_shared<Options>();
    CLI::App *const command = group->add_subcommand(row.name, row.description);
    command->add_option("KEY", options->key, "the setting")->required();
    if (row.takesValue) {
      command->add_option("VALUE", options->value, "its new value")->required();
    }
    if (row.answers) {
      addJSONOption(*command, session);
    }
    command->callback(
        [options, &session, run = row.run] { session.outcome = run(*options, session); });
  }
}

}  // namespace ctl
