// Any row of events on four connections, under any settings: an answer goes to nobody but who
// asked, and once; requests are passed on for programs on this machine alone, to clients alone that
// have proved themselves; nothing waits for a peer that has gone. An event is two bytes, what
// happens and where, with a small argument; some take more.

#include <unordered_map>

#include "Expect.hpp"
#include "Input.hpp"
#include "daemon/QuillNetworkManager.hpp"
#include "fakes/FakeAccounts.hpp"
#include "fakes/FakeClock.hpp"
#include "fakes/FakeItemStore.hpp"
#include "fakes/FakeMainQueue.hpp"
#include "fakes/FakeNetwork.hpp"
#include "fakes/FakeToolRunner.hpp"
#include "fakes/FakeUserDefaults.hpp"
#include "fakes/FullMessage.hpp"
#include "fakes/MadeIdentity.hpp"
#include "fakes/TemporaryFolder.hpp"
#include "protocol/Frame.hpp"
#include "settings/Settings.hpp"

namespace {

// What is the same in every row.
struct World {
  World() {
    setenv("KFYD_ROOT", root.path().c_str(), /*overwrite=*/1);
    std::filesystem::create_directories(root / "tmp");
  }
  fakes::TemporaryFolder root;
  platform::IdentityRecord server = fakes::makeIdentity("Server", "server");
  // Weak, because it signs in nearly every row.
  crypto::Identity client =
      fakes::identityOf(*crypto::PrivateKey::generateRSA(/*bits=*/1024), "client");
  Bytes clientDER = client.certificate.der();
  Bytes clientHash = encodings::sha1(*client.key.publicKey().externalRepresentation());
};

struct Peer {
  QuillWorker::Shared worker;  // null: nobody is connected here
  std::shared_ptr<fakes::FakeConnection> connection;
  bool hasProven = false;  // has signed its own challenge with the paired key
};

class Row {
 public:
  Row(const World &world, ByteView input)
      : world_(world),
        input_(input),
        manager_({{tools_, clock_, defaults_, accounts_, accounts_, limits_},
                  network_,
                  store_,
                  store_,
                  queue_}) {
    store_.items = {{world.server, ""}};
    defaults_.values["com.corvane.kfyd/ssl_certificate_common_name"] = std::string("Server");
    tools_.answers = {
        "SmartCard: com.corvane.keyferry.ctkextension\nPaired identities which are "
        "used for authentication\n" +
        encodings::hexString(world.clientHash)};
    expect(manager_.setupListener() && manager_.setupLocalListener());
  }

  void play() {
    constexpr void (Row::*kEvents[])(Peer &, unsigned) = {
        &Row::connect, &Row::sendMessage, &Row::sendBytes, &Row::end,
        &Row::cancel,  &Row::set,         &Row::pass};
    while (!input_.isAtEnd()) {
      const auto event = input_.oneOf(kEvents);
      const unsigned where = input_.byte();
      (this->*event)(peers_[where % 4], where / 4);
    }
    for (Peer &peer : peers_) {
      end(peer, /*error=*/0);
    }
  }

 private:
  static bool isConnected(const Peer &peer) {
    return peer.worker && peer.worker->g_inbound_connection;
  }

  void connect(Peer &peer, unsigned isLocal) {
    if (peer.worker) {
      return;
    }
    peer.connection = network_.listeners[isLocal % 2]->connect();
    peer.worker = manager_.workers.back();
    auto &block = peer.worker->receiveBlock;
    block = [this, next = std::move(block)](const auto &from, const QuillMessage &message) {
      last_ = message;
      next(from, message);
    };
    // with it goes what waited between two that have no connection any more
    std::erase_if(waiting_, [](const auto &entry) {
      const auto &[requester, holder] = entry.second;
      return !requester->g_inbound_connection && !holder->g_inbound_connection;
    });
    expect(waiting_.size() == manager_.pendingMessages.size());
    expect(std::ranges::all_of(manager_.workers, [&](const auto &worker) {
      return worker->g_inbound_connection || manager_.pendingMessages.name(worker);
    }));
  }

  void sendMessage(Peer &peer, unsigned kind) {
    const unsigned more = input_.byte();
    QuillMessage message = fakes::fullMessage(kind / 2 % 8, kind % 2);
    message.messageID.emplace().bytes[0] = static_cast<std::uint8_t>(kind / 16);
    message.certificateArray.emplace({encodings::ArrayElement(world_.clientHash)});
    // the card holds the client's own certificate, or another
    const Bytes held = more % 2 == 0 ? world_.clientDER : Bytes{1};
    const protocol::CardElement element =
        encodings::CertificateInfo{encodings::base64EncodedString(held), true, true, true, "", {}};
    message.certificates = protocol::makeCardList({&element, 1});
    message.signingCertificateHash = message.objectID = encodings::sha1(held);
    message.challengeSignature = Bytes(256);
    message.certificateUsedToAuthenticate = world_.clientDER;
    const Peer &challenged = peers_[more / 2 % 4];
    const bool isProof = kind % 16 == 2 * QuillCommandAuthenticate;
    if (isProof && isConnected(peer) && challenged.worker && challenged.worker->challenge) {
      message.challengeSignature = world_.client.key.signRawPKCS1(*challenged.worker->challenge);
      peer.hasProven = &peer == &challenged;
    }
    deliver(peer, base::textOf(protocol::frameOf(message)));
  }

  void sendBytes(Peer &peer, unsigned size) {
    const std::string text(base::textOf(input_.take(size / 2 * 16)));
    deliver(peer, size % 2 == 0 ? "[DATA]" + text + "[ENDDATA]" : text);
  }

  void deliver(Peer &peer, std::string_view chunk) {
    if (isConnected(peer)) {
      last_.reset();
      peer.connection->deliver(chunk);
      check(peer);
    }
  }

  // From the peer's side: its stream ends, or breaks off. The last that is heard of a connection
  // that the daemon has cancelled is just that.
  void end(Peer &peer, unsigned error) {
    if (!peer.worker) {
      return;
    }
    last_.reset();
    if (!isConnected(peer)) {
      peer.connection->stateHandler(platform::ConnectionState::cancelled, 0);
    } else {
      std::erase_if(waiting_,
                    [&](const auto &entry) { return entry.second.requester == peer.worker; });
      peer.connection->complete({{}, /*isFinal=*/true, static_cast<int>(error)});
    }
    check(peer);
    peer = {};
  }

  // From the daemon's side.
  void cancel(Peer &peer, unsigned /*argument*/) {
    if (peer.worker) {
      peer.worker->disconnect();
    }
  }

  void set(Peer & /*peer*/, unsigned value) {
    const settings::Setting &setting =
        *settings::kSettings[input_.below(settings::kSettings.size())];
    auto &stored = defaults_.values[std::string(setting.domain) + "/" + setting.key];
    if (setting.type == settings::SettingType::boolean) {
      stored = value % 2 == 1;
    } else {
      stored = std::int64_t{value};
    }
  }

  void pass(Peer & /*peer*/, unsigned seconds) {
    last_.reset();
    clock_.time += std::chrono::seconds(seconds);
    queue_.advance(std::chrono::seconds(seconds));
    check(peers_[0]);
  }

  // What one event of `from` has brought.
  void check(const Peer &from) {
    std::size_t sent = 0;
    for (const Peer &to : peers_) {
      const auto messages = to.worker ? to.connection->takeMessages() : std::vector<QuillMessage>{};
      for (const QuillMessage &message : messages) {
        expect(++sent == 1 && last_);
        checkDelivery(message, from, to);
      }
      expect(!to.worker || !to.worker->isAuthenticated || to.hasProven);
    }
    // An answer also ends the wait of somebody whose connection was cancelled.
    const bool isAnswer = last_ && last_->messageType == QuillMessageTypeResponse;
    std::erase_if(waiting_, [&](const auto &entry) {
      const auto *found = manager_.pendingMessages.find(entry.first);
      expect(found != nullptr ? found->requester == entry.second.requester
                              : isAnswer && last_->messageID == entry.first);
      return found == nullptr;
    });
    expect(waiting_.size() == manager_.pendingMessages.size());
  }

  void checkDelivery(const QuillMessage &message, const Peer &from, const Peer &to) {
    if (message.messageType == QuillMessageTypeRequest) {
      expect(last_->messageType == QuillMessageTypeRequest && message.json() == last_->json() &&
             from.worker->isLocal && to.hasProven);
      waiting_.insert_or_assign(*message.messageID, PendingMessages::Entry{from.worker, to.worker});
    } else if (last_->messageType == QuillMessageTypeRequest) {
      expect(&to == &from && message.command == last_->command &&
             message.messageID == last_->messageID);
    } else {
      const auto asked = waiting_.extract(message.messageID.value());
      expect(!asked.empty() && asked.mapped().requester == to.worker &&
             message.json() == last_->json() &&
             (asked.mapped().holder == from.worker ||
              !settings::isOn(settings::kAnswersOnlyFromHolder, defaults_)));
    }
  }

  const World &world_;
  Input input_;
  fakes::FakeClock clock_;
  fakes::FakeUserDefaults defaults_;
  fakes::FakeToolRunner tools_;
  fakes::FakeAccounts accounts_;
  logging::LimitLog limits_{clock_};
  fakes::FakeNetwork network_;
  fakes::FakeItemStore store_;
  fakes::FakeMainQueue queue_;
  QuillNetworkManager manager_;
  std::array<Peer, 4> peers_;
  std::optional<QuillMessage> last_;  // what the event's connection has sent
  std::unordered_map<UUID, PendingMessages::Entry> waiting_;
};

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size) {
  static const World world;
  Row(world, {data, size}).play();
  return 0;
}
