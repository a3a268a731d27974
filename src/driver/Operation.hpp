#pragma once

#include <algorithm>
#include <cstddef>
#include <memory>
#include <mutex>
#include <optional>
#include <utility>

#include "base/Bytes.hpp"
#include "driver/Pkcs11.hpp"

namespace driver {

// The result of a step of an operation, and whether the operation ends with it.
struct Progress {
  CK_RV result = CKR_GENERAL_ERROR;
  bool isOver = true;
};

// Single-part (C_Sign) or multiple-part (C_SignUpdate, C_SignFinal) operation.
enum class PartMode { single, multiple };

// The active operation of one kind in a session: a search, a signature and so on. A step takes the
// operation out and puts it back, so no lock is held during a step.
template <typename T>
class ActiveOperation {
 public:
  // True from begin() until the last step has ended, also during a step.
  [[nodiscard]] bool isActive() {
    const std::lock_guard lock(mutex_);
    return isActive_;
  }

  // Starts an operation. CKR_OPERATION_ACTIVE if there is one.
  [[nodiscard]] CK_RV begin(std::unique_ptr<T> operation) {
    const std::lock_guard lock(mutex_);
    if (isActive_) {
      return CKR_OPERATION_ACTIVE;
    }
    operation_ = std::move(operation);
    mode_.reset();
    isActive_ = true;
    return CKR_OK;
  }

  // Runs `step`, which takes the operation and returns a Progress. An exception ends the operation.
  // CKR_OPERATION_NOT_INITIALIZED if there is none, or if another thread is running a step.
  // CKR_OPERATION_ACTIVE, without a change, if single-part and multiple-part calls are mixed (PKCS
  // #11 v2.40, 5.8 to 5.13), a length query included.
  template <typename Step>
  [[nodiscard]] CK_RV proceed(PartMode mode, Step &&step) {
    std::unique_ptr<T> operation;
    if (const CK_RV result = take(mode, operation); result != CKR_OK) {
      return result;
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
  // Puts the operation back at the end of a step, even after an exception.
  class Return {
   public:
    explicit Return(ActiveOperation &place) : place_(place) {}
    ~Return() {
      const std::lock_guard lock(place_.mutex_);
      place_.isActive_ = operation != nullptr;
      place_.operation_ = std::move(operation);
    }
    Return(const Return &) = delete;
    Return &operator=(const Return &) = delete;

    std::unique_ptr<T> operation;

   private:
    ActiveOperation &place_;
  };

  [[nodiscard]] CK_RV take(PartMode mode, std::unique_ptr<T> &operation) {
    const std::lock_guard lock(mutex_);
    if (!operation_) {
      return CKR_OPERATION_NOT_INITIALIZED;
    }
    if (mode_.value_or(mode) != mode) {
      return CKR_OPERATION_ACTIVE;
    }
    mode_ = mode;
    operation = std::move(operation_);
    return CKR_OK;
  }

  std::mutex mutex_;
  std::unique_ptr<T> operation_;
  std::optional<PartMode> mode_;  // nothing before the first step
  bool isActive_ = false;
};

// The output buffer of a call (PKCS #11 v2.40, 5.2). A null buffer queries the length. A length
// query or a buffer that is too small leaves the operation active.
class OutputBuffer {
 public:
  OutputBuffer(CK_BYTE_PTR place, CK_ULONG_PTR length) : place_(place), length_(length) {}

  // Nothing if `size` bytes fit. Otherwise sets the length and returns how the call ends.
  [[nodiscard]] std::optional<Progress> checkRoomFor(std::size_t size) const {
    if (length_ == nullptr) {
      return Progress{CKR_ARGUMENTS_BAD};
    }
    if (place_ != nullptr && *length_ >= size) {
      return std::nullopt;
    }
    *length_ = size;
    return Progress{place_ == nullptr ? CKR_OK : CKR_BUFFER_TOO_SMALL, /*isOver=*/false};
  }

  // Writes the result and ends the operation.
  [[nodiscard]] Progress put(ByteView result) const {
    if (const auto ended = checkRoomFor(result.size())) {
      return *ended;
    }
    std::ranges::copy(result, place_);
    *length_ = result.size();
    return Progress{CKR_OK};
  }

  // True for a length query, an empty buffer or a null length pointer.
  [[nodiscard]] bool isEmpty() const {
    return length_ == nullptr || place_ == nullptr || *length_ == 0;
  }

 private:
  CK_BYTE_PTR place_;
  CK_ULONG_PTR length_;
};

}  // namespace driver
