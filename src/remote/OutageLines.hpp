#pragma once

#include <chrono>
#include <optional>
#include <string>

#include "client/WaitLimits.hpp"
#include "remote/Console.hpp"

namespace remote {

// Errors about a machine that is away: one line when that begins and one an hour, however many
// attempts fail, and not one for each.
class OutageLines {
 public:
  using Time = client::Deadline;

  // `console` must live as long as this.
  OutageLines(Console &console, std::string machine)
      : console_(console), machine_(std::move(machine)) {}

  // A connection was lost, or an attempt to make one failed.
  void noteFailure(const std::string &reason, Time now);

  [[nodiscard]] bool isOn() const { return since_.has_value(); }

  // The machine has answered. Returns how long it was away; nothing if it was not.
  std::optional<std::chrono::seconds> end(Time now);

 private:
  Console &console_;
  std::string machine_;
  std::optional<Time> since_;
  Time saidAt_ = Time::min();
};

}  // namespace remote
