#include "driver/CardMaking.hpp"

#include "driver/DaemonCard.hpp"

namespace driver {

std::unique_ptr<Card> makeCard(const Settings &settings, Journal & /*journal*/) {
  CardTimes times;
  times.use = settings.timeLimit;
  return std::make_unique<DaemonCard>(times);
}

}  // namespace driver
