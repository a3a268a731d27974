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

// How a step of an operation came out, and whether the operation ends with it.
struct Progress {
  CK_RV result = CKR_GENERAL_ERROR;
  bool isOver = true;
};

// Whether a call gets all of the input at once (C_Sign) or some of it (C_SignUpdate, C_SignFinal).
enum class PartMode { single, multiple };

// The place of a session for one operation of a kind, a search or a signature. A step takes the
// operation out and puts it back, so that no lock is held while it lasts.
template <typename T>
class ActiveOperation {
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
    input_.reset();
    isActive_ = true;
    return CKR_OK;
  }

  // Has `step` go on with the operation; it returns a Progress, and throwing ends the operation.
  // CKR_OPERATION_NOT_INITIALIZED if there is none, or another thread is at it.
  // CKR_OPERATION_ACTIVE, and it stays as it is, if its input has come the other way so far (PKCS
  // #11 v2.40, 5.8 to 5.13): a call for the whole neither ends parts nor, where it asked for the
  // length alone, is followed by parts.
  template <typename Step>
  [[nodiscard]] CK_RV proceed(PartMode input, Step &&step) {
    std::unique_ptr<T> operation;
    if (const CK_RV result = take(input, operation); result != CKR_OK) {
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
  // Puts back what the step left, whichever way it is left.
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

  [[nodiscard]] CK_RV take(PartMode input, std::unique_ptr<T> &operation) {
    const std::lock_guard lock(mutex_);
    if (!operation_) {
      return CKR_OPERATION_NOT_INITIALIZED;
    }
    if (input_.value_or(input) != input) {
      return CKR_OPERATION_ACTIVE;
    }
    input_ = input;
    operation = std::move(operation_);
    return CKR_OK;
  }

  std::mutex mutex_;
  std::unique_ptr<T> operation_;
  std::optional<PartMode> input_;  // how it has come; nothing before the first step
  bool isActive_ = false;
};

// Where a call puts a result of variable length (PKCS #11 v2.40, 5.2): a null place asks for the
// length alone. A call that ends for want of room leaves its operation as it was.
class OutputBuffer {
 public:
  OutputBuffer(CK_BYTE_PTR place, CK_ULONG_PTR length) : place_(place), length_(length) {}

  // How the call ends before anything is done, if there is no room for `size` bytes; nothing if
  // there is.
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

  // Gives the result, with which the operation ends.
  [[nodiscard]] Progress put(ByteView result) const {
    if (const auto ended = checkRoomFor(result.size())) {
      return *ended;
    }
    std::ranges::copy(result, place_);
    *length_ = result.size();
    return Progress{CKR_OK};
  }

  // True if only the length is asked for, or nothing can be put here at all.
  [[nodiscard]] bool isEmpty() const {
    return length_ == nullptr || place_ == nullptr || *length_ == 0;
  }

 private:
  CK_BYTE_PTR place_;
  CK_ULONG_PTR length_;
};

}  // namespace driver
