#pragma once

#include <fcntl.h>
#include <gtest/gtest.h>

#include "base/Descriptor.hpp"

namespace fakes {

// A terminal, and the person in front of it.
class PersonAtATerminal {
 public:
  PersonAtATerminal() { EXPECT_EQ(::grantpt(person_.get()) | ::unlockpt(person_.get()), 0); }

  // The side of the program that asks.
  [[nodiscard]] std::string path() const { return ::ptsname(person_.get()); }
  [[nodiscard]] base::Descriptor openTerminal() const {
    constexpr int kFlags = O_RDWR | O_NOCTTY | O_NONBLOCK | O_CLOEXEC;
    return base::Descriptor(::open(path().c_str(), kFlags));
  }

  void type(const std::string &keys) const {
    ASSERT_EQ(::write(person_.get(), keys.data(), keys.size()), static_cast<ssize_t>(keys.size()));
  }

  // What the terminal shows up to and with `end`; the system hands it over in pieces.
  [[nodiscard]] std::string shownUpTo(const std::string &end) const {
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(10);
    std::string text;
    char character = 0;
    while (!text.ends_with(end) && base::waitToRead(person_.get(), deadline) &&
           ::read(person_.get(), &character, 1) == 1) {
      text.push_back(character);
    }
    return text;
  }

 private:
  base::Descriptor person_{::posix_openpt(O_RDWR | O_NOCTTY | O_CLOEXEC)};
};

}  // namespace fakes
