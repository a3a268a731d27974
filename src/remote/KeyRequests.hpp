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

// The requests of one connection for the use of keys: judged, bounded, asked about, performed,
// answered. Everything happens on the loop's thread but the key's own work. When this goes, what
// waits is neither performed nor answered.
class KeyRequests : public std::enable_shared_from_this<KeyRequests> {
 public:
  // Whose requests they are.
  struct Source {
    const void *asker;  // its questions, for Consent
    std::string name;
    UseQuota &quota;  // this and the next are borrowed, and outlive this
    RefusalReporter &refusals;
    std::function<bool(const QuillMessage &answer)> send;  // false if the connection is lost
  };

  KeyRequests(Source source, const Services &services)
      : source_(std::move(source)), services_(services) {}

  // Takes a request. Messages that ask for no use of a key are passed over.
  void serve(const QuillMessage &request);

 private:
  // One use of a key, while it waits for a person and for the key.
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
