#pragma once

#include <memory>

#include "driver/Token.hpp"

namespace driver {

// The card that this machine's daemon holds, as a program outside the tests gets it.
[[nodiscard]] std::unique_ptr<Card> makeCard(const Settings &settings, Journal &journal);

}  // namespace driver
