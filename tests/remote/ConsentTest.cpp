#include "remote/Consent.hpp"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <array>
#include <cstdlib>
#include <vector>

namespace remote {
namespace {

// A terminal of the test's own, with the person's side of it.
class ConsentAtATerminal : public testing::Test {
 protected:
  ConsentAtATerminal() {
    EXPECT_EQ(::grantpt(person_.get()) | ::unlockpt(person_.get()), 0);
    terminal_.emplace(base::Descriptor(
        ::open(::ptsname(person_.get()), O_RDWR | O_NOCTTY | O_NONBLOCK | O_CLOEXEC)));
  }

  void type(const std::string &line) {
    ASSERT_EQ(::write(person_.get(), line.data(), line.size()), static_cast<ssize_t>(line.size()));
  }

  void answer(Consent &consent, const std::string &line) {
    type(line);
    ASSERT_TRUE(base::waitToRead(consent.descriptor(),
                                 std::chrono::steady_clock::now() + std::chrono::seconds(10)));
    consent.readAnswer();
  }

  // What the terminal shows up to and with `end`; the system hands it over in pieces.
  std::string shownUpTo(const std::string &end) {
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(10);
    std::string text;
    char character = '\0';
    while (!text.ends_with(end) && base::waitToRead(person_.get(), deadline) &&
           ::read(person_.get(), &character, 1) == 1) {
      text.push_back(character);
    }
    return text;
  }

  base::Descriptor person_{::posix_openpt(O_RDWR | O_NOCTTY | O_CLOEXEC | O_NONBLOCK)};
  std::optional<Terminal> terminal_;
};

TEST_F(ConsentAtATerminal, TakesNothingButAYesForAYes) {
  struct Case {
    const char *line;
    bool inFull;
    bool isYes;
  };
  for (const Case &row :
       {Case{"y\n", false, true}, Case{"Yes\n", false, true}, Case{"\n", false, false},
        Case{"n\n", false, false}, Case{"yy\n", false, false}, Case{"\x04", false, false},
        Case{"y\n", true, false}, Case{"yes\n", true, true}}) {
    Consent consent(*terminal_);
    std::optional<bool> given;
    consent.ask(this, "Allow it?", row.inFull,
                [&](Consent::Reply reply) { given = reply == Consent::Reply::yes; });
    answer(consent, row.line);
    EXPECT_EQ(given, row.isYes) << row.line;
    EXPECT_LT(consent.descriptor(), 0);
  }
}

TEST_F(ConsentAtATerminal, AsksOneAfterTheOtherAndForgetsWhoeverIsGone) {
  Consent consent(*terminal_);
  std::vector<std::string> allowed;
  const auto ask = [&](const int &asker, const std::string &name) {
    consent.ask(&asker, name, /*inFull=*/false, [&allowed, name](Consent::Reply reply) {
      constexpr std::array kReplies{" yes", " no", " withdrawn"};
      allowed.push_back(name + kReplies.at(static_cast<std::size_t>(reply)));
    });
  };
  const int first = 1;
  const int second = 2;
  ask(first, "one");
  ask(first, "two");
  ask(second, "three");
  EXPECT_EQ(shownUpTo("] "), "one [y/N] ");
  answer(consent, "y\n");
  EXPECT_EQ(shownUpTo("] "), "y\r\ntwo [y/N] ");
  EXPECT_EQ(consent.waiting(&first), 1U);
  consent.withdraw(&first);
  answer(consent, "n\n");
  EXPECT_EQ(allowed, (std::vector<std::string>{"one yes", "two withdrawn", "three no"}));
}

TEST(Consent, CannotAskWithoutATerminal) {
  Terminal none{base::Descriptor()};
  EXPECT_FALSE(Consent(none).canAsk());
}

}  // namespace
}  // namespace remote
