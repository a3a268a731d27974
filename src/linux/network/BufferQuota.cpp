#include "linux/network/BufferQuota.hpp"

#include <algorithm>
#include <cerrno>
#include <utility>

namespace platform_linux {
namespace {

// The least values that the limits can have. Below them no limit has to be looked up.
constexpr std::size_t kLeastOfOne = std::size_t{64} << 10;
constexpr std::size_t kLeastOfAll = std::size_t{1} << 20;

}  // namespace

BufferQuota::Account::Account(std::shared_ptr<BufferQuota> quota, std::string name, Evict evict)
    : quota_(std::move(quota)), name_(std::move(name)), evict_(std::move(evict)) {
  quota_->accounts_.insert(this);
}

BufferQuota::Account::~Account() {
  close();
}

void BufferQuota::Account::setHeldBytes(std::size_t frameBytes, std::size_t otherBytes) {
  set(frame_, frameBytes);
  set(other_, otherBytes);
}

void BufferQuota::Account::setUnsentBytes(std::size_t bytes) {
  set(unsent_, bytes);
}

void BufferQuota::Account::set(std::size_t &part, std::size_t bytes) {
  if (!isOpen_) {
    return;
  }
  const bool hasGrown = bytes > part;
  quota_->total_ += bytes - part;
  part = bytes;
  if (hasGrown && (all() > kLeastOfOne || quota_->total_ > kLeastOfAll)) {
    quota_->check(*this);
  }
}

void BufferQuota::Account::close() {
  if (std::exchange(isOpen_, false)) {
    quota_->accounts_.erase(this);
    quota_->total_ -= all();
  }
}

BufferQuota::BufferQuota(std::function<platform::ConnectionLimits()> limits,
                         platform::LimitReporter reporter)
    : limits_(std::move(limits)), reporter_(std::move(reporter)) {}

void BufferQuota::check(Account &grown) {
  const platform::ConnectionLimits limits = limits_();
  if (grown.frame_ > limits.frameBytes.most) {
    evict(grown, EMSGSIZE, limits.frameBytes);
  } else if (grown.unsent_ > limits.unsentBytes.most) {
    evict(grown, ENOBUFS, limits.unsentBytes);
  }
  shrinkTo(limits.bufferedBytes);
}

void BufferQuota::shrinkTo(const platform::Limit &limit) {
  while (total_ > limit.most) {
    Account *const largest = *std::ranges::max_element(
        accounts_, {}, [](const Account *account) { return account->all(); });
    evict(*largest, ENOBUFS, limit);
  }
}

void BufferQuota::evict(Account &account, int errorNumber, const platform::Limit &limit) {
  account.evict_(errorNumber);  // first: if this throws, the connection still counts
  account.close();
  reporter_({limit, account.name_ + " dropped"});
}

}  // namespace platform_linux
