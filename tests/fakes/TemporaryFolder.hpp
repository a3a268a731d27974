#pragma once

#include <sys/stat.h>
#include <unistd.h>

#include <filesystem>
#include <fstream>

namespace fakes {

// A folder of the test's own, gone with all it holds when this goes.
class TemporaryFolder {
 public:
  TemporaryFolder() {
    std::string name = (std::filesystem::temp_directory_path() / "keyferry.XXXXXX").string();
    if (::mkdtemp(name.data()) == nullptr) {
      throw std::runtime_error("no temporary folder");
    }
    path_ = name;
  }
  ~TemporaryFolder() {
    std::error_code ignored;
    std::filesystem::remove_all(path_, ignored);
  }
  TemporaryFolder(const TemporaryFolder &) = delete;
  TemporaryFolder &operator=(const TemporaryFolder &) = delete;

  [[nodiscard]] const std::string &path() const { return path_; }

  // The path of something in it.
  [[nodiscard]] std::string operator/(const std::string &name) const { return path_ + "/" + name; }

  // Writes a file in place, so that it keeps its inode.
  void write(const std::string &name, const std::string &content) const {
    std::ofstream(*this / name, std::ios::binary | std::ios::trunc) << content;
  }

  // The content of a file; empty if it can't be read.
  [[nodiscard]] std::string read(const std::string &name) const {
    std::ifstream file(*this / name, std::ios::binary);
    return {std::istreambuf_iterator<char>(file), {}};
  }

  // The permissions of something in it, 0 if there is nothing.
  [[nodiscard]] unsigned modeOf(const std::string &name) const {
    struct stat status{};
    return ::stat((*this / name).c_str(), &status) == 0 ? status.st_mode & 07777U : 0U;
  }

 private:
  std::string path_;
};

}  // namespace fakes
