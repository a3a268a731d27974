#pragma once

#include <functional>
#include <string>
#include <vector>

#include "platform/ItemStore.hpp"

namespace platform {

// Knows which smart-card tokens are present and what identities they hold. Every operation asks the
// hardware anew, may block on it, and may run other vendors' code in this process: ask where there
// is need. Takes calls from any thread, one after the other; so do the keys that are found.
class TokenWatcher {
 public:
  // Whether a record is what the search is for.
  using IsWanted = std::function<bool(const IdentityRecord &)>;

  virtual ~TokenWatcher() = default;

  // The IDs of the tokens present now, each once, in a stable order: PKCS #11 URIs (RFC 7512) of
  // the tokens.
  [[nodiscard]] virtual std::vector<std::string> tokenIDs() = 0;

  // The identities on all tokens that the query allows, token by token in the order of their IDs;
  // tokens have the access group kTokenAccessGroup. Identities whose private key a token hides
  // until it has its PIN are among them; their keys do nothing until then.
  //
  // A token, slot or module that fails makes the search fail, without records and with its own
  // error, a CK_RV (PKCS #11 v2.40), as the number of the status. It does not where `isWanted`
  // finds its record elsewhere, or the query names a token that works.
  //
  // A PIN in the query is given to one token, once: to the first that holds a record that
  // `isWanted`, else to the first that wants a PIN. PIN refused, and no record, if the token does
  // not take it, or says that one more wrong PIN would lock it, in which case it is not tried.
  //
  // A record's key works on the token for as long as it lives, and where the PIN was given keeps
  // the token logged in. It finds the token again after that was away, giving the same PIN.
  [[nodiscard]] virtual IdentityMatches searchIdentities(const IdentityQuery &query,
                                                         const IsWanted &isWanted) = 0;
};

}  // namespace platform
