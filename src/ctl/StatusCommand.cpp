#include <sys/stat.h>

#include <CLI/CLI.hpp>
#include <algorithm>
#include <cerrno>
#include <iterator>
#include <ostream>
#include <string_view>

#include "base/DisplayText.hpp"
#include "base/Root.hpp"
#include "ctl/CommandLine.hpp"
#include "ctl/Commands.hpp"
#include "ctl/DaemonState.hpp"
#include "ctl/DateText.hpp"
#include "ctl/Facts.hpp"
#include "ctl/Identities.hpp"
#include "ctl/KeychainTrouble.hpp"
#include "ctl/LocalDaemon.hpp"
#include "ctl/MarkerInspection.hpp"
#include "ctl/Pairings.hpp"
#include "ctl/StoredSettings.hpp"
#include "encodings/HexString.hpp"
#include "settings/SettingFaults.hpp"

namespace ctl {
namespace {

// Looking up a pairing can block the daemon for 30 seconds.
constexpr std::chrono::seconds kStatusWait{35};

// The column at which the text about a place begins.
const std::string kIndentation(13, ' ');

// The finding about one place. A fault makes the whole command fail.
struct Finding {
  std::string name;
  std::string says;
  Outcome trouble;
  std::vector<std::string> more{};  // further lines, for people
  Facts facts{};                    // further facts for scripts
};

Finding good(const std::string &name, const std::string &says) {
  return {name, says, std::nullopt};
}

Finding bad(const std::string &name, const Failure &failure) {
  return {name, failure.what, failure};
}

Finding lookAtRoot() {
  return good("root",
              base::root().empty() ? "this machine" : "a sandbox (KFYD_ROOT): " + base::root());
}

bool othersCanWrite(const std::string &path) {
  struct stat status{};
  return ::stat(path.c_str(), &status) == 0 && (status.st_mode & (S_IWGRP | S_IWOTH)) != 0;
}

// Finds faults of the file as a whole, then of each setting in it.
void lookAtSettings(std::string_view domain, std::vector<Finding> &findings) {
  Error error;
  const std::string path = pathOfDomain(domain);
  if (othersCanWrite(path)) {
    findings.push_back(
        bad("settings", {path + " can be written by its group or others, so it is passed over",
                         "sudo chmod go-w " + path}));
    return;
  }
  const auto settings = platform_linux::SettingsFile(path).readAll(&error);
  if (!settings) {
    findings.push_back(bad("settings", failureFrom(error, "kfyctl status", "sudo editor " + path)));
    return;
  }
  findings.push_back(good("settings", path + ": " + std::to_string(settings->size()) + " set"));
  for (const settings::SettingFault &fault : settings::faultsIn(domain, *settings)) {
    Finding finding =
        bad("setting", {path + ": " + settings::lineOf(fault), "sudo editor " + path});
    finding.facts = {{"key", "", fault.key},
                     {"wrong", "", fault.wrong},
                     {"inForce", "", fault.inForce},
                     {"nearest", "", fault.nearest}};
    findings.push_back(std::move(finding));
  }
}

Finding lookAtKeychain(Invocation &invocation) {
  Failure failure;
  const auto records = allIdentities(invocation, failure);
  const auto ahead = records ? troubleAheadOfKeychain() : std::nullopt;
  if (ahead) {
    return bad("keychain", *ahead);
  }
  return records ? good("keychain", std::to_string(records->size()) + " identities")
                 : bad("keychain", failure);
}

Finding lookAtIdentity(Invocation &invocation) {
  Failure failure;
  const auto used = identityInUse(invocation, failure);
  if (!used) {
    return bad("identity", failure);
  }
  const auto &certificate = used->reference->certificate;
  const std::string text = "\"" + labelOf(*used) + "\" (" + hashOf(*used) + "), valid from " +
                           dateText(certificate.notBefore()) + " until " +
                           dateText(certificate.notAfter());
  const auto now = std::chrono::system_clock::now();
  if (now < certificate.notBefore() || now > certificate.notAfter()) {
    return bad("identity", {text + ", and this clock says " + dateText(now),
                            "kfyctl identity create --common-name " +
                                certificate.commonName().value_or(labelOf(*used))});
  }
  return good("identity", text);
}

Finding lookAtPairing() {
  Error error;
  const auto pairings = pairingFile().read(&error);
  if (!pairings) {
    return bad("pairing", unusablePairings(error, "kfyctl status"));
  }
  if (pairings->empty()) {
    return bad("pairing", {"no key is paired with a user, so no remote client can authenticate",
                           "sudo kfyctl pair USER"});
  }
  return good("pairing", "key " + encodings::hexString(pairings->front().publicKeyHash) +
                             " for user \"" + pairings->front().user + "\"");
}

Finding lookAtMarker() {
  const MarkerInspection marker = inspectMarker();
  if (marker.kind == MarkerKind::foreign) {
    return bad("marker", {marker.path + " is " + marker.description + ", which is not kfyd's",
                          "sudo rm -r " + marker.path});
  }
  return good("marker", marker.path + ": " + marker.description);
}

// Only over the loopback listener: the end of a connection to the public one withdraws the card.
void lookAtDaemon(std::vector<Finding> &findings) {
  Failure failure;
  auto daemon = LocalDaemon::open(kStatusWait, failure);
  const auto cards = daemon ? daemon->certificates(failure) : std::nullopt;
  if (!cards) {
    findings.push_back(bad("daemon", failure));
    return;
  }
  findings.push_back(good("daemon", "answers on " + loopbackName()));
  findings.push_back(good("card", std::to_string(cards->size()) + " certificates"));
}

std::string peerLine(const DaemonState::Peer &peer) {
  std::string line = peer.address + " port " + std::to_string(peer.port) + ": ";
  line += peer.isAuthenticated ? "authenticated" : "not authenticated";
  return peer.certificates == 0 ? line
                                : line + ", " + std::to_string(peer.certificates) + " certificates";
}

// Remote clients are listed. Programs of this machine have no name and may be hundreds.
std::vector<std::string> linesOf(const DaemonState &state) {
  std::vector<std::string> lines;
  for (const DaemonState::Peer &peer : state.peers) {
    if (!peer.isLocal) {
      lines.push_back(peerLine(peer));
    }
  }
  for (const DaemonState::Limit &limit : state.limits) {
    lines.push_back("limit " + limit.setting +
                    " was reached, times: " + std::to_string(limit.times));
  }
  return lines;
}

// Reads the daemon's state file, which costs the daemon nothing.
Finding lookAtState(const std::optional<DaemonState> &state, const Error &error) {
  if (!state) {
    return error.code == ENOENT
               ? good("state", "kfyd has told nothing yet in " + daemonStatePath())
               : bad("state", failureFrom(error, "kfyctl status", "sudo rm " + daemonStatePath()));
  }
  if (!state->isRunning) {
    return good("state", "stale: told by process " + std::to_string(state->pid) +
                             ", which does not run any more");
  }
  Finding finding = good(
      "state", "since " + dateText(state->started) + ", process " + std::to_string(state->pid) +
                   ": " + std::to_string(state->connections) + " connections, " +
                   std::to_string(state->pending) + " requests wait for an answer; relayed " +
                   std::to_string(state->relays) + ", refused " + std::to_string(state->refusals));
  finding.more = linesOf(*state);
  return finding;
}

std::vector<Finding> lookAround(Invocation &invocation, const std::optional<DaemonState> &state,
                                const Error &stateError) {
  std::vector<Finding> findings{lookAtRoot()};
  for (const std::string_view domain :
       {settings::kIdentityDomain, platform::kStandardDefaults, settings::kDriverDomain}) {
    lookAtSettings(domain, findings);
  }
  findings.push_back(lookAtKeychain(invocation));
  findings.push_back(lookAtIdentity(invocation));
  findings.push_back(lookAtPairing());
  lookAtDaemon(findings);
  findings.push_back(lookAtMarker());
  findings.push_back(lookAtState(state, stateError));
  return findings;
}

std::string jsonOfFindings(const std::vector<Finding> &findings,
                           const std::optional<DaemonState> &state, bool isGood) {
  std::vector<Facts> list;
  list.reserve(findings.size());
  for (const Finding &finding : findings) {
    list.push_back({{"name", "", finding.name},
                    {"ok", "", !finding.trouble},
                    {"says", "", finding.says},
                    {"try", "", finding.trouble ? finding.trouble->next : ""}});
    std::ranges::copy(finding.facts, std::back_inserter(list.back()));
  }
  protocol::JSONWriter writer;
  writer.beginObject();
  putFacts(writer, Facts{{"ok", "", isGood}});
  writer.key("findings");
  putFacts(writer, list);
  if (state) {
    writer.key("stateIsStale");
    writer.boolean(!state->isRunning);
    writer.key("state");
    writer.raw(state->json);
  }
  writer.endObject();
  return lineOf(writer.take());
}

std::string textOfFindings(const std::vector<Finding> &findings) {
  std::string text;
  for (const Finding &finding : findings) {
    const std::string name = finding.name + std::string(10 - finding.name.size(), ' ');
    text += (finding.trouble ? "!  " : "ok ") + name + base::displayText(finding.says) + "\n";
    for (const std::string &line : finding.more) {
      text += kIndentation + base::displayText(line) + "\n";
    }
    if (finding.trouble && !finding.trouble->next.empty()) {
      text += kIndentation + "try: " + base::displayText(finding.trouble->next) + "\n";
    }
  }
  return text;
}

Outcome tellStatus(Invocation &invocation) {
  Error error;
  const auto state = readDaemonState(&error);
  const auto findings = lookAround(invocation, state, error);
  const auto count = std::ranges::count_if(
      findings, [](const Finding &finding) { return finding.trouble.has_value(); });
  invocation.output << (invocation.json ? jsonOfFindings(findings, state, count == 0)
                                        : textOfFindings(findings));
  if (count == 0) {
    return std::nullopt;
  }
  const bool hasNoAnswer = std::ranges::any_of(findings, [](const Finding &finding) {
    return finding.trouble && finding.trouble->status == exitNoAnswer;
  });
  return Failure{count == 1 ? "there is trouble in 1 place"
                            : "there is trouble in " + std::to_string(count) + " places",
                 "", hasNoAnswer ? exitNoAnswer : exitFailed};
}

}  // namespace

void addStatusCommand(CLI::App &app, Invocation &invocation) {
  CLI::App *const command = app.add_subcommand("status", "whether everything is in order");
  addJSONOption(*command, invocation);
  command->callback([&invocation] { invocation.outcome = tellStatus(invocation); });
}

}  // namespace ctl
