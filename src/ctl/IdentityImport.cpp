#include "ctl/IdentityImport.hpp"

#include <algorithm>
#include <cstddef>
#include <map>
#include <string_view>
#include <utility>
#include <vector>

#include "base/Files.hpp"
#include "crypto/Identity.hpp"
#include "ctl/Identities.hpp"
#include "ctl/KeychainOperations.hpp"
#include "ctl/KeychainTrouble.hpp"

namespace ctl {
namespace {

using Imported = CVNKeychain::Imported;

constexpr std::size_t kLargestImport = 1024 * 1024;

// What `read` makes of the file with the password that fits: the given one; else none, and where
// that does not fit, the one that the user types. Nothing, with `failure` filled, if it can't be
// read.
template <typename Read>
auto opened(const std::string &path, const PasswordOptions &options, Failure &failure, Read read) {
  Error error;
  decltype(read(nullptr, nullptr)) content;
  if (!options.isGiven()) {
    content = read(/*password=*/nullptr, &error);
  }
  if (!content && (options.isGiven() || error.domain == "password")) {
    if (const auto password = options.take("Password for " + path + ": ", &error)) {
      content = read(&*password, &error);
    } else {
      error = {"password", 0, "it wants a password, and " + error.description};
    }
  }
  if (!content) {
    failure = {path + ": " + error.description,
               error.domain == "password"
                   ? "kfyctl identity import " + path + " --password-file FILE"
                   : "kfyctl identity import --help"};
  }
  return content;
}

Outcome outcomeOf(CVNKeychain::ImportResult result, const std::string &path,
                  const Invocation &invocation) {
  switch (result) {
    case CVNKeychain::importDone:
      return std::nullopt;
    case CVNKeychain::importNotAdded:
      return keychainUnusable(invocation);
    case CVNKeychain::importUnreadable:
      return Failure{
          path + ": it holds no private key that can be read together with its certificate",
          "openssl pkcs12 -in " + path + " -info -noenc -nokeys"};
    case CVNKeychain::importKeyTooLarge:
      break;
  }
  return Failure{path +
                     ": a key in it is larger than 2048 bits, and the keychain takes none larger "
                     "from a PKCS #12 file; from a PEM file it does",
                 "(umask 077; openssl pkcs12 -in " + path + " -noenc -out " + path +
                     ".pem) && kfyctl identity import " + path + ".pem"};
}

Outcome importPEM(ByteView file, const std::string &path, const std::string &label,
                  const PasswordOptions &options, Invocation &invocation,
                  std::vector<Imported> &imported) {
  Failure failure;
  const auto identity =
      opened(path, options, failure, [&](const SecretText *password, Error *error) {
        return crypto::readIdentity(file, password, error);
      });
  if (!identity) {
    return failure;
  }
  bool wasThere = false;
  Outcome outcome = addIdentity(
      *identity, label.empty() ? identity->certificate.commonName().value_or("imported") : label,
      invocation, wasThere);
  if (!outcome) {
    imported.push_back({std::make_shared<const crypto::Identity>(*identity), wasThere});
  }
  return outcome;
}

Outcome importPackage(ByteView file, const std::string &path, const PasswordOptions &options,
                      Invocation &invocation, std::vector<Imported> &imported) {
  Failure failure;
  const auto content =
      opened(path, options, failure, [&](const SecretText *password, Error *error) {
        return crypto::readPkcs12(file, password, error);
      });
  return content ? outcomeOf(
                       KeychainOperations(*invocation.keychain)->importPackage(*content, &imported),
                       path, invocation)
                 : failure;
}

// With the labels that they have in the keychain: one that was there keeps its own.
void tellOfAll(const std::vector<Imported> &imported, Invocation &invocation) {
  Failure ignored;
  std::map<std::string, IdentityRecord> stored;
  for (const IdentityRecord &record :
       allIdentities(invocation, ignored).value_or(std::vector<IdentityRecord>())) {
    stored.emplace(hashOf(record), record);
  }
  for (const auto &[identity, wasThere] : imported) {
    IdentityRecord record;
    record.reference = identity;
    const auto found = stored.find(hashOf(record));
    tellOf(found == stored.end() ? record : found->second, wasThere, invocation);
  }
}

}  // namespace

Outcome importIdentities(const std::string &path, const std::string &label,
                         const PasswordOptions &options, Invocation &invocation) {
  const std::string command = "kfyctl identity import " + path;
  Error error;
  const auto file = base::readFile(path, kLargestImport, &error);
  if (!file) {
    return failureFrom(error, command);
  }
  const bool isPEM = base::textOf(*file).find("-----BEGIN ") != std::string_view::npos;
  if (!isPEM && !label.empty()) {
    return Failure{
        "--label is for PEM files; what a PKCS #12 file holds is labelled with the "
        "common names of its certificates",
        command, exitWrongCommandLine};
  }
  std::vector<Imported> imported;
  Outcome outcome = isPEM ? importPEM(*file, path, label, options, invocation, imported)
                          : importPackage(*file, path, options, invocation, imported);
  tellOfAll(imported, invocation);
  const auto added = std::ranges::count(imported, false, &Imported::wasThere);
  if (outcome && added > 0) {
    outcome->what += "; " + std::to_string(added) + " before it are in the keychain now";
  }
  return outcome;
}

}  // namespace ctl
