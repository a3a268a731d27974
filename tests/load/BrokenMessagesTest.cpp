// The daemon serves as before after any number of messages that are none.

#include <array>
#include <random>

#include "load/LoadedMachine.hpp"

namespace load {
namespace {

using namespace std::chrono_literals;

constexpr std::size_t kKinds = 9;

std::string brokenMessage(std::size_t kind, std::size_t random) {
  constexpr std::array kValues{"1", "[]", "{}", "null", "true", "-0.0", "[[\"\"]]"};
  const std::string start = R"({"type":"request","command":"insert","message_id":"x",)";
  std::string text = start + R"("certificates":[]})";
  const std::size_t place = random % text.size();
  switch (kind) {
    case 0:
      return text.substr(0, place);
    case 1:
      return start + "\"" + (random % 2 == 0 ? "type" : "certificates") +
             "\":" + kValues[random % kValues.size()] + "}";
    case 2:  // deep, and now and then in balance
      return std::string(random % 5000, '[') + std::string(random % 2 * (random % 5000), ']');
    case 3:
      return start + "\"certificates\":[1" + std::string(random % 600, '9') + "e" +
             std::to_string(random) + "]}";
    case 4:  // not UTF-8
      text[place] = static_cast<char>(0x80 + random % 0x80);
      return text;
    case 5:
      for (std::size_t count = random % 50; count > 0; --count) {
        text.insert(1, R"("type":"request","type":0,)");
      }
      return text;
    case 6:  // few of a mebibyte, many of some length
      return start + "\"type\":\"" +
             std::string(random % 100 == 0 ? std::size_t{1} << 20 : random % 2000, 'x') + "\"}";
    case 7:
      return text.insert(place, random % 2 == 0 ? "[DATA]" : "[ENDDATA]");
    default:
      return text.insert(place, 1 + random % 20, '\0');
  }
}

TEST_F(LoadedMachine, ServesAsBeforeAfterBrokenMessagesOfEveryKind) {
  startDaemon();
  const auto seed = std::random_device()();
  SCOPED_TRACE(seed);
  std::minstd_rand random(seed);
  constexpr std::size_t kMembers = 100;
  const std::size_t ofOne = isFull() ? 500 : 50;
  for (const std::uint16_t port : {client::kPublicPort, client::kLoopbackPort}) {
    std::vector<Behaviour> members(kMembers);
    for (Behaviour &member : members) {
      for (std::size_t number = 0; number < ofOne; ++number) {
        member.says.push_back(
            base::bytesOf("[DATA]" + brokenMessage(number % kKinds, random()) + "[ENDDATA]"));
      }
    }
    const Crowd crowd(port, std::move(members));
    EXPECT_TRUE(eventually([&] { return crowd.ended() == kMembers; })) << "each is read to its end";
    EXPECT_EQ(crowd.said(), kMembers * ofOne);
  }
  const Holder holder(/*signs=*/true);
  std::printf("  %zu broken messages, then %zu signatures in 0.2 s\n", 2 * kMembers * ofOne,
              sign(200ms).size());
}

}  // namespace
}  // namespace load
