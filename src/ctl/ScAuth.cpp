#include "ctl/ScAuth.hpp"

#include <CLI/CLI.hpp>
#include <memory>
#include <ostream>
#include <vector>

#include "ctl/CommandLine.hpp"
#include "ctl/Facts.hpp"
#include "ctl/PairKey.hpp"
#include "ctl/PairingHash.hpp"
#include "encodings/HexString.hpp"

namespace ctl {
namespace {

struct PairOptions {
  std::string user;
  std::string hash;
  std::string certificateFile;
  bool replace = false;
};

Outcome listPairings(Invocation &invocation) {
  Error error;
  const auto pairings = pairingFile().read(&error);
  if (!pairings) {
    return unusablePairings(error, "sc_auth identities");
  }
  if (!invocation.json) {
    invocation.output << listingOf(*pairings);
    return std::nullopt;
  }
  std::vector<Facts> list;
  for (const Pairing &pairing : *pairings) {
    list.push_back({{"publicKeyHash", "key", encodings::hexString(pairing.publicKeyHash)},
                    {"user", "user", pairing.user}});
  }
  invocation.output << jsonOf(list);
  return std::nullopt;
}

Outcome pair(const PairOptions &options, Invocation &invocation) {
  Error error;
  const auto hash = options.certificateFile.empty()
                        ? publicKeyHashFromText(options.hash, &error)
                        : publicKeyHashFromCertificate(options.certificateFile, &error);
  if (!hash) {
    return Failure{error.description, "kfy-remote keys"};
  }
  return pairKey(
      {options.user, *hash},
      {"sc_auth", "sc_auth pair --user " + options.user + " --hash " + encodings::hexString(*hash),
       options.replace},
      invocation);
}

Outcome unpair(const std::string &user, Invocation &invocation) {
  Error error;
  auto pairings = pairingFile().read(&error);
  if (!pairings) {
    return unusablePairings(error, "sc_auth unpair --user " + user);
  }
  if (std::erase_if(*pairings, [&](const Pairing &pairing) { return pairing.user == user; }) == 0) {
    return Failure{"no key is paired with user \"" + user + "\"", "sc_auth identities"};
  }
  if (!pairingFile().write(*pairings, &error)) {
    return unusablePairings(error, "sc_auth unpair --user " + user);
  }
  invocation.notes << "sc_auth: no key is paired with user \"" << user << "\" any more\n";
  return std::nullopt;
}

void addPairing(CLI::App &app, Invocation &invocation) {
  const auto options = std::make_shared<PairOptions>();
  CLI::App *const command = app.add_subcommand("pair", "let a key stand for a user");
  command->add_option("--user", options->user, "a user of this machine")->required();
  auto *const key = command->add_option_group("key", "the key, one of:");
  key->add_option("--hash", options->hash, "the 40 digits of its public key");
  key->add_option("--certificate", options->certificateFile, "a file with its certificate");
  key->require_option(1);
  command->add_flag("--replace", options->replace, "instead of the key that is paired now");
  command->callback([options, &invocation] { invocation.outcome = pair(*options, invocation); });
}

}  // namespace

int runScAuth(std::span<const std::string> arguments, Invocation &invocation) {
  CLI::App app("", "sc_auth");
  describe(app, "Pairs the key of a remote client with a user of this machine.");

  CLI::App *const identities = app.add_subcommand("identities", "list what is paired");
  addJSONOption(*identities, invocation);
  identities->callback([&invocation] { invocation.outcome = listPairings(invocation); });

  addPairing(app, invocation);

  std::string user;
  CLI::App *const unpairing = app.add_subcommand("unpair", "end a user's pairing");
  unpairing->add_option("--user", user, "the user")->required();
  unpairing->callback([&invocation, &user] { invocation.outcome = unpair(user, invocation); });
  return runCommandLine(app, arguments, invocation);
}

}  // namespace ctl
