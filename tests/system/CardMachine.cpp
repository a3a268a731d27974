#include "system/CardMachine.hpp"

#include "fakes/MadeKeys.hpp"

namespace system_tests {
namespace {

// The first text under a key of a JSON text.
std::string textUnder(const std::string &json, const std::string &key) {
  const std::size_t at = json.find("\"" + key + "\":\"") + key.size() + 4;
  return json.substr(at, json.find('"', at) - at);
}

}  // namespace

CardMachine::CardMachine() {
  write("/other-device/rsa.pem", fakes::pemOf(rsaIdentity()), 0600);
  write("/other-device/ec.pem", fakes::pemOf(ecIdentity()), 0600);
  pair(textUnder(succeed("kfy-remote", {"keys", "--json", "--home", at("/other-device/home")}),
                 "publicKeyHash"));
  fingerprint_ = textUnder(succeed("kfyctl", {"identity", "show", "--json"}), "sha256");
  startDaemon();
}

std::unique_ptr<Process> CardMachine::startRemote(const std::vector<std::string> &more) {
  std::vector<std::string> arguments{"connect", "127.0.0.1",
                                     "--home",  at("/other-device/home"),
                                     "--key",   at("/other-device/rsa.pem"),
                                     "--key",   at("/other-device/ec.pem")};
  arguments.insert(arguments.end(), more.begin(), more.end());
  return start("kfy-remote", arguments);
}

std::unique_ptr<Process> CardMachine::startConfirmingRemote() {
  auto remote = startRemote({"--fingerprint", fingerprint_, "--no-confirm"});
  EXPECT_TRUE(remote->hasSaid("card inserted: 2 keys")) << remote->output();
  return remote;
}

}  // namespace system_tests
