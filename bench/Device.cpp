#include "Device.hpp"

#include <chrono>
#include <fstream>
#include <iterator>
#include <thread>

#include "Statistics.hpp"
#include "base/Places.hpp"
#include "base/Root.hpp"
#include "client/CardMarker.hpp"
#include "crypto/Certificate.hpp"
#include "encodings/HexString.hpp"

namespace bench {
namespace {

// Looks often enough for times that are told in ms.
bool waitForCard(bool isThere) {
  const auto start = Clock::now();
  while (client::findCardMarker().has_value() != isThere) {
    if (Clock::now() - start > std::chrono::seconds(20)) {
      return false;
    }
    std::this_thread::sleep_for(std::chrono::microseconds(100));
  }
  return true;
}

std::string fingerprint() {
  std::ifstream file(base::rooted(base::kServerCertificate));
  const std::string pem(std::istreambuf_iterator<char>(file), {});
  const auto certificates = crypto::Certificate::allFromPEM(base::viewOf(pem));
  check(!certificates.empty(), "kfyd shows no certificate");
  return encodings::hexString(certificates.front().sha256());
}

}  // namespace

Device::Device(const std::string &kfyRemote, const std::string &folder, std::uint16_t port) {
  const std::string address = "127.0.0.1:" + std::to_string(port);
  remote_ = std::make_unique<Child>([&] {
    execute({kfyRemote, "connect", address, "--home", folder + "/home", "--key",
             folder + "/card.pem", "--fingerprint", fingerprint(), "--no-confirm"});
  });
  check(waitForCard(/*isThere=*/true), "kfy-remote inserts no card");
}

Device::~Device() {
  remote_.reset();
  (void)waitForCard(/*isThere=*/false);
}

}  // namespace bench
