#pragma once

#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "linux/defaults/TomlText.hpp"
#include "platform/UserDefaults.hpp"

namespace platform_linux {

// Settings in TOML files, one per domain, named "<domain>.toml". A look-up costs a stat of the
// file, the first one of a moment; it is read again when its inode, size, mode or time stamps
// (nanoseconds) are new.
//
// What cannot be used is told to the reporter, once per change: a file that does not parse or can't
// be read keeps the values it had before; one that its group or others can write counts as absent;
// what the check finds in a file that parses. For want of descriptors the values stay as they are,
// silently.
//
// Takes calls from any thread.
class TomlUserDefaults : public platform::UserDefaults {
 public:
  // Is given one line that names the file, the line and the cause. It may look settings up here
  // itself.
  using Reporter = std::function<void(const std::string &line)>;

  // The number of the present moment. Within one moment a file is looked at once; 0 is no moment,
  // and the file is looked at every time.
  using Moment = std::function<std::uint64_t()>;

  // Says, in a line each, what is wrong with the settings of a domain. Asked once per change.
  using Check = std::function<std::vector<std::string>(std::string_view domain,
                                                       std::span<const Setting> settings)>;

  // `folder` is an absolute path, mapped under the root. Without `moment` there is none, without
  // `check` everything is right.
  explicit TomlUserDefaults(Reporter reporter, std::string folder = "/etc/keyferry",
                            Moment moment = nullptr, Check check = nullptr);
  ~TomlUserDefaults() override;

  // The domain's file; not mapped under the root.
  [[nodiscard]] std::string pathOf(std::string_view domain) const;

  [[nodiscard]] std::optional<std::string> text(std::string_view domain,
                                                std::string_view key) override;
  [[nodiscard]] std::optional<bool> boolean(std::string_view domain, std::string_view key) override;
  [[nodiscard]] std::optional<std::int64_t> integer(std::string_view domain,
                                                    std::string_view key) override;

 private:
  struct File;

  [[nodiscard]] std::optional<SettingValue> find(std::string_view domain, std::string_view key);
  // The domain's file, looked at unless that was in this moment; adds what is to be reported.
  [[nodiscard]] File &current(std::string_view domain, std::uint64_t moment,
                              std::vector<std::string> &complaints);
  // Both bring a file up to date and return what is to be reported, a line each.
  [[nodiscard]] std::vector<std::string> refresh(File &file) const;
  [[nodiscard]] std::vector<std::string> take(File &file, std::string_view content) const;

  Reporter reporter_;
  std::string folder_;
  Moment moment_;
  Check check_;
  std::mutex mutex_;                                                 // of what follows
  std::map<std::string, std::unique_ptr<File>, std::less<>> files_;  // by domain
};

}  // namespace platform_linux
