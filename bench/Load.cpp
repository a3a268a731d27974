#include "Load.hpp"

#include <sys/epoll.h>

#include <array>
#include <string_view>

#include "Machine.hpp"
#include "crypto/HashAlgorithm.hpp"
#include "protocol/Frame.hpp"

namespace bench {
namespace {

constexpr std::uint32_t kHolder = UINT32_MAX;
constexpr int kPatience = 10'000;  // ms, for an answer
constexpr std::size_t kUUIDCharacters = 36;

std::size_t payloadSize(ByteView frame) {
  return frame.size() - protocol::kFrameStart.size() - protocol::kFrameEnd.size();
}

}  // namespace

Load::Load(const crypto::TlsContext &context, const Child &relay, std::uint16_t holderPort,
           std::uint16_t clientPort, std::size_t clients, const crypto::Identity &card,
           bool inserts)
    : relay_(relay), holder_(context, holderPort), waiting_(::epoll_create1(EPOLL_CLOEXEC)) {
  if (inserts) {
    authenticate(holder_, card);
    (void)holder_.ask(insertOf({card.certificate}));
  }
  watch(holder_, kHolder);
  const auto hash = crypto::HashAlgorithm::sha256;
  const Bytes data = crypto::digestInfo(hash, crypto::digestOf(hash, {}));
  for (std::size_t number = 0; number < clients; ++number) {
    const auto message =
        QuillMessage::initCommandMessageSignData(data, card.certificate.sha1(), SecretText());
    Client &client = clients_.emplace_back(context, clientPort);
    client.request = protocol::frameOf(message);
    client.answer = protocol::frameOf(QuillMessage::initWithReplyMessageForSignMessage(
        /*status=*/true, message.messageID, Bytes(256, 0xA5)));
    clientOf_.emplace(message.messageID->text(), &client);
    watch(client.peer, static_cast<std::uint32_t>(number));
  }
}

void Load::watch(const Peer &peer, std::uint32_t number) const {
  epoll_event event{};
  event.events = EPOLLIN;
  event.data.u32 = number;
  check(::epoll_ctl(waiting_.get(), EPOLL_CTL_ADD, peer.descriptor(), &event) == 0, "epoll");
}

void Load::begin(Client &client) {
  ++started_;
  client.sent = Clock::now();
  client.peer.send(client.request);
}

Round Load::run(std::size_t clients, std::size_t requests) {
  times_.clear();
  started_ = 0;
  const double before = relay_.processorTime();
  const auto start = Clock::now();
  for (std::size_t number = 0; number < clients; ++number) {
    begin(clients_[number]);
  }
  while (times_.size() < requests) {
    std::array<epoll_event, 64> events{};
    const int count =
        ::epoll_wait(waiting_.get(), events.data(), static_cast<int>(events.size()), kPatience);
    check(count > 0, "no answer in time");
    for (int event = 0; event < count; ++event) {
      handle(events[static_cast<std::size_t>(event)].data.u32, requests);
    }
  }
  const double all = microsecondsSince(start);
  const auto done = static_cast<double>(requests);
  return {median(times_), percentile(times_, 0.99), done / all * 1e6,
          (relay_.processorTime() - before) / done};
}

// Takes all that has come to the holder or to a client.
void Load::handle(std::uint32_t number, std::size_t requests) {
  Peer &peer = number == kHolder ? holder_ : clients_[number].peer;
  do {
    const auto frame = peer.take();
    if (!frame) {
      return;
    }
    if (number == kHolder) {
      answer(*frame);
      continue;
    }
    Client &client = clients_[number];
    times_.push_back(microsecondsSince(client.sent));
    check(frame->size() == payloadSize(client.answer), "an answer has changed");
    if (started_ < requests) {
      begin(client);
    }
  } while (peer.mayHoldMore());
}

void Load::answer(ByteView request) {
  constexpr std::string_view kKey = R"("message_id":")";
  const std::string_view text = base::textOf(request);
  const std::size_t place = text.find(kKey);
  check(place != std::string_view::npos, "a request without an ID");
  const auto client =
      clientOf_.find(std::string(text.substr(place + kKey.size(), kUUIDCharacters)));
  check(client != clientOf_.end() && request.size() == payloadSize(client->second->request),
        "a request has changed");
  holder_.send(client->second->answer);
}

}  // namespace bench
