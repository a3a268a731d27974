#include "linux/network/Endpoints.hpp"

#include <linux/inet_diag.h>
#include <linux/netlink.h>
#include <linux/sock_diag.h>
#include <sys/socket.h>

#include <algorithm>
#include <array>
#include <charconv>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <set>
#include <sstream>
#include <string_view>
#include <system_error>
#include <vector>

#include "base/Descriptor.hpp"

namespace platform_linux {
namespace {

using boost::asio::ip::address;
using boost::asio::ip::address_v6;

constexpr std::size_t kNetworkBytes = 8;  // of a /64

std::string sourceOf(const address &from) {
  if (from.is_v4()) {
    return from.to_string();
  }
  address_v6::bytes_type bytes = from.to_v6().to_bytes();
  std::fill(bytes.begin() + kNetworkBytes, bytes.end(), std::uint8_t{0});
  return address_v6(bytes).to_string() + "/64";
}

// The user of a peer.

using boost::asio::ip::tcp;

struct Question {
  nlmsghdr header;
  inet_diag_req_v2 request;
};

struct Answer {
  nlmsghdr header;
  inet_diag_msg socket;
};

void put(const address &from, __be32 *place) {
  if (from.is_v4()) {
    const auto bytes = from.to_v4().to_bytes();
    std::memcpy(place, bytes.data(), bytes.size());
  } else {
    const auto bytes = from.to_v6().to_bytes();
    std::memcpy(place, bytes.data(), bytes.size());
  }
}

// As the peer sees it: its own end is the source.
Question questionAbout(const tcp::endpoint &peer, const tcp::endpoint &own) {
  const address from = unmapped(peer.address());
  Question question{};
  question.header.nlmsg_len = sizeof question;
  question.header.nlmsg_type = SOCK_DIAG_BY_FAMILY;
  question.header.nlmsg_flags = NLM_F_REQUEST;
  inet_diag_req_v2 &request = question.request;
  request.sdiag_family = from.is_v4() ? AF_INET : AF_INET6;
  request.sdiag_protocol = IPPROTO_TCP;
  request.idiag_states = ~0U;
  request.id.idiag_sport = htons(peer.port());
  request.id.idiag_dport = htons(own.port());
  put(from, request.id.idiag_src);
  put(unmapped(own.address()), request.id.idiag_dst);
  request.id.idiag_cookie[0] = INET_DIAG_NOCOOKIE;
  request.id.idiag_cookie[1] = INET_DIAG_NOCOOKIE;
  return question;
}

// The owner of a port.

namespace fs = std::filesystem;

// Columns of /proc/net/tcp and tcp6 (proc(5)), and TCP_LISTEN as the state's column shows it.
constexpr std::size_t kLocalColumn = 1;
constexpr std::size_t kStateColumn = 3;
constexpr std::size_t kInodeColumn = 9;
constexpr const char *kListening = "0A";

// Adds the listening sockets at this port, named as links in /proc/PID/fd name them:
// "socket:[INODE]".
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

address unmapped(const address &from) {
  if (from.is_v6() && from.to_v6().is_v4_mapped()) {
    return boost::asio::ip::make_address_v4(boost::asio::ip::v4_mapped, from.to_v6());
  }
  return from;
}

platform::Endpoint endpointOf(const boost::asio::ip::tcp::endpoint &remote) {
  const address from = unmapped(remote.address());
  return {from.to_string(), remote.port(), sourceOf(from)};
}

std::optional<std::uint32_t> userOfPeer(const tcp::endpoint &peer, const tcp::endpoint &own) {
  const base::Descriptor netlink(
      ::socket(AF_NETLINK, SOCK_DGRAM | SOCK_CLOEXEC, NETLINK_SOCK_DIAG));
  const Question question = questionAbout(peer, own);
  if (!netlink.isOpen() ||
      ::send(netlink.get(), &question, sizeof question, MSG_DONTWAIT) != sizeof question) {
    return std::nullopt;
  }
  std::array<std::uint8_t, 4096> bytes{};  // room for attributes behind the answer
  Answer answer{};
  const ssize_t got = ::recv(netlink.get(), bytes.data(), bytes.size(), MSG_DONTWAIT);
  if (got < static_cast<ssize_t>(sizeof answer)) {
    return std::nullopt;
  }
  std::memcpy(&answer, bytes.data(), sizeof answer);
  const bool isOpen =
      answer.header.nlmsg_type == SOCK_DIAG_BY_FAMILY && answer.socket.idiag_inode != 0;
  return isOpen ? std::optional<std::uint32_t>(answer.socket.idiag_uid) : std::nullopt;
}

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
