#pragma once

#include <memory>
#include <mutex>
#include <utility>

#include "driver/Pkcs11.hpp"

namespace driver {

// How a step of an operation came out, and whether the operation ends with it.
struct Progress {
  CK_RV result = CKR_GENERAL_ERROR;
  bool isOver = true;
};

// The place of a session for one operation of a kind, a search or a signature. A step takes the
// operation out and puts it back, so that no lock is held while it lasts.
template <typename T>
class OperationPlace {
 public:
  // True from begin() until a step was the last, steps included that are still at work.
  [[nodiscard]] bool isActive() {
    const std::lock_guard lock(mutex_);
    return isActive_;
  }

  // Puts a new operation here. CKR_OPERATION_ACTIVE if there is one.
  [[nodiscard]] CK_RV begin(std::unique_ptr<T> operation) {
    const std::lock_guard lock(mutex_);
    if (isActive_) {
      return CKR_OPERATION_ACTIVE;
    }
    operation_ = std::move(operation);
    isActive_ = true;
    return CKR_OK;
  }

  // Has `step` go on with the operation; it returns a Progress, and throwing ends the operation.
  // CKR_OPERATION_NOT_INITIALIZED if there is none, or another thread is at it.
  template <typename Step>
  [[nodiscard]] CK_RV proceed(Step &&step) {
    std::unique_ptr<T> operation = take();
    if (!operation) {
      return CKR_OPERATION_NOT_INITIALIZED;
    }
    Return returned(*this);
    const Progress progress = std::forward<Step>(step)(*operation);
    if (!progress.isOver) {
      returned.operation = std::move(operation);
    }
    return progress.result;
  }

  // Ends the operation, if there is one.
  void end() {
    const std::lock_guard lock(mutex_);
    operation_.reset();
    isActive_ = false;
  }

 private:
  // Puts back what the step left, whichever way it is left.
  class Return {
   public:
    explicit Return(OperationPlace &place) : place_(place) {}
    ~Return() {
      const std::lock_guard lock(place_.mutex_);
      place_.isActive_ = operation != nullptr;
      place_.operation_ = std::move(operation);
    }
    Return(const Return &) = delete;
    Return &operator=(const Return &) = delete;

    std::unique_ptr<T> operation;

   private:
    OperationPlace &place_;
  };

  [[nodiscard]] std::unique_ptr<T> take() {
    const std::lock_guard lock(mutex_);
    return std::move(operation_);
  }

  std::mutex mutex_;
  std::unique_ptr<T> operation_;
  bool isActive_ = false;
};

}  // namespace driver
