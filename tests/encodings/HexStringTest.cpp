#include "encodings/HexString.hpp"

#include "encodings/Base64CodeArrayData.hpp"
#include "fakes/LoggedTest.hpp"

namespace encodings {
namespace {

class HexText : public fakes::LoggedTest {};

TEST_F(HexText, IsReadInEitherCaseWithOnePrefix) {
  EXPECT_EQ(hexString(Bytes{0x00, 0xAB, 0x0F}), "00AB0F");
  EXPECT_EQ(dataWithHexString("0xa09AFf"), (Bytes{0xA0, 0x9A, 0xFF}));
  EXPECT_EQ(dataWithHexString("0X"), Bytes{});
  EXPECT_EQ(dataWithHexString(""), Bytes{});
}

TEST_F(HexText, ThatIsMalformedGivesNothingAndSaysWhere) {
  for (const char *edge : {"/", ":", "@", "G", "`", "g"}) {
    EXPECT_EQ(dataWithHexString(edge + std::string("0")), std::nullopt) << edge;
  }
  takeEntries();
  for (const auto &[text, entry] : {std::pair{"ABC", ""},
                                    {"é", ""},  // one character
                                    {"0X0x12", "0x12 (bad digit around 0)"},
                                    {"12 4", "12 4 (bad digit around 2)"},
                                    {"12éa", "12éa (bad digit around 2)"}}) {
    EXPECT_EQ(dataWithHexString(text), std::nullopt) << text;
    const auto entries = takeEntries();
    EXPECT_EQ(entries.empty() ? "" : entries.front(),
              *entry == '\0' ? "" : std::string("kfy:String should be all hex digits: ") + entry);
  }
}

TEST(Base64, HasALineBreakBetweenLinesOnly) {
  const std::string line(64, 'A');
  EXPECT_EQ(base64EncodedString(Bytes(48)), line);
  EXPECT_EQ(base64EncodedString(Bytes(49)), line + "\r\nAA==");
  EXPECT_EQ(base64EncodedString(Bytes(96)), line + "\r\n" + line);
  EXPECT_EQ(base64EncodedString({}), "");
}

TEST(Base64, HasTwoReaders) {
  const std::tuple<const char *, Bytes, std::optional<Bytes>> kCases[] = {
      {"QQ==", {0x41}, Bytes{0x41}},
      {"QQ", {0x41}, std::nullopt},
      {"Q\r\nQ =*=", {0x41}, Bytes{0x41}},
      {"QQ=", {0x41}, std::nullopt},
      {"Q", {}, std::nullopt},
      {"====", {}, std::nullopt},
      {"QUJD\n", {0x41, 0x42, 0x43}, Bytes{0x41, 0x42, 0x43}},
      {"QQ==QUJD", {0x41, 0x04, 0x14, 0x24}, std::nullopt},
      {"Q=Q=", {0x41}, std::nullopt},
      {"QUI-_=", {0x41, 0x42}, Bytes{0x41, 0x42}},
      {"QQé==", {}, Bytes{0x41}},
      {"", {}, Bytes{}},
  };
  for (const auto &[text, lenient, expected] : kCases) {
    EXPECT_EQ(dataFromBase64String(text), lenient) << text;
    const auto field = dataFromBase64Field(text);
    EXPECT_EQ(field ? std::optional(Bytes(field->begin(), field->end())) : std::nullopt, expected)
        << text;
  }
}

TEST(Base64, OfALengthOfAllOnesEndsBeforeANUL) {
  constexpr std::array<std::uint8_t, 6> kText{'Q', 'Q', '=', 0, 'Q', 'Q'};
  EXPECT_EQ(base64DecodeBytes(kText.data(), ~std::size_t{0}), Bytes{0x41});
  EXPECT_EQ(base64DecodeBytes(kText.data(), 5), (Bytes{0x41, 0x04}));
}

TEST(Base64, OfArraysStaysOnOneLineAndPassesTheRestThrough) {
  const std::vector<ArrayElement> array{Bytes(49), OtherValue{"7"}};
  const auto encoded = base64DataEncodedArray(array);
  EXPECT_THAT(encoded, testing::ElementsAre(ArrayElement(std::string(66, 'A') + "=="),
                                            ArrayElement(OtherValue{"7"})));
  EXPECT_EQ(base64DecodedArray(encoded), array);
}

}  // namespace
}  // namespace encodings
