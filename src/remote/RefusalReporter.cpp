#include "remote/RefusalReporter.hpp"

#include <utility>

namespace remote {

void RefusalReporter::say(const std::string &line, Time now) {
  turn(now);
  if (now >= secondEnds_) {
    secondEnds_ = now + std::chrono::seconds(1);
    said_ = 0;
  }
  if (said_ == kMostLines) {
    ++unsaid_;
    return;
  }
  ++said_;
  console_.warn(line);
}

void RefusalReporter::turn(Time now) {
  if (unsaid_ > 0 && now >= secondEnds_) {
    console_.warn("refused " + std::to_string(std::exchange(unsaid_, 0)) + " more requests of " +
                  machine_ + " within a second");
  }
}

}  // namespace remote
