#include "driver/CardMaking.hpp"

#include <string>
#include <utility>

#include "driver/DaemonCard.hpp"

namespace driver {

std::unique_ptr<Card> makeCard(const Settings &settings, Journal &journal) {
  CardTimes times;
  times.use = settings.timeLimit;
  CardSurroundings surroundings;
  surroundings.report = [&journal](const std::string &line) { journal.report(line); };
  return std::make_unique<DaemonCard>(times, std::move(surroundings));
}

}  // namespace driver
