#pragma once

#include <cstdint>
#include <map>
#include <memory>
#include <vector>

#include "base/Secret.hpp"
#include "logging/LimitLog.hpp"
#include "platform/Accounts.hpp"
#include "platform/Clock.hpp"
#include "platform/LocalDirectory.hpp"
#include "platform/ToolRunner.hpp"
#include "platform/UserDefaults.hpp"
#include "protocol/QuillMessage.hpp"
#include "requests/ConnectRate.hpp"
#include "requests/PendingMessages.hpp"
#include "requests/UnpairedDevices.hpp"
#include "worker/QuillWorker.hpp"

// The daemon's protocol state machine: what it does with every message that a connection has sent.
// All of it happens on the main queue, one message at a time.
class RequestProcessor {
 public:
  // What processing needs of the platform. The references outlive the processor.
  struct Platform {
    platform::ToolRunner &tools;
    platform::Clock &clock;
    platform::UserDefaults &defaults;
    platform::LocalDirectory &directory;
    platform::Accounts &accounts;
    logging::LimitLog &limits;
  };

  // Counts since the start.
  struct Counts {
    std::uint64_t relayed = 0;
    std::uint64_t refused = 0;
  };

  explicit RequestProcessor(const Platform &platform) : platform_(platform) {}
  virtual ~RequestProcessor() = default;
  RequestProcessor(const RequestProcessor &) = delete;
  RequestProcessor &operator=(const RequestProcessor &) = delete;

  // Handles one message (null: none) of `worker`, and sends it at most one reply. May block
  // for as long as the pairing listing takes.
  void processRequest(const QuillMessage *message, const QuillWorker::Shared &worker);

  // False if an `insert` of this worker would be refused because of who it is.
  [[nodiscard]] bool mayInsert(const QuillWorker &worker) const;

  // Makes the card's marker file anew, or deletes it. Failures are ignored.
  void insertSmartcard();
  void removeSmartcard();

  // A text of random characters of the password alphabet; empty for a length of 0 or less.
  [[nodiscard]] SecretText randomAlphanumericStringWithLength(std::int64_t length) const;

  // Sets the screen-sharing account's password; false, mostly with a trace, if it was not changed.
  // Blocks.
  [[nodiscard]] bool changeTokenUserPassword(const SecretText &password) const;

  [[nodiscard]] const Platform &platform() const { return platform_; }

  // Every accepted connection, in order of acceptance.
  std::vector<QuillWorker::Shared> workers;
  // The workers whose client has sent a list, by number. A search for a key looks only at these, so
  // idle connections cost it nothing. Some may have gone since.
  std::map<std::uint64_t, std::weak_ptr<QuillWorker>> listHolders;
  // The card's list from the latest insert that carried one; null before. Never cleared.
  QuillMessage::Certificates certificates;
  // The remote connection that inserted the card last; none if it has gone.
  std::weak_ptr<QuillWorker> cardInserter;
  PendingMessages pendingMessages;
  requests::ConnectRate connectRate;
  requests::UnpairedDevices unpairedDevices;
  Counts counts;

 private:
  Platform platform_;
};
