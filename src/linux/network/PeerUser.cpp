#include "linux/network/PeerUser.hpp"

#include <linux/inet_diag.h>
#include <linux/netlink.h>
#include <linux/sock_diag.h>
#include <sys/socket.h>

#include <array>
#include <cstring>

#include "base/Descriptor.hpp"
#include "linux/network/Endpoints.hpp"

namespace platform_linux {
namespace {

using boost::asio::ip::address;
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

// Seen from the peer: its own end is the source.
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

}  // namespace

std::optional<std::uint32_t> userOfPeer(const tcp::endpoint &peer, const tcp::endpoint &own) {
  const base::Descriptor netlink(
      ::socket(AF_NETLINK, SOCK_DGRAM | SOCK_CLOEXEC, NETLINK_SOCK_DIAG));
  const Question question = questionAbout(peer, own);
  if (!netlink.isOpen() ||
      ::send(netlink.get(), &question, sizeof question, MSG_DONTWAIT) != sizeof question) {
    return std::nullopt;
  }
  std::array<std::uint8_t, 4096> bytes{};  // the answer is followed by attributes
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

}  // namespace platform_linux
