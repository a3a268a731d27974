#pragma once

#include <cstddef>
#include <string>

#include "client/WaitLimits.hpp"
#include "remote/Console.hpp"

namespace remote {

// Warns about refused requests of one machine: kMostLines lines a second, and then one line with
// the number of the others. So a machine whose requests are refused all the time does not flood the
// terminal.
class RefusalReporter {
 public:
  using Time = client::Deadline;

  // `console` must live as long as this.
  RefusalReporter(Console &console, std::string machine)
      : console_(console), machine_(std::move(machine)) {}

  void say(const std::string &line, Time now);

  // To be called at dueAt(): reports how many lines were left out.
  void turn(Time now);
  [[nodiscard]] Time dueAt() const { return unsaid_ > 0 ? secondEnds_ : Time::max(); }

  // As much as a person can read.
  static constexpr int kMostLines = 5;

 private:
  Console &console_;
  std::string machine_;
  Time secondEnds_ = Time::min();
  int said_ = 0;  // in this second
  std::size_t unsaid_ = 0;
};

}  // namespace remote
