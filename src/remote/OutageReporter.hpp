#pragma once

#include <chrono>
#include <optional>
#include <string>

#include "client/WaitLimits.hpp"
#include "remote/Console.hpp"

namespace remote {

// Reports that a machine cannot be reached: one line when the outage begins and one an hour, not
// one for each failed attempt.
class OutageReporter {
 public:
  using Time = client::Deadline;

  // `console` must live as long as this.
  OutageReporter(Console &console, std::string machine)
      : console_(console), machine_(std::move(machine)) {}

  // A connection was lost, or an attempt to make one failed.
  void noteFailure(const std::string &reason, Time now);

  [[nodiscard]] bool isOn() const { return since_.has_value(); }

  // The machine has answered. Returns how long the outage lasted; nothing if there was none.
  std::optional<std::chrono::seconds> end(Time now);

 private:
  Console &console_;
  std::string machine_;
  std::optional<Time> since_;
  Time saidAt_ = Time::min();
};

}  // namespace remote
