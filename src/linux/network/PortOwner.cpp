#include "linux/network/PortOwner.hpp"

#include <algorithm>
#include <charconv>
#include <filesystem>
#include <fstream>
#include <set>
#include <sstream>
#include <string_view>
#include <system_error>

namespace platform_linux {
namespace {

namespace fs = std::filesystem;

constexpr const char *kListening = "0A";  // TCP_LISTEN in /proc/net/tcp

// Adds how descriptors of listening sockets at this port read: "socket:[INODE]".
void addListeningSockets(const char *table, std::uint16_t port, std::set<std::string> &sockets) {
  std::ifstream lines(table);
  std::string line;
  std::getline(lines, line);  // the heads of the columns
  while (std::getline(lines, line)) {
    std::istringstream columns(line);
    std::string number, local, remote, state, queues, timer, retransmits, user, timeout, inode;
    columns >> number >> local >> remote >> state >> queues >> timer >> retransmits >> user >>
        timeout >> inode;
    const std::string_view digits = std::string_view(local).substr(local.rfind(':') + 1);
    std::uint16_t itsPort = 0;
    std::from_chars(digits.data(), digits.data() + digits.size(), itsPort, 16);
    if (state == kListening && itsPort == port) {
      sockets.insert("socket:[" + inode + "]");
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
      return name + " (process " + number + ")";
    }
  }
  return std::nullopt;
}

}  // namespace platform_linux
