#pragma once

#include <chrono>
#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "base/Bytes.hpp"
#include "base/Secret.hpp"
#include "base/UUID.hpp"
#include "protocol/QuillMessage.hpp"
#include "remote/KeyPolicy.hpp"
#include "remote/RefusalReporter.hpp"
#include "remote/Services.hpp"
#include "remote/UseQuota.hpp"

namespace remote {

// Handles the key requests of one connection: judges them, limits them, asks the person, performs
// and answers them. Only the key operation itself leaves the loop's thread. When this object goes,
// waiting requests are neither performed nor answered.
class KeyRequests : public std::enable_shared_from_this<KeyRequests> {
 public:
  // Where the requests come from.
  struct Source {
    const void *asker;  // identifies its questions to Consent
    std::string name;
    UseQuota &quota;  // like `refusals` borrowed; must outlive this
    RefusalReporter &refusals;
    std::function<bool(const QuillMessage &answer)> send;  // false if the connection is lost
  };

  KeyRequests(Source source, const Services &services)
      : source_(std::move(source)), services_(services) {}

  // Handles a request. Messages that ask for no key are ignored.
  void serve(const QuillMessage &request);

  // Performs the uses that were allowed since the last call. To be called when all requests that
  // have come in are served: a single use of a fast key does not leave the thread.
  void performAllowed();

 private:
  // One use of a key that waits for the person or the key.
  struct Use {
    const CardKey *key;
    std::int64_t command;
    UUID messageID;
    Bytes data;
    KeyOperation operation = KeyOperation::rawRSA;
  };
  using SharedUse = std::shared_ptr<const Use>;

  // What came of a use.
  struct KeyResult {
    std::optional<SecretBytes> content;
    std::string failure;  // why there is none
    std::chrono::steady_clock::duration time{0};
  };

  [[nodiscard]] static KeyResult perform(const Use &use);

  void allow(const SharedUse &use, const std::string &description);
  void performElsewhere(const SharedUse &use);
  void finish(const Use &use, KeyResult result);
  void answer(const Use &use, SecretBytes content);
  void refuse(const Use &use, const std::string &reason);
  void sendRefusal(std::int64_t command, const UUID &messageID);

  Source source_;
  const Services &services_;
  std::vector<SharedUse> allowed_;                                            // not yet performed
  std::map<const CardKey *, std::chrono::steady_clock::duration> lastTimes_;  // of uses, by key
};

}  // namespace remote
