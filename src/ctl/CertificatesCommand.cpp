#include <CLI/CLI.hpp>
#include <ostream>

#include "ctl/CommandLine.hpp"
#include "ctl/Commands.hpp"
#include "ctl/DateText.hpp"
#include "ctl/Facts.hpp"
#include "ctl/LocalDaemon.hpp"
#include "ctl/MarkerInspection.hpp"
#include "encodings/HexString.hpp"

namespace ctl {
namespace {

constexpr std::chrono::seconds kListWait{60};

Facts cardFacts(const CardCertificate &card) {
  const auto key = card.certificate.publicKey();
  return {{"label", "label", card.info.label},
          {"commonName", "common name", card.certificate.commonName().value_or("")},
          {"subject", "subject", card.certificate.subject()},
          {"sha1", "SHA-1", encodings::hexString(card.certificate.sha1())},
          {"key", "key", key ? key->description() : "unknown"},
          {"canSign", "can sign", card.info.canSign},
          {"canDecrypt", "can decrypt", card.info.canDecrypt},
          {"notAfter", "valid until", dateText(card.certificate.notAfter())}};
}

Outcome listCertificates(Invocation &invocation) {
  Failure failure;
  auto daemon = LocalDaemon::open(kListWait, failure);
  const auto cards = daemon ? daemon->certificates(failure) : std::nullopt;
  if (!cards) {
    return failure;
  }
  std::vector<Facts> list;
  for (const CardCertificate &card : *cards) {
    list.push_back(cardFacts(card));
  }
  if (invocation.json) {
    invocation.output << jsonOf(list);
    return std::nullopt;
  }
  for (const Facts &facts : list) {
    invocation.output << (&facts == list.data() ? "" : "\n") << textOf(facts);
  }
  if (list.empty()) {
    invocation.notes << "kfyctl: no remote client has inserted a card\n";
  } else if (inspectMarker().kind != MarkerKind::present) {
    invocation.notes << "kfyctl: the card is withdrawn; these were its certificates\n";
  }
  return std::nullopt;
}

}  // namespace

void addCertificatesCommand(CLI::App &app, Invocation &invocation) {
  CLI::App *const command = app.add_subcommand("certificates", "what the card holds");
  addJSONOption(*command, invocation);
  command->callback([&invocation] { invocation.outcome = listCertificates(invocation); });
}

}  // namespace ctl
