#include "remote/Arguments.hpp"

#include <pwd.h>
#include <unistd.h>

#include <CLI/CLI.hpp>
#include <cstdlib>
#include <filesystem>
#include <map>

#include "base/Places.hpp"
#include "base/Version.hpp"
#include "remote/Console.hpp"

namespace remote {
namespace {

constexpr int kWrongCommandLine = 2;
constexpr int kLongestReinsertion = 24 * 60 * 60;

// The arguments as text.
struct Texts {
  Arguments arguments;
  KeysCommand keys;
  ConnectCommand connect;
  PasswordCommand password;
  NewKeyCommand newKey;
  std::string keyType = "p256";
  std::string machine;
  std::vector<std::string> machines;
  std::string fingerprint;
  std::string passwordFile;
  int reinsertSeconds = kReinsertion.count();
};

// $XDG_CONFIG_HOME/kfy-remote, by default ~/.config/kfy-remote; empty if there is no home folder.
std::string defaultHome() {
  // relative ones count as unset (XDG base directory rules)
  if (const char *folder = std::getenv("XDG_CONFIG_HOME"); folder != nullptr && *folder == '/') {
    return std::string(folder) + "/kfy-remote";
  }
  const char *home = std::getenv("HOME");
  if (home == nullptr || *home == '\0') {
    const passwd *entry = ::getpwuid(::getuid());
    home = entry == nullptr ? nullptr : entry->pw_dir;
  }
  return home == nullptr ? "" : std::string(home) + "/.config/kfy-remote";
}

// By their names on the command line.
std::map<std::string, NewKeyType> newKeyTypes() {
  return {{"p256", NewKeyType::p256},
          {"rsa2048", NewKeyType::rsa2048},
          {"rsa3072", NewKeyType::rsa3072}};
}

// How a machine is written on the command line.
std::string addressForm() {
  return "HOST or HOST:PORT (default " + std::to_string(base::kPublicPort) + ")";
}

void addHome(CLI::App &command, Texts &texts) {
  command
      .add_option("--home", texts.arguments.home,
                  "folder of the authentication key and the known hosts, by default "
                  "~/.config/kfy-remote")
      ->type_name("DIR");
}

void addFingerprint(CLI::App &command, Texts &texts) {
  command
      .add_option("--fingerprint", texts.fingerprint,
                  "SHA-256 of the server's certificate as \"sudo kfyctl identity show\" prints it")
      ->type_name("SHA256");
}

// Of the commands that go to a single machine.
void addMachine(CLI::App &command, Texts &texts) {
  command.add_option("HOST", texts.machine, "the machine, " + addressForm())->required();
  addFingerprint(command, texts);
}

void addKeyOptions(CLI::App &command, Texts &texts) {
  command
      .add_option(
          "--key", texts.arguments.keyFiles,
          "a key with its certificate to insert: PEM or PKCS#12; may be repeated; by default "
          "the one that \"setup\" or \"key new\" has made")
      ->type_name("FILE")
      ->allow_extra_args(false);
  command
      .add_option("--label", texts.arguments.labels,
                  "what programs see of the key, by default its certificate's name; once for "
                  "each key, in order")
      ->type_name("TEXT")
      ->allow_extra_args(false);
  addHome(command, texts);
  auto *file = command.add_option("--password-file", texts.passwordFile,
                                  "file whose first line is the password of the keys");
  file->type_name("FILE");
  command
      .add_option("--password-fd", texts.arguments.passwords.descriptor,
                  "open descriptor from which the password of the keys is read")
      ->type_name("N")
      ->check(CLI::NonNegativeNumber)
      ->excludes(file);
}

CLI::App &addKeys(CLI::App &program, Texts &texts) {
  CLI::App &command =
      *program.add_subcommand("keys", "show the key to pair and the keys to insert");
  addKeyOptions(command, texts);
  command.add_flag("--json", texts.keys.asJSON, "as JSON, for scripts");
  return command;
}

CLI::App &addConnect(CLI::App &program, Texts &texts) {
  CLI::App &command = *program.add_subcommand(
      "connect", "be the smart card of other machines until a signal comes");
  command.add_option("HOST", texts.machines, "machines to serve, " + addressForm())->required();
  addKeyOptions(command, texts);
  addFingerprint(command, texts);
  command.add_flag("--no-confirm", texts.connect.withoutConsent,
                   "allow every use of the keys without asking, for scripts and services");
  command
      .add_option("--reinsert-seconds", texts.reinsertSeconds,
                  "insert the card again when it was not used for so long, by default " +
                      std::to_string(kReinsertion.count()) +
                      ": the end of another connection may have withdrawn it; 0: never")
      ->type_name("N")
      ->check(CLI::Range(0, kLongestReinsertion));
  return command;
}

CLI::App &addSetup(CLI::App &program, Texts &texts) {
  CLI::App &command = *program.add_subcommand(
      "setup",
      "make what is missing for being the card of a machine: keys, trust, pairing; then insert "
      "the card once");
  addMachine(command, texts);
  addKeyOptions(command, texts);
  return command;
}

CLI::App &addNewKey(CLI::App &program, Texts &texts) {
  CLI::App &key = *program.add_subcommand("key", "make keys");
  key.require_subcommand(1);
  CLI::App &command =
      *key.add_subcommand("new", "make a card key with a certificate that it signs itself");
  command
      .add_option("--out", texts.newKey.file,
                  "file to write, by default card.pem in the folder of this program, which is "
                  "inserted where no --key is named")
      ->type_name("FILE");
  command.add_option("--type", texts.keyType, "p256 (default), rsa2048 or rsa3072")
      ->check(CLI::IsMember(newKeyTypes()))
      ->type_name("TYPE");
  command
      .add_option("--name", texts.newKey.name,
                  "the name in the certificate, by default yours: USER@HOST")
      ->type_name("TEXT");
  addHome(command, texts);
  return command;
}

CLI::App &addPassword(CLI::App &program, Texts &texts) {
  CLI::App &command = *program.add_subcommand(
      "password",
      "have a machine make a fresh password for its screen-sharing account; the end "
      "of the connection withdraws a card that is inserted there");
  addMachine(command, texts);
  addHome(command, texts);
  command.add_flag("--json", texts.password.asJSON, "as JSON, for scripts");
  return command;
}

// Rules of the commands that the parser cannot express.

bool readFingerprint(const std::string &text, std::optional<Fingerprint> &fingerprint,
                     Error *error) {
  fingerprint = text.empty() ? std::nullopt : fingerprintFrom(text);
  if (!text.empty() && !fingerprint) {
    base::report(error, "arguments", 0,
                 "--fingerprint takes the 64 hexadecimal digits of a SHA-256 digest");
    return false;
  }
  return true;
}

bool finishPassword(Texts &texts, Error *error) {
  const auto address = Address::fromText(texts.machine, error);
  if (!address || !readFingerprint(texts.fingerprint, texts.password.fingerprint, error)) {
    return false;
  }
  texts.password.machine = *address;
  return true;
}

bool finishConnect(Texts &texts, Error *error) {
  for (const std::string &text : texts.machines) {
    auto address = Address::fromText(text, error);
    if (!address) {
      return false;
    }
    texts.connect.machines.push_back(std::move(*address));
  }
  texts.connect.reinsertion = std::chrono::seconds(texts.reinsertSeconds);
  if (!readFingerprint(texts.fingerprint, texts.connect.fingerprint, error)) {
    return false;
  }
  if (texts.connect.fingerprint && texts.machines.size() > 1) {
    base::report(error, "arguments", 0, "--fingerprint goes with a single HOST");
    return false;
  }
  return true;
}

bool finish(Texts &texts, Error *error) {
  if (texts.arguments.home.empty()) {
    texts.arguments.home = defaultHome();
  }
  if (texts.arguments.home.empty()) {
    base::report(error, "arguments", 0, "there is no home folder: name one with --home DIR");
    return false;
  }
  // a command shown for pasting must work in any folder
  texts.arguments.home = std::filesystem::absolute(texts.arguments.home).string();
  if (texts.arguments.labels.size() > texts.arguments.keyFiles.size()) {
    base::report(error, "arguments", 0, "there are more --label than --key");
    return false;
  }
  if (!texts.passwordFile.empty()) {
    texts.arguments.passwords.file = texts.passwordFile;
  }
  return true;
}

int wrong(Console &console, const std::string &what) {
  console.complain(what);
  console.advise("kfy-remote --help");
  return kWrongCommandLine;
}

}  // namespace

std::variant<Arguments, int> readArguments(int count, const char *const *arguments,
                                           Console &console) {
  Texts texts;
  CLI::App program("Be the smart card of another machine: its programs use keys that stay here.",
                   "kfy-remote");
  program.set_version_flag("--version", std::string("kfy-remote ") + base::kVersion);
  program.require_subcommand(1);
  const CLI::App &keys = addKeys(program, texts);
  const CLI::App &connect = addConnect(program, texts);
  const CLI::App &setup = addSetup(program, texts);
  const CLI::App &newKey = addNewKey(program, texts);
  const CLI::App &password = addPassword(program, texts);
  try {
    program.parse(count, arguments);
  } catch (const CLI::Success &success) {
    return program.exit(success);
  } catch (const CLI::ParseError &error) {
    return wrong(console, error.what());
  }
  if (setup.parsed()) {
    texts.machines = {texts.machine};
    texts.connect.isSetup = true;
  }
  Error error;
  if (!finish(texts, &error) ||
      ((connect.parsed() || setup.parsed()) && !finishConnect(texts, &error)) ||
      (password.parsed() && !finishPassword(texts, &error))) {
    return wrong(console, error.description);
  }
  if (keys.parsed()) {
    texts.arguments.command = texts.keys;
  } else if (password.parsed()) {
    texts.arguments.command = texts.password;
  } else if (newKey.parsed()) {
    texts.newKey.type = newKeyTypes().at(texts.keyType);
    texts.arguments.command = texts.newKey;
  } else {
    texts.arguments.command = texts.connect;
  }
  return std::move(texts.arguments);
}

}  // namespace remote
