#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>

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

  void allow(const SharedUse &use, const std::string &description);
  void perform(const SharedUse &use);
  void answer(const Use &use, std::optional<SecretBytes> result, const std::string &failure);
  void refuse(const Use &use, const std::string &reason);
  void sendRefusal(std::int64_t command, const UUID &messageID);

  Source source_;
  const Services &services_;
};

}  // namespace remote
