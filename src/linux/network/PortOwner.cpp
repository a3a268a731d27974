#include "linux/network/PortOwner.hpp"

#include <algorithm>
#include <charconv>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <set>
#include <sstream>
#include <string_view>
#include <system_error>
#include <vector>

namespace platform_linux {
namespace {

namespace fs = std::filesystem;

// Columns of /proc/net/tcp and tcp6 (proc(5)), and TCP_LISTEN as the state's column shows it.
constexpr std::size_t kLocalColumn = 1;
constexpr std::size_t kStateColumn = 3;
constexpr std::size_t kInodeColumn = 9;
constexpr const char *kListening = "0A";

// Adds how descriptors of listening sockets at this port read: "socket:[INODE]".
void addListeningSockets(const char *table, std::uint16_t port, std::set<std::string> &sockets) {
  std::ifstream lines(table);
  std::string line;
  std::getline(lines, line);  // the heads of the columns
  while (std::getline(lines, line)) {
    std::istringstream words(line);
    const std::vector<std::string> columns{std::istream_iterator<std::string>(words), {}};
    if (columns.size() <= kInodeColumn || columns[kStateColumn] != kListening) {
      continue;
    }
    const std::string_view local = columns[kLocalColumn];
    const std::string_view digits = local.substr(local.rfind(':') + 1);
    std::uint16_t itsPort = 0;
    std::from_chars(digits.data(), digits.data() + digits.size(), itsPort, 16);
    if (itsPort == port) {
      sockets.insert("socket:[" + columns[kInodeColumn] + "]");
    }
  }
}

bool holdsOneOf(const fs::path &process, const std::set<std::string> &sockets) {
  std::error_code failed;  // a process of another user, or one that has gone
  for (fs::directory_iterator each(process / "fd", failed), end; !failed && each != end;
       each.increment(failed)) {
    std::error_code closed;
    if (sockets.contains(fs::read_symlink(*each, closed).string())) {
      return true;
    }
  }
  return false;
}

}  // namespace

std::optional<std::string> ownerOfPort(std::uint16_t port) {
  std::set<std::string> sockets;
  for (const char *table : {"/proc/net/tcp", "/proc/net/tcp6"}) {
    addListeningSockets(table, port, sockets);
  }
  std::error_code failed;
  for (fs::directory_iterator each("/proc", failed), end;
       !sockets.empty() && !failed && each != end; each.increment(failed)) {
    const std::string number = each->path().filename().string();
    const bool isProcess =
        std::ranges::all_of(number, [](char digit) { return digit >= '0' && digit <= '9'; });
    if (isProcess && holdsOneOf(each->path(), sockets)) {
      std::string name;
      std::getline(std::ifstream(each->path() / "comm"), name);
      return name.append(" (process ").append(number).append(")");
    }
  }
  return std::nullopt;
}

}  // namespace platform_linux
