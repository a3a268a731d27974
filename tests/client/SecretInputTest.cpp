#include "client/SecretInput.hpp"

#include <gtest/gtest.h>
#include <sys/eventfd.h>
#include <unistd.h>

#include <array>
#include <thread>

#include "fakes/PersonAtATerminal.hpp"
#include "fakes/TemporaryFolder.hpp"

namespace client {
namespace {

std::optional<std::string> revealed(const std::optional<SecretText> &secret) {
  return secret ? std::optional(std::string(secret->reveal())) : std::nullopt;
}

TEST(SecretInput, IsTheFirstLineOfAFile) {
  const fakes::TemporaryFolder folder;
  for (const char *const content : {"sésam ", "sésam \n", "sésam \r\nsecond\n"}) {
    folder.write("password", content);
    EXPECT_EQ(revealed(secretFromFile(folder / "password")), "sésam ") << content;
  }
  Error error;
  EXPECT_FALSE(secretFromFile(folder / "absent", &error));
  EXPECT_NE(error.description.find("absent"), std::string::npos);
}

TEST(SecretInput, IsTypedAtATerminalThatDoesNotShowItAndIsNeverLeftSilent) {
  const fakes::PersonAtATerminal person;
  const base::Descriptor terminal = person.openTerminal();
  const base::Descriptor stop(::eventfd(0, EFD_CLOEXEC));
  struct Case {
    std::string typed;
    std::optional<std::string> secret;
  };
  for (const Case &row : {Case{"abcü\x7F\x08!\n", "ab!"}, Case{"abc\x03", {}}, Case{"\x04", {}}}) {
    std::optional<SecretText> secret;
    std::thread asking([&] { secret = secretFromTerminal(terminal.get(), "Who? ", stop.get()); });
    EXPECT_EQ(person.shownUpTo("?"), "Who?");  // it comes after the echo was switched off
    person.type(row.typed);
    asking.join();
    EXPECT_EQ(revealed(secret), row.secret);
    person.type("x");
    EXPECT_EQ(person.shownUpTo("x"), " \r\nx") << "what is typed afterwards shows again";
  }
  ASSERT_EQ(::eventfd_write(stop.get(), 1), 0);
  EXPECT_FALSE(secretFromTerminal(terminal.get(), "Who? ", stop.get()));
  EXPECT_FALSE(secretFromTerminal(-1, "Who? "));
}

}  // namespace
}  // namespace client
