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

constexpr std::size_t kMost = std::size_t{64} * 1024;

std::string revealed(const std::optional<SecretText> &secret) {
  return secret ? std::string(secret->reveal()) : "nothing";
}

TEST(SecretInput, IsTheFirstLineOfAFileOrDescriptor) {
  const fakes::TemporaryFolder folder;
  const std::string longest(kMost - 1, 'x');
  const std::pair<std::string, std::string> kCases[] = {
      {"", ""},   {"sésam ", "sésam "},      {"sésam \nx", "sésam "},     {"sésam\r\nx", "sésam"},
      {"\r", ""}, {longest + "\n", longest}, {longest + "\nx", "nothing"}};
  for (const auto &[content, secret] : kCases) {
    folder.write("password", content);
    EXPECT_EQ(revealed(secretFromFile(folder / "password")), secret);
  }
  Error error;
  EXPECT_FALSE(secretFromFile(folder / "absent", &error));
  EXPECT_NE(error.description.find("absent"), std::string::npos);

  std::array<int, 2> ends{};
  ASSERT_EQ(::pipe2(ends.data(), O_CLOEXEC), 0);
  const base::Descriptor reader(ends[0]);
  base::Descriptor writer(ends[1]);
  ASSERT_EQ(::write(writer.get(), "one\r\n\ntwo", 9), 9);
  writer.close();
  errno = EINTR;  // left by an earlier call
  for (const char *const line : {"one", "", "two", ""}) {
    EXPECT_EQ(revealed(secretFromDescriptor(reader.get())), line);
  }
  EXPECT_FALSE(secretFromDescriptor(-1, &error));
  EXPECT_EQ(error.code, EBADF);
}

TEST(SecretInput, IsTypedAtATerminalThatDoesNotShowItAndIsNeverLeftSilent) {
  const fakes::PersonAtATerminal person;
  const base::Descriptor terminal = person.openTerminal();
  const base::Descriptor stop(::eventfd(0, EFD_CLOEXEC));
  const std::string longest(kMost - 1, 'x');
  const std::pair<std::string, std::string> kCases[] = {
      {"\177abcü\177\b!\n", "ab!"}, {"abc\r", "abc"},
      {"abc\3", "nothing"},         {"\4", "nothing"},
      {longest + "\n", longest},    {longest + "x", "nothing"}};
  for (const auto &[typed, secret] : kCases) {
    std::optional<SecretText> given;
    std::thread asking([&] { given = secretFromTerminal(terminal.get(), "Who? ", stop.get()); });
    EXPECT_EQ(person.shownUpTo("?"), "Who?");  // shown after the echo was switched off
    person.type(typed);
    asking.join();
    EXPECT_EQ(revealed(given), secret);
    person.type("x");
    EXPECT_EQ(person.shownUpTo("x"), " \r\nx") << "what is typed afterwards shows again";
  }
  ASSERT_EQ(::eventfd_write(stop.get(), 1), 0);
  EXPECT_FALSE(secretFromTerminal(terminal.get(), "Who? ", stop.get()));
  EXPECT_FALSE(secretFromTerminal(stop.get(), "Who? ", stop.get()));
  EXPECT_FALSE(secretFromTerminal(-1, "Who? "));
}

}  // namespace
}  // namespace client
