#include <gmock/gmock.h>

#include <cstring>

#include "base/ConstantTime.hpp"
#include "base/Files.hpp"
#include "base/UTF8.hpp"
#include "base/UUID.hpp"
#include "fakes/TemporaryFolder.hpp"

namespace {

// The edges of each row of RFC 3629's table, and what lies just outside.
TEST(UTF8, IsWhatTheStandardAllowsAndNothingElse) {
  for (const char *text : {"", "\x7F", "\xC2\x80", "\xDF\xBF", "\xE0\xA0\x80", "\xEC\xBF\xBF",
                           "\xED\x9F\xBF", "\xEE\x80\x80", "\xEF\xBF\xBF", "\xF0\x90\x80\x80",
                           "\xF3\xBF\xBF\xBF", "\xF4\x8F\xBF\xBF", "a\xC3\xA9z"}) {
    EXPECT_TRUE(base::isUTF8(base::viewOf(text))) << testing::PrintToString(text);
  }
  for (const char *text :
       {"\x80", "\xC1\xBF", "\xC2", "\xC2\x7F", "\xC2\xC0", "\xE0\x9F\xBF", "\xE1\x80",
        "\xE1\x80\x7F", "\xE1\x80\xC0", "\xED\xA0\x80", "\xF0\x8F\xBF\xBF", "\xF1\x80\x80\xC0",
        "\xF4\x90\x80\x80", "\xF5\x80"}) {
    EXPECT_FALSE(base::isUTF8(base::viewOf(text))) << testing::PrintToString(text);
  }
  EXPECT_EQ(base::characterCount("aé€x"), 4U);
  EXPECT_EQ(base::firstCharacters("aé€x", 3), "aé€");
  EXPECT_EQ(base::firstCharacters("aé", 3), "aé");
}

TEST(UUID, IsRandomAndReadInEitherCase) {
  std::set<std::string> texts;
  for (int count = 0; count < 64; ++count) {
    const UUID made = UUID::random();
    EXPECT_THAT(made.text(), testing::MatchesRegex("[0-9A-F]{8}(-[0-9A-F]{4}){4}[0-9A-F]{8}"));
    EXPECT_TRUE(made.text()[14] == '4' && std::strchr("89AB", made.text()[19]) != nullptr);
    EXPECT_EQ(UUID::fromText(made.text()), made);
    texts.insert(made.text());
  }
  EXPECT_EQ(texts.size(), 64U);
  EXPECT_EQ(UUID::fromText("0f1e2d3c-4b5a-6978-8796-a5b4c3d2e1f0")->text(),
            "0F1E2D3C-4B5A-6978-8796-A5B4C3D2E1F0");
  for (const char *text :
       {"", "0F1E2D3C-4B5A-6978-8796-A5B4C3D2E1F", "0F1E2D3C-4B5A-6978-8796-A5B4C3D2E1F00",
        "0F1E2D3C04B5A-6978-8796-A5B4C3D2E1F0", "0F1E2D3C-4B5A-6978-8796-A5B4C3D2E1FG"}) {
    EXPECT_FALSE(UUID::fromText(text)) << text;
  }
}

TEST(Secret, IsOverwrittenAndComparedAsAWhole) {
  std::array<std::uint8_t, 4> memory{1, 2, 3, 4};
  base::cleanse(memory.data(), 3);
  EXPECT_THAT(memory, testing::ElementsAre(0, 0, 0, 4));
  base::cleanse(nullptr, 1);
  EXPECT_TRUE(base::equalInConstantTime(SecretText("pin"), SecretText("pin")));
  for (const char *other : {"", "pi", "pinn", "Pin", "piN"}) {
    EXPECT_FALSE(base::equalInConstantTime(SecretText("pin"), SecretText(other))) << other;
  }
}

TEST(Files, AreReadToALimitAndReplacedAsAWhole) {
  const fakes::TemporaryFolder folder;
  const std::string path = folder / "a/b/file";
  Error error;
  EXPECT_TRUE(base::makeFolders(folder / "a/b", 0700));
  const mode_t before = ::umask(077);
  EXPECT_TRUE(base::replaceFile(path, base::viewOf("12345"), 0640) &&
              base::replacePassingFile(path, base::viewOf("1234"), 0644));
  ::umask(before);
  EXPECT_EQ(folder.modeOf("a/b/file"), 0644U);
  EXPECT_EQ(base::textOf(base::readFile(path, 4).value()), "1234");
  EXPECT_FALSE(base::readFile(path, 3, &error));
  EXPECT_EQ(error.description, "cannot read " + path + ": larger than 3 bytes");
  EXPECT_FALSE(base::readFile(folder / "a", 9, &error));
  EXPECT_EQ(error.description, "cannot read " + (folder / "a") + ": not a regular file");
  EXPECT_FALSE(base::readFile(folder / "none", 9, &error));
  EXPECT_EQ(error.code, ENOENT);
  EXPECT_GT(base::readFile("/proc/self/status", 1 << 20).value().size(), 100U)
      << "one that claims to be empty";
  EXPECT_FALSE(base::replaceFile(folder / "a", base::viewOf("x"), 0644)) << "a folder is there";
  EXPECT_FALSE(base::makeFolders(path + "/c", 0700));
  EXPECT_EQ(std::distance(std::filesystem::recursive_directory_iterator(folder.path()), {}), 3)
      << "nothing is left behind";
}

}  // namespace
