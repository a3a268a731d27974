#include "driver/ModuleState.hpp"

#include <unistd.h>

#include "crypto/ErrorQueue.hpp"
#include "driver/DaemonCard.hpp"
#include "driver/OpenSSLContext.hpp"

namespace driver {
namespace {

std::atomic<ModuleState *> theModule{nullptr};
std::atomic<CardFactory> theCardFactory{makeCard};

}  // namespace

ModuleState &ModuleState::current() {
  ModuleState *known = theModule.load();
  if (known != nullptr && known->identifier_ == ::getpid()) {
    return *known;
  }
  auto fresh = std::make_unique<ModuleState>(::getpid());
  const std::lock_guard lock(fresh->mutex_);  // other threads wait here until abandon() is done
  if (!theModule.compare_exchange_strong(known, fresh.get())) {
    return *known;  // another thread was first
  }
  ModuleState &current = *fresh.release();
  if (known != nullptr) {
    known->abandon();
  }
  return current;
}

CK_RV ModuleState::initialize() {
  const std::lock_guard lock(mutex_);
  if (driver_) {
    return CKR_CRYPTOKI_ALREADY_INITIALIZED;
  }
  driver_ = std::make_shared<Driver>(theCardFactory.load());
  inheritable_ = driver_.get();
  return CKR_OK;
}

CK_RV ModuleState::finalize() {
  std::shared_ptr<Driver> ended;
  {
    const std::lock_guard lock(mutex_);
    ended = std::move(driver_);
    inheritable_ = nullptr;
  }
  if (!ended) {
    return CKR_CRYPTOKI_NOT_INITIALIZED;
  }
  ended->stop();
  if (crypto::libraryHasEnded()) {
    const std::lock_guard lock(mutex_);
    unreleasable_.push_back(std::move(ended));
  }
  return CKR_OK;
}

std::shared_ptr<Driver> ModuleState::driver() {
  const std::lock_guard lock(mutex_);
  return driver_;
}

void ModuleState::useCardFactory(CardFactory factory) {
  theCardFactory = factory;
}

void ModuleState::abandon() {
  dropInheritedOpenSSLContext();
  if (Driver *const inherited = inheritable_) {
    inherited->token.abandon();
  }
}

}  // namespace driver
