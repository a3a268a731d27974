#include "remote/Program.hpp"

#include <sys/prctl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <csignal>
#include <cstdio>
#include <utility>

#include "base/DisplayText.hpp"
#include "identity/PublicKeyHash.hpp"
#include "protocol/JSONWriter.hpp"
#include "remote/Arguments.hpp"
#include "remote/AuthenticationKey.hpp"
#include "remote/Console.hpp"
#include "remote/KeyListing.hpp"
#include "remote/KeyRing.hpp"
#include "remote/ScreenSharing.hpp"
#include "remote/Session.hpp"

namespace remote {
namespace {

constexpr int kDone = 0;
constexpr int kFailed = 1;

int fail(const std::string &what) {
  complain(what);
  return kFailed;
}

int listKeys(const KeysCommand &command, const Arguments &arguments, ByteView hash,
             const KeyRing &keys) {
  const std::string path = authenticationKeyPath(arguments.home);
  if (command.asJSON) {
    say(keyListingAsJSON(path, hash, keys));
    return kDone;
  }
  for (const std::string &line : keyListing(path, hash, keys)) {
    say(line);
  }
  return kDone;
}

int fetchPassword(const PasswordCommand &command, const Arguments &arguments,
                  const crypto::Identity &authentication, const StopSignal &stop) {
  const KnownHosts knownHosts(arguments.home + "/known_hosts");
  Error error;
  const auto pinned =
      command.fingerprint ? command.fingerprint : knownHosts.find(command.machine, &error);
  if (!error.description.empty()) {
    return fail(error.description);
  }
  if (!pinned) {
    complain(command.machine.name() + " is not known here, so nothing was sent to it");
    advise("kfy-remote password " + command.machine.name() + " --fingerprint SHA256");
    return kFailed;
  }
  client::Patience patience;
  patience.stopDescriptor = stop.descriptor();
  const auto account =
      fetchScreenSharingAccount(command.machine, *pinned, authentication, patience, &error);
  if (!account) {
    return fail(command.machine.name() + ": " + error.description);
  }
  if (command.asJSON) {
    CleansedBytes text;
    protocol::JSONWriter writer(text);
    writer.beginObject();
    writer.key("account");
    writer.text(account->name);
    writer.key("password");
    writer.text(account->password.reveal());
    writer.endObject();
    saySecret("", SecretText(base::displayJSON(text)));
  } else {
    say("account:  " + account->name);
    saySecret("password: ", account->password);
  }
  return kDone;
}

int connect(const ConnectCommand &command, const Arguments &arguments,
            const crypto::Identity &authentication, const KeyRing &keys, Terminal &terminal,
            const StopSignal &stop) {
  for (const CardKey &key : keys.keys()) {
    if (key.authenticates) {
      warn(key.label + " is also the key that authenticates: it signs nothing that may be a " +
           "challenge and decrypts nothing");
    }
  }
  const KnownHosts knownHosts(arguments.home + "/known_hosts");
  const SessionEnd end = serveMachines(command, knownHosts, keys, authentication, terminal, stop);
  const int status = end.bySignal ? kDone : kFailed;
  if (!end.mayClearUp) {
    (void)std::fflush(nullptr);
    ::_exit(status);
  }
  return status;
}

int run(const Arguments &arguments) {
  const StopSignal stop;
  Error error;
  const auto authentication = authenticationKey(arguments.home, &error);
  if (!authentication) {
    return fail(error.description);
  }
  if (const auto *command = std::get_if<PasswordCommand>(&arguments.command)) {
    return fetchPassword(*command, arguments, *authentication, stop);
  }
  const auto hash = identity::publicKeyHashOf(authentication->key.publicKey(), &error);
  const auto password = readGivenPassword(arguments.passwords, &error);
  if (!hash || !password) {
    return fail(error.description);
  }
  Terminal terminal;
  const auto keys = KeyRing::load(arguments.keyFiles, arguments.labels, *hash,
                                  passwordSource(*password, terminal, stop.descriptor()), &error);
  if (!keys) {
    return fail(error.description);
  }
  if (const auto *command = std::get_if<KeysCommand>(&arguments.command)) {
    return listKeys(*command, arguments, *hash, *keys);
  }
  return connect(std::get<ConnectCommand>(arguments.command), arguments, *authentication, *keys,
                 terminal, stop);
}

}  // namespace

int runProgram(int count, const char *const *arguments) {
  // no other process of the user may look into this one, and no core file may hold its keys
  (void)::prctl(PR_SET_DUMPABLE, 0, 0, 0, 0);
  (void)::umask(077);
  (void)std::signal(SIGPIPE, SIG_IGN);
  const auto read = readArguments(count, arguments);
  if (const int *status = std::get_if<int>(&read)) {
    return *status;
  }
  return run(std::get<Arguments>(read));
}

}  // namespace remote
