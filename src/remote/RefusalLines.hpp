#pragma once

#include <cstddef>
#include <string>

#include "client/WaitLimits.hpp"
#include "remote/Console.hpp"

namespace remote {

// Warnings about the refused requests of one machine: so many lines a second, the rest of them in
// one line when the second is over. A machine that asks all the time for what is refused fills no
// terminal and hides no other line.
class RefusalLines {
 public:
  using Time = client::Deadline;

  // `console` must live as long as this.
  RefusalLines(Console &console, std::string machine)
      : console_(console), machine_(std::move(machine)) {}

  void say(const std::string &line, Time now);

  // To be called when dueAt() has come: says how many lines were left out.
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
