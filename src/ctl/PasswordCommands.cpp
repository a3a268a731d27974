#include <CLI/CLI.hpp>
#include <memory>
#include <ostream>

#include "base/ConstantTime.hpp"
#include "base/DisplayText.hpp"
#include "base/Secret.hpp"
#include "ctl/CommandLine.hpp"
#include "ctl/Commands.hpp"
#include "ctl/DateText.hpp"
#include "ctl/Facts.hpp"
#include "ctl/KeychainOperations.hpp"
#include "ctl/KeychainTrouble.hpp"
#include "ctl/PasswordOptions.hpp"

namespace ctl {
namespace {

struct Options {
  std::string account;
  std::string service = CVNKeychain::kDefaultService;
  std::string group;  // empty: none
  PasswordOptions password;
  bool random = false;
  bool show = false;
};

std::optional<std::string> groupOf(const Options &options) {
  return options.group.empty() ? std::nullopt : std::optional(options.group);
}

std::string commandFor(const char *name, const Options &options) {
  return std::string("kfyctl password ") + name + " " + options.account +
         (options.service == CVNKeychain::kDefaultService ? "" : " --service " + options.service) +
         (options.group.empty() ? "" : " --access-group " + options.group);
}

Failure notThere(const Options &options) {
  return {"no password of account \"" + options.account + "\" for service \"" + options.service +
              "\" in the keychain",
          commandFor("set", options)};
}

// The output is built in cleansed memory, not in a std::string.
void printJSON(const Facts &facts, const SecretText *password, Invocation &invocation) {
  protocol::JSONWriter writer;
  writer.beginObject();
  putFacts(writer, facts);
  if (password != nullptr) {
    writer.key("password");
    writer.text(password->reveal());
  }
  writer.endObject();
  invocation.output << base::textOf(base::displayJSON(writer.take())) << '\n';
}

Outcome getPassword(const Options &options, Invocation &invocation) {
  Error error;
  const auto found =
      KeychainOperations(*invocation.keychain)
          ->attributesForService(options.service, options.account, groupOf(options), &error);
  if (!found) {
    return error.domain.empty() ? notThere(options) : keychainUnusable(invocation);
  }
  const Facts facts{{"account", "account", options.account},
                    {"service", "service", options.service},
                    {"accessGroup", "access group", options.group},
                    {"modifiedDate", "written", dateText(found->modifiedDate)}};
  if (invocation.json) {
    printJSON(facts, options.show ? &found->password : nullptr, invocation);
  } else if (options.show) {
    invocation.output << found->password.reveal() << '\n';
  } else {
    invocation.output << textOf(facts);
  }
  return std::nullopt;
}

// The new password; asked for twice if it is typed without echo.
std::optional<SecretText> newPassword(const Options &options, Failure &failure) {
  if (options.random) {
    return CVNKeychain::randomPassword();
  }
  Error error;
  auto password = options.password.take("Password of " + options.account + ": ", &error);
  if (!password) {
    failure = failureFrom(error, commandFor("set", options),
                          commandFor("set", options) + " --password-file FILE");
    return std::nullopt;
  }
  if (!options.password.isGiven()) {
    const auto again = options.password.take("The same again: ", &error);
    if (!again || !base::equalInConstantTime(*again, *password)) {
      failure = {"the two were not the same; nothing is changed", commandFor("set", options)};
      return std::nullopt;
    }
  }
  return password;
}

Outcome setPassword(const Options &options, Invocation &invocation) {
  Failure failure;
  const auto password = newPassword(options, failure);
  if (!password) {
    return failure;
  }
  if (!KeychainOperations(*invocation.keychain)
           ->setPasswordForService(password, options.service, options.account, groupOf(options))) {
    if (invocation.keychain->trouble() != platform::StoreTrouble::none) {
      return keychainUnusable(invocation);
    }
    return Failure{"a password can hold ASCII characters alone; nothing is changed",
                   commandFor("set", options)};
  }
  if (options.show) {
    invocation.output << password->reveal() << '\n';
  }
  return std::nullopt;
}

Outcome deletePassword(const Options &options, Invocation &invocation) {
  if (KeychainOperations(*invocation.keychain)
          ->setPasswordForService(/*password=*/std::nullopt, options.service, options.account,
                                  groupOf(options))) {
    return std::nullopt;
  }
  return invocation.keychain->trouble() == platform::StoreTrouble::none
             ? notThere(options)
             : keychainUnusable(invocation);
}

void addNothing(CLI::App & /*command*/, Options & /*options*/, Invocation & /*invocation*/) {}

void addReading(CLI::App &command, Options &options, Invocation &invocation) {
  command.add_flag("--show", options.show, "print the password itself");
  addJSONOption(command, invocation);
}

void addWriting(CLI::App &command, Options &options, Invocation & /*invocation*/) {
  options.password.addTo(command);
  auto *const random = command.add_flag("--random", options.random, "make one of 15 characters");
  random->excludes(command.get_option("--password-file"))
      ->excludes(command.get_option("--password-fd"));
  command.add_flag("--show", options.show, "print the one that was made")->needs(random);
}

struct PasswordCommand {
  const char *name;
  const char *description;
  void (*addOptions)(CLI::App &, Options &, Invocation &);
  Outcome (*run)(const Options &, Invocation &);
};

constexpr PasswordCommand kPasswordCommands[] = {
    {"get", "what is stored for an account", addReading, getPassword},
    {"set", "store one, in place of the one before", addWriting, setPassword},
    {"delete", "remove one from the keychain", addNothing, deletePassword},
};

}  // namespace

void addPasswordCommands(CLI::App &app, Invocation &invocation) {
  CLI::App *const group = app.add_subcommand("password", "password items in the keychain");
  group->require_subcommand(1);
  for (const PasswordCommand &row : kPasswordCommands) {
    const auto options = std::make_shared<Options>();
    CLI::App *const command = group->add_subcommand(row.name, row.description);
    command->add_option("ACCOUNT", options->account, "whose password it is")->required();
    command->add_option("--service", options->service,
                        std::string("what it is for; default: ") + CVNKeychain::kDefaultService);
    command->add_option("--access-group", options->group, "the item's group; default: none");
    row.addOptions(*command, *options, invocation);
    command->callback(
        [options, &invocation, run = row.run] { invocation.outcome = run(*options, invocation); });
  }
}

}  // namespace ctl
