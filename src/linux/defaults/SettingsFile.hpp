#pragma once

#include <optional>
#include <string>
#include <vector>

#include "base/Error.hpp"
#include "linux/defaults/TomlText.hpp"

namespace platform_linux {

// One settings file, for tools that show and change it. A file that is not there counts as empty.
// Nothing is kept between two calls, and of two writers at the same time the later one wins.
class SettingsFile {
 public:
  // `path` is used as given (see base::rooted). A link is followed, also when the file is replaced.
  explicit SettingsFile(std::string path);

  // All settings in the order of their lines. Nothing, with the file, the line and the cause in
  // *error, if the file can't be read or does not parse.
  [[nodiscard]] std::optional<std::vector<Setting>> readAll(Error *error = nullptr) const;

  // Changes or adds one line and keeps all others, comments included. The file is replaced
  // atomically and keeps its mode; a missing one is made with 0644, its folder with 0755. False,
  // with the reason in *error, and nothing changed if that is not possible.
  [[nodiscard]] bool set(const std::string &key, const SettingValue &value,
                         Error *error = nullptr) const;

  // Removes one line likewise. True also if the key is not there.
  [[nodiscard]] bool remove(const std::string &key, Error *error = nullptr) const;

 private:
  [[nodiscard]] std::optional<std::string> read(Error *error) const;
  [[nodiscard]] bool change(const std::string &key, const std::optional<SettingValue> &value,
                            Error *error) const;

  std::string path_;
};

}  // namespace platform_linux
