#pragma once

#include <cstddef>
#include <functional>
#include <memory>
#include <string>
#include <unordered_set>

#include "platform/Network.hpp"

namespace platform_linux {

// Counts the memory that the connections of a network hold, and evicts connections that hold too
// much. The limits are looked up only when a connection holds more than the least value of a limit.
class BufferQuota {
 public:
  // Drops the connection. Called once, possibly inside a call of the connection's owner.
  using Evict = std::function<void(int errorNumber)>;

  // What one connection holds. It counts until it is closed, evicted or destroyed.
  class Account {
   public:
    Account(std::shared_ptr<BufferQuota> quota, std::string name, Evict evict);
    ~Account();
    Account(const Account &) = delete;
    Account &operator=(const Account &) = delete;

    void setHeldBytes(std::size_t frameBytes, std::size_t otherBytes);
    void setUnsentBytes(std::size_t bytes);
    void close();  // stops counting

   private:
    friend class BufferQuota;
    [[nodiscard]] std::size_t all() const { return frame_ + other_ + unsent_; }
    void set(std::size_t &part, std::size_t bytes);

    std::shared_ptr<BufferQuota> quota_;
    std::string name_;  // for people
    Evict evict_;
    std::size_t frame_ = 0;
    std::size_t other_ = 0;  // what its owner keeps of earlier frames
    std::size_t unsent_ = 0;
    bool isOpen_ = true;
  };

  BufferQuota(std::function<platform::ConnectionLimits()> limits, platform::LimitReporter reporter);

 private:
  void check(Account &grown);
  void shrinkTo(const platform::Limit &limit);
  void evict(Account &account, int errorNumber, const platform::Limit &limit);

  std::function<platform::ConnectionLimits()> limits_;
  platform::LimitReporter reporter_;
  std::unordered_set<Account *> accounts_;
  std::size_t total_ = 0;
};

}  // namespace platform_linux
