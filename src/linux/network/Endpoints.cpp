#include "linux/network/Endpoints.hpp"

#include <algorithm>

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

}  // namespace platform_linux
