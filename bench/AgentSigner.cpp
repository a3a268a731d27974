#include "AgentSigner.hpp"

#include <arpa/inet.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <cstring>
#include <initializer_list>
#include <span>

#include "Statistics.hpp"

namespace bench {
namespace {

// Numbers of the draft, section 5.1, and of its flags, section 3.6.1.
constexpr std::uint8_t kRequestIdentities = 11;
constexpr std::uint8_t kIdentitiesAnswer = 12;
constexpr std::uint8_t kSignRequest = 13;
constexpr std::uint8_t kSignResponse = 14;
constexpr std::uint32_t kRSASHA256 = 2;

void appendNumber(Bytes &bytes, std::size_t number) {
  const std::uint32_t big = htonl(static_cast<std::uint32_t>(number));
  const auto *const first = reinterpret_cast<const std::uint8_t *>(&big);
  bytes.insert(bytes.end(), first, first + sizeof big);
}

void appendText(Bytes &bytes, ByteView text) {
  appendNumber(bytes, text.size());
  bytes.insert(bytes.end(), text.begin(), text.end());
}

std::size_t numberAt(ByteView bytes) {
  std::uint32_t number = 0;
  check(bytes.size() >= sizeof number, "an answer of the agent is too short");
  std::memcpy(&number, bytes.data(), sizeof number);
  return ntohl(number);
}

void readAll(int socket, std::span<std::uint8_t> bytes) {
  check(
      ::recv(socket, bytes.data(), bytes.size(), MSG_WAITALL) == static_cast<ssize_t>(bytes.size()),
      "no answer of the agent");
}

}  // namespace

AgentSigner::AgentSigner(const std::string &socketPath)
    : socket_(::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0)) {
  sockaddr_un address{};
  address.sun_family = AF_UNIX;
  socketPath.copy(address.sun_path, sizeof address.sun_path - 1);
  check(::connect(socket_.get(), reinterpret_cast<const sockaddr *>(&address), sizeof address) == 0,
        "no ssh-agent");
  const Bytes keys = ask(Bytes{kRequestIdentities}, kIdentitiesAnswer);
  check(numberAt(keys) == 1, "the agent holds another number of keys than one");
  const ByteView rest = ByteView(keys).subspan(4);
  const std::size_t length = numberAt(rest);
  check(length <= rest.size() - 4, "an answer of the agent is too short");
  request_ = {kSignRequest};
  appendText(request_, rest.subspan(4, length));
  appendText(request_, Bytes(32, 0xA5));
  appendNumber(request_, kRSASHA256);
}

void AgentSigner::sign() {
  check(ask(request_, kSignResponse).size() > 256, "a signature is too short");
}

Bytes AgentSigner::ask(ByteView message, std::uint8_t answerType) {
  Bytes packet;
  appendText(packet, message);
  check(::send(socket_.get(), packet.data(), packet.size(), MSG_NOSIGNAL) ==
            static_cast<ssize_t>(packet.size()),
        "the agent takes nothing");
  Bytes answer(4);
  readAll(socket_.get(), answer);
  answer.resize(numberAt(answer));
  readAll(socket_.get(), answer);
  check(!answer.empty() && answer[0] == answerType, "the agent refuses");
  answer.erase(answer.begin());
  return answer;
}

}  // namespace bench
