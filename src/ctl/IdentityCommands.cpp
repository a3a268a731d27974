#include <CLI/CLI.hpp>
#include <memory>
#include <ostream>

#include "base/DisplayText.hpp"
#include "base/Places.hpp"
#include "base/Root.hpp"
#include "crypto/Identity.hpp"
#include "ctl/CommandLine.hpp"
#include "ctl/Commands.hpp"
#include "ctl/Facts.hpp"
#include "ctl/Identities.hpp"
#include "ctl/IdentityImport.hpp"
#include "ctl/KeychainTrouble.hpp"
#include "identity/PinnedCertificate.hpp"

namespace ctl {
namespace {

constexpr int kMostDays = 36500;

struct IdentityOptions {
  std::string name;  // of an identity: its hash or label
  std::string commonName;
  std::string label;
  int days = kDaysOfNewIdentities;
  std::string file;
  PasswordOptions password;
  bool force = false;
};

Outcome createIdentity(const IdentityOptions &options, Invocation &invocation) {
  Failure failure;
  const auto record =
      makeIdentity(options.commonName, options.label.empty() ? options.commonName : options.label,
                   options.days, invocation, failure);
  if (!record) {
    return failure;
  }
  tellOf(*record, /*wasThere=*/false, invocation);
  return std::nullopt;
}

Outcome importIdentity(const IdentityOptions &options, Invocation &invocation) {
  return importIdentities(options.file, options.label, options.password, invocation);
}

// Those on a token also name it.
std::vector<Facts> factsOfAll(const std::vector<IdentityRecord> &inKeychain,
                              const std::vector<TokenIdentities> &tokens, const auto &isUsed) {
  std::vector<Facts> list;
  list.reserve(inKeychain.size());
  for (const IdentityRecord &record : inKeychain) {
    list.push_back(factsOf(record, isUsed(record)));
  }
  for (const auto &[token, records] : tokens) {
    for (const IdentityRecord &record : records) {
      list.push_back(factsOf(record, isUsed(record)));
      list.back().push_back({"token", "token", token});
    }
  }
  return list;
}

Outcome listIdentities(const IdentityOptions & /*options*/, Invocation &invocation) {
  Failure failure;
  const auto records = allIdentities(invocation, failure);
  if (!records) {
    return failure;
  }
  Failure ignored;
  const auto used = identityInUse(invocation, ignored);
  const auto isUsed = [&](const IdentityRecord &record) {
    return used && hashOf(*used) == hashOf(record);
  };
  const std::vector<TokenIdentities> tokens = identitiesOnTokens(invocation);
  if (invocation.json) {
    invocation.output << jsonOf(factsOfAll(*records, tokens, isUsed));
    return std::nullopt;
  }
  const auto printLines = [&](const std::vector<IdentityRecord> &some) {
    for (const IdentityRecord &record : some) {
      invocation.output << hashOf(record) << (isUsed(record) ? " * " : "   ")
                        << base::displayText(labelOf(record)) << '\n';
    }
  };
  printLines(*records);
  for (const auto &[token, onToken] : tokens) {
    invocation.output << "on " << base::displayText(token) << ":\n";
    printLines(onToken);
  }
  return std::nullopt;
}

Outcome showIdentity(const IdentityOptions &options, Invocation &invocation) {
  Failure failure;
  Failure ignored;
  const auto used = identityInUse(invocation, options.name.empty() ? failure : ignored);
  const auto record =
      options.name.empty() ? used : identityNamed(options.name, invocation, failure);
  if (!record) {
    return failure;
  }
  const Facts facts = factsOf(*record, used && hashOf(*used) == hashOf(*record));
  invocation.output << (invocation.json ? jsonOf(facts) : textOf(facts));
  return std::nullopt;
}

Outcome chooseIdentity(const IdentityOptions &options, Invocation &invocation) {
  Failure failure;
  const auto record = identityNamed(options.name, invocation, failure);
  if (!record) {
    return failure;
  }
  if (auto outcome = useIdentity(*record)) {
    return outcome;
  }
  invocation.notes << "kfyctl: kfyd will show \"" << base::displayText(labelOf(*record)) << "\" ("
                   << hashOf(*record) << ") after: systemctl restart kfyd.service\n"
                   << "kfyctl: clients on this machine expect it from now on, by "
                   << base::rooted(base::kServerCertificate) << '\n';
  return std::nullopt;
}

Outcome deleteIdentity(const IdentityOptions &options, Invocation &invocation) {
  Failure failure;
  const auto record = identityNamed(options.name, invocation, failure);
  if (!record) {
    return failure;
  }
  Failure ignored;
  const auto used = identityInUse(invocation, ignored);
  if (used && hashOf(*used) == hashOf(*record) && !options.force) {
    return Failure{"kfyd uses \"" + labelOf(*record) + "\" and could not start without it",
                   "kfyctl identity delete " + hashOf(*record) + " --force"};
  }
  const auto status = invocation.keychain->deleteIdentity(record->reference->certificate.sha1());
  if (status == platform::itemNotFound) {
    return Failure{"\"" + labelOf(*record) + "\" is on a token, where kfyctl deletes nothing",
                   "kfyctl identity list"};
  }
  return status == platform::itemSuccess ? Outcome() : keychainUnusable(invocation);
}

using OptionsPointer = std::shared_ptr<IdentityOptions>;

void addNothing(CLI::App & /*command*/, const OptionsPointer & /*options*/) {}

void addName(CLI::App &command, const OptionsPointer &options) {
  command.add_option("HASH-OR-LABEL", options->name, "SHA-1 of its certificate, or its label")
      ->required();
}

void addNameOfAny(CLI::App &command, const OptionsPointer &options) {
  command.add_option("HASH-OR-LABEL", options->name, "default: the one that kfyd uses");
}

void addNameAndForce(CLI::App &command, const OptionsPointer &options) {
  addName(command, options);
  command.add_flag("--force", options->force, "even if kfyd uses it");
}

void addLabel(CLI::App &command, const OptionsPointer &options) {
  command.add_option("--label", options->label, "its label; default: the common name");
}

void addCreation(CLI::App &command, const OptionsPointer &options) {
  command.add_option("--common-name", options->commonName, "the name of this machine")->required();
  command.add_option("--days", options->days, "how long it is valid; default: 3650")
      ->check(CLI::Range(1, kMostDays));
  addLabel(command, options);
}

void addImport(CLI::App &command, const OptionsPointer &options) {
  command.add_option("FILE", options->file, "PEM (key and certificate) or PKCS #12")->required();
  addLabel(command, options);
  options->password.addTo(command);
}

struct IdentityCommand {
  const char *name;
  const char *description;
  bool answers;
  void (*addOptions)(CLI::App &, const OptionsPointer &);
  Outcome (*run)(const IdentityOptions &, Invocation &);
};

constexpr IdentityCommand kIdentityCommands[] = {
    {"create", "make a key and a certificate for kfyd", true, addCreation, createIdentity},
    {"import", "take one from a file", true, addImport, importIdentity},
    {"list", "what is in the keychain and on tokens", true, addNothing, listIdentities},
    {"show", "one of them, with its fingerprints", true, addNameOfAny, showIdentity},
    {"use", "let kfyd show this one", false, addName, chooseIdentity},
    {"delete", "remove one from the keychain", false, addNameAndForce, deleteIdentity},
};

}  // namespace

void addIdentityCommands(CLI::App &app, Invocation &invocation) {
  CLI::App *const group = app.add_subcommand("identity", "TLS identities of kfyd");
  group->require_subcommand(1);
  for (const IdentityCommand &row : kIdentityCommands) {
    const auto options = std::make_shared<IdentityOptions>();
    CLI::App *const command = group->add_subcommand(row.name, row.description);
    row.addOptions(*command, options);
    if (row.answers) {
      addJSONOption(*command, invocation);
    }
    command->callback(
        [options, &invocation, run = row.run] { invocation.outcome = run(*options, invocation); });
  }
}

}  // namespace ctl
