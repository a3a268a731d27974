#include "daemon/AuthenticationTime.hpp"

#include <chrono>
#include <cstdint>

#include "settings/Settings.hpp"

namespace kfyd {
namespace {

constexpr std::chrono::seconds kSecond{1};

}  // namespace

AuthenticationTime::AuthenticationTime(platform::MainQueue &queue, platform::UserDefaults &defaults,
                                       logging::LimitLog &limits,
                                       const std::vector<QuillWorker::Shared> &workers)
    : queue_(queue), defaults_(defaults), limits_(limits), workers_(workers) {}

void AuthenticationTime::begin() {
  if (!isCounting_ && settings::valueOf(settings::kUnauthenticatedSeconds, defaults_) > 0) {
    isCounting_ = true;
    queue_.postAfter(kSecond, [this] { second(); });
  }
}

void AuthenticationTime::second() {
  isCounting_ = false;
  const std::int64_t most = settings::valueOf(settings::kUnauthenticatedSeconds, defaults_);
  if (most > 0 && countSecond(static_cast<std::uint64_t>(most))) {
    begin();
  }
}

// True if the time of at least one connection still runs.
bool AuthenticationTime::countSecond(std::uint64_t most) {
  bool isOneLeft = false;
  for (const QuillWorker::Shared &worker : workers_) {
    if (worker->isLocal || worker->isAuthenticated || !worker->g_inbound_connection) {
      continue;
    }
    ++worker->secondsUnauthenticated;
    // the first counted second may have been shorter
    if (worker->secondsUnauthenticated <= most) {
      isOneLeft = true;
      continue;
    }
    limits_.reached({{most, settings::kUnauthenticatedSeconds.key},
                     "connection from " + worker->g_inbound_connection->peer().host +
                         " ended: it has not authenticated"});
    worker->disconnect();
  }
  return isOneLeft;
}

}  // namespace kfyd
