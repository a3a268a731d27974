#include "remote/Program.hpp"

#include <fcntl.h>
#include <sys/prctl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <csignal>
#include <cstdlib>
#include <utility>

#include "base/Descriptor.hpp"
#include "base/DisplayText.hpp"
#include "base/Files.hpp"
#include "protocol/JSONWriter.hpp"
#include "remote/Arguments.hpp"
#include "remote/AuthenticationKey.hpp"
#include "remote/Console.hpp"
#include "remote/KeyListing.hpp"
#include "remote/KeyRing.hpp"
#include "remote/MachineLoop.hpp"
#include "remote/ScreenSharing.hpp"

namespace remote {
namespace {

constexpr int kDone = 0;
constexpr int kFailed = 1;

int fail(Console &console, const std::string &what) {
  console.complain(what);
  return kFailed;
}

// Waits until the result has been read or a signal comes.
int deliver(Console &console, const StopSignal &stop, const std::string &what) {
  const client::WaitLimits limits{client::Deadline::max(), stop.descriptor()};
  if (console.flush(limits) == OutputWriter::Outcome::written) {
    return kDone;
  }
  return fail(console, what + " could not be written to standard output");
}

int listKeys(const KeysCommand &command, const Arguments &arguments, ByteView hash,
             const KeyRing &keys, Console &console, const StopSignal &stop) {
  const std::string path = authenticationKeyPath(arguments.home);
  if (command.asJSON) {
    console.say(keyListingAsJSON(path, hash, keys));
  } else {
    for (const std::string &line : keyListing(path, hash, keys)) {
      console.say(line);
    }
  }
  return deliver(console, stop, "the list of keys");
}

int fetchPassword(const PasswordCommand &command, const Arguments &arguments,
                  const crypto::Identity &authentication, Console &console,
                  const StopSignal &stop) {
  const KnownHosts knownHosts(arguments.home + "/known_hosts");
  Error error;
  const auto pinned =
      command.fingerprint ? command.fingerprint : knownHosts.find(command.machine, &error);
  if (!error.description.empty()) {
    return fail(console, error.description);
  }
  if (!pinned) {
    console.complain(command.machine.name() + " is not known here, so nothing was sent to it");
    console.advise("kfy-remote password " + command.machine.name() + " --fingerprint SHA256");
    return kFailed;
  }
  client::WaitLimits limits;
  limits.stopDescriptor = stop.descriptor();
  const auto account =
      fetchScreenSharingAccount(command.machine, *pinned, authentication, limits, &error);
  if (!account) {
    return fail(console, command.machine.name() + ": " + error.description);
  }
  if (command.asJSON) {
    protocol::JSONWriter writer;
    writer.beginObject();
    writer.key("account");
    writer.text(account->name);
    writer.key("password");
    writer.text(account->password.reveal());
    writer.endObject();
    console.saySecret("", SecretText(base::displayJSON(writer.take())));
  } else {
    console.say("account:  " + account->name);
    console.saySecret("password: ", account->password);
  }
  return deliver(console, stop, "the fresh password");
}

int makeNewKey(const NewKeyCommand &command, const Arguments &arguments, Console &console,
               const StopSignal &stop) {
  const std::string path = command.file.empty() ? cardKeyPath(arguments.home) : command.file;
  if (base::fileExists(path)) {
    return fail(console, path + " is there already, and its key might be needed: name another " +
                             "file with --out");
  }
  const std::string name = command.name.empty() ? nameOfOwner() : command.name;
  Error error;
  if ((command.file.empty() && !base::makeFolders(arguments.home, 0700, &error)) ||
      !makeKeyFile(path, command.type, name, &error)) {
    return fail(console, error.description);
  }
  console.say("made the key \"" + base::displayText(name) + "\" in " + path);
  return deliver(console, stop, "the name of the key");
}

// The key files that were named, else the card key of this program's folder. `setup` makes it where
// it is missing. Nothing, with the reason, if it can't.
std::optional<std::vector<std::string>> keyFilesFor(const Arguments &arguments, Console &console,
                                                    Error *error) {
  const std::string own = cardKeyPath(arguments.home);
  const auto *const connect = std::get_if<ConnectCommand>(&arguments.command);
  if (!arguments.keyFiles.empty()) {
    return arguments.keyFiles;
  }
  if (base::fileExists(own)) {
    return std::vector{own};
  }
  if (connect == nullptr) {
    return std::vector<std::string>();
  }
  if (!connect->isSetup) {
    base::report(error, "arguments", 0,
                 "there is no key to insert: name one with --key FILE, or make one with " +
                     ("kfy-remote setup " + connect->machines.front().name()));
    return std::nullopt;
  }
  if (!makeKeyFile(own, NewKeyType::p256, nameOfOwner(), error)) {
    return std::nullopt;
  }
  console.say("made a card key: " + own);
  return std::vector{own};
}

int connect(const ConnectCommand &command, const Arguments &arguments,
            const crypto::Identity &authentication, const KeyRing &keys, Terminal &terminal,
            Console &console, const StopSignal &stop) {
  for (const CardKey &key : keys.keys()) {
    if (key.authenticates) {
      console.warn(key.label +
                   " is also the key that authenticates: it signs nothing but digests and " +
                   "decrypts nothing");
    }
  }
  const KnownHosts knownHosts(arguments.home + "/known_hosts");
  const LoopEnd end =
      serveMachines(command, knownHosts, keys, authentication, terminal, console, stop);
  const int status = end.bySignal || end.isSetUp ? kDone : kFailed;
  if (!end.mayClearUp) {
    (void)console.flush(client::WaitLimits::within(OutputWriter::kLastWait));
    ::_exit(status);
  }
  return status;
}

int run(const Arguments &arguments, Console &console) {
  const StopSignal stop;
  if (const auto *command = std::get_if<NewKeyCommand>(&arguments.command)) {
    return makeNewKey(*command, arguments, console, stop);
  }
  Error error;
  const auto authentication = authenticationKey(arguments.home, &error);
  if (!authentication) {
    return fail(console, error.description);
  }
  if (const auto *command = std::get_if<PasswordCommand>(&arguments.command)) {
    return fetchPassword(*command, arguments, *authentication, console, stop);
  }
  const auto hash = authentication->key.publicKey().hash(&error);
  const auto password = readGivenPassword(arguments.passwords, &error);
  const auto files = hash && password ? keyFilesFor(arguments, console, &error) : std::nullopt;
  if (!files) {
    return fail(console, error.description);
  }
  Terminal terminal;
  const auto keys = KeyRing::load(*files, arguments.labels, *hash,
                                  passwordSource(*password, terminal, stop.descriptor()), &error);
  if (!keys) {
    return fail(console, error.description);
  }
  if (const auto *command = std::get_if<KeysCommand>(&arguments.command)) {
    return listKeys(*command, arguments, *hash, *keys, console, stop);
  }
  return connect(std::get<ConnectCommand>(arguments.command), arguments, *authentication, *keys,
                 terminal, console, stop);
}

}  // namespace

void prepareProcess() {
  // no other process of the user may read this one's memory, and no core file may hold its keys
  (void)::prctl(PR_SET_DUMPABLE, 0, 0, 0, 0);
  (void)::umask(077);
  (void)std::signal(SIGPIPE, SIG_IGN);
  // By default an unanswered name look-up is repeated after 5 s, so the return of a network would
  // be noticed late.
  (void)::setenv("RES_OPTIONS", "timeout:2 attempts:3", /*overwrite=*/0);
  // A closed standard descriptor's number would go to a connection, and output into that.
  // /dev/null, open for reading only, makes such output fail instead.
  while (true) {
    base::Descriptor descriptor(::open("/dev/null", O_RDONLY));
    if (descriptor.get() < 0 || descriptor.get() > STDERR_FILENO) {
      return;
    }
    (void)descriptor.release();
  }
}

int runProgram(int count, const char *const *arguments, Console &console) {
  const auto read = readArguments(count, arguments, console);
  if (const int *status = std::get_if<int>(&read)) {
    return *status;
  }
  return run(std::get<Arguments>(read), console);
}

}  // namespace remote
