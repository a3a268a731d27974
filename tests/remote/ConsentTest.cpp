#include "remote/Consent.hpp"

#include <gtest/gtest.h>
#include <termios.h>

#include <array>

#include "fakes/PersonAtATerminal.hpp"

namespace remote {
namespace {

class ConsentAtATerminal : public testing::Test {
 protected:
  void answer(Consent &consent, const std::string &line) {
    person_.type(line);
    ASSERT_TRUE(base::waitToRead(consent.descriptor(),
                                 std::chrono::steady_clock::now() + std::chrono::seconds(10)));
    consent.readAnswer();
  }

  fakes::PersonAtATerminal person_;
  Terminal terminal_{person_.openTerminal()};
};

TEST_F(ConsentAtATerminal, AsksOneAfterTheOtherAndForgetsWhoeverIsGone) {
  Consent consent(terminal_);
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
  EXPECT_EQ(person_.shownUpTo("] "), "one [y/N] ");
  answer(consent, "y\n");
  EXPECT_EQ(person_.shownUpTo("] "), "y\r\ntwo [y/N] ");
  consent.readAnswer();  // silence is no answer
  EXPECT_EQ(consent.waiting(&first), 1U);
  consent.withdraw(&first);
  EXPECT_EQ(person_.shownUpTo("] "), "\r\n(no answer is needed any more)\r\nthree [y/N] ");
  answer(consent, "yy\n");
  EXPECT_EQ(allowed, (std::vector<std::string>{"one yes", "two withdrawn", "three no"}));
}

TEST_F(ConsentAtATerminal, TakesNoAnswerToAQuestionThatCouldNotBeSeen) {
  Consent consent(terminal_);
  std::optional<bool> given;
  ASSERT_EQ(::tcflow(terminal_.descriptor(), TCOOFF), 0);  // as Ctrl-S does
  consent.ask(this, "Allow it?", /*inFull=*/false,
              [&](Consent::Reply reply) { given = reply == Consent::Reply::yes; });
  answer(consent, "y\n");
  EXPECT_FALSE(given);
  EXPECT_TRUE(consent.wantsWrite());
  ASSERT_EQ(::tcflow(terminal_.descriptor(), TCOON), 0);
  consent.readAnswer();
  EXPECT_FALSE(given);
  EXPECT_NE(person_.shownUpTo("[y/N] ").find("Allow it?"), std::string::npos);
  answer(consent, "y\n");
  EXPECT_EQ(given, true);
}

}  // namespace
}  // namespace remote
