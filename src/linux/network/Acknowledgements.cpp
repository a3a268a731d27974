#include "linux/network/Acknowledgements.hpp"

#include <linux/sockios.h>
#include <linux/tcp.h>  // netinet/tcp.h knows a shorter tcp_info
#include <netinet/in.h>
#include <sys/ioctl.h>
#include <sys/socket.h>

namespace platform_linux {

std::optional<Acknowledgements::Clock::duration> Acknowledgements::missingFor(
    int socket, bool moreWaits, Clock::time_point now) {
  int unacknowledged = 0;
  if (::ioctl(socket, SIOCOUTQ, &unacknowledged) != 0 || unacknowledged == 0) {
    return moreWaits ? std::optional(Clock::duration(0)) : std::nullopt;
  }
  tcp_info info{};
  socklen_t size = sizeof info;
  (void)::getsockopt(socket, IPPROTO_TCP, TCP_INFO, &info, &size);  // no failure after the above
  if (bytes_ != info.tcpi_bytes_acked) {
    bytes_ = info.tcpi_bytes_acked;
    since_ = now;
  }
  return now - since_;
}

}  // namespace platform_linux
