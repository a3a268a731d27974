#include "linux/network/TlsOutput.hpp"

#include <utility>

namespace platform_linux {
namespace {

using crypto::TlsChannel;

constexpr std::size_t kBytesPerTurn = std::size_t{64} << 10;

}  // namespace

void TlsOutput::add(CleansedBytes unit, Completion completion) {
  const std::size_t size = unit.size();
  units_.push_back(Unit{std::move(unit), 0, std::move(completion)});
  plain_ += size;
}

TlsChannel::Result TlsOutput::turn() {
  if (!encrypt()) {
    return TlsChannel::Result::failed;
  }
  const TlsChannel::Result result = channel_.flush();
  if (result == TlsChannel::Result::done) {
    for (const Completion &completion : std::exchange(leaving_, {})) {
      completion(0);
    }
  }
  return result;
}

bool TlsOutput::encrypt() {
  while (!units_.empty() && channel_.unsentBytes() < kBytesPerTurn) {
    Unit &unit = units_.front();
    const ByteView rest = ByteView(unit.bytes).subspan(unit.encrypted);
    const std::size_t taken = rest.empty() ? 0 : channel_.encryptRecord(rest);
    if (taken == 0 && !rest.empty()) {
      return false;
    }
    unit.encrypted += taken;
    plain_ -= taken;
    if (unit.encrypted == unit.bytes.size()) {
      leaving_.push_back(std::move(unit.completion));
      units_.pop_front();
    }
  }
  return true;
}

void TlsOutput::lose(int errorNumber) {
  plain_ = 0;
  const auto units = std::exchange(units_, {});
  for (const Completion &completion : std::exchange(leaving_, {})) {
    completion(errorNumber);
  }
  for (const Unit &unit : units) {
    unit.completion(errorNumber);
  }
}

}  // namespace platform_linux
