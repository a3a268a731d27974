#include "linux/network/Ledger.hpp"

#include <algorithm>
#include <cerrno>
#include <utility>

namespace platform_linux {
namespace {

// The least values of the limits: below them there is nothing to look up.
constexpr std::size_t kLeastOfOne = std::size_t{64} << 10;
constexpr std::size_t kLeastOfAll = std::size_t{1} << 20;

}  // namespace

Ledger::Account::Account(std::shared_ptr<Ledger> ledger, std::string name, Doom doom)
    : ledger_(std::move(ledger)), name_(std::move(name)), doom_(std::move(doom)) {
  ledger_->accounts_.insert(this);
}

Ledger::Account::~Account() {
  close();
}

void Ledger::Account::holds(std::size_t frameBytes, std::size_t otherBytes) {
  set(frame_, frameBytes);
  set(other_, otherBytes);
}

void Ledger::Account::holdsUnsent(std::size_t bytes) {
  set(unsent_, bytes);
}

void Ledger::Account::set(std::size_t &part, std::size_t bytes) {
  if (!isOpen_) {
    return;
  }
  const bool hasGrown = bytes > part;
  ledger_->total_ += bytes - part;
  part = bytes;
  if (hasGrown && (all() > kLeastOfOne || ledger_->total_ > kLeastOfAll)) {
    ledger_->check(*this);
  }
}

void Ledger::Account::close() {
  if (std::exchange(isOpen_, false)) {
    ledger_->accounts_.erase(this);
    ledger_->total_ -= all();
  }
}

Ledger::Ledger(std::function<platform::ConnectionLimits()> limits, platform::LimitReporter reporter)
    : limits_(std::move(limits)), reporter_(std::move(reporter)) {}

void Ledger::check(Account &grown) {
  const platform::ConnectionLimits limits = limits_();
  if (grown.frame_ > limits.frameBytes.most) {
    doom(grown, EMSGSIZE, limits.frameBytes);
  } else if (grown.unsent_ > limits.unsentBytes.most) {
    doom(grown, ENOBUFS, limits.unsentBytes);
  }
  shrinkTo(limits.bufferedBytes);
}

void Ledger::shrinkTo(const platform::Limit &limit) {
  while (total_ > limit.most) {
    Account *const largest = *std::ranges::max_element(
        accounts_, {}, [](const Account *account) { return account->all(); });
    doom(*largest, ENOBUFS, limit);
  }
}

void Ledger::doom(Account &account, int errorNumber, const platform::Limit &limit) {
  account.doom_(errorNumber);  // first: one that counts no longer and stays would escape the limits
  account.close();
  reporter_({limit, account.name_ + " dropped"});
}

}  // namespace platform_linux
