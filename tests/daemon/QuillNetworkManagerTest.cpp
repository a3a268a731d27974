#include "daemon/QuillNetworkManager.hpp"

#include <filesystem>

#include "base/Files.hpp"
#include "base/Places.hpp"
#include "base/Root.hpp"
#include "daemon/NetworkLimits.hpp"
#include "fakes/FakeAccounts.hpp"
#include "fakes/FakeItemStore.hpp"
#include "fakes/FakeMainQueue.hpp"
#include "fakes/FakeNetwork.hpp"
#include "fakes/FakeToolRunner.hpp"
#include "fakes/LoggedTest.hpp"
#include "fakes/MadeIdentity.hpp"
#include "requests/VirtualCard.hpp"
#include "settings/Settings.hpp"

namespace {

using testing::ElementsAre;
using testing::HasSubstr;

class Manager : public fakes::LoggedTest {
 public:
  Manager()
      : manager(
            {{tools, clock, defaults, accounts, accounts, limits}, network, store, store, queue}) {
    store.items = {{identity, ""}};
  }

  static bool isMarkerThere() { return base::fileExists(base::rooted(base::kCardMarker)); }
  void set(const char *key, const std::string &value) {
    defaults.values[std::string("com.corvane.kfyd/") + key] = value;
  }

  platform::IdentityRecord identity = fakes::makeIdentity("Server", "server");
  fakes::FakeToolRunner tools;
  fakes::FakeAccounts accounts;
  logging::LimitLog limits{clock};
  fakes::FakeNetwork network;
  fakes::FakeItemStore store;
  fakes::FakeMainQueue queue;
  QuillNetworkManager manager;
};

// The manager with both listeners set up.
class Listening : public Manager {
 public:
  Listening() {
    set("ssl_certificate_common_name", "Server");
    EXPECT_TRUE(manager.setupListener());
    EXPECT_TRUE(manager.setupLocalListener());
    publicListener().stateHandler(platform::ListenerState::ready, 0);
    takeEntries();
  }

  fakes::FakeListener &publicListener() { return *network.listeners[0]; }
  fakes::FakeListener &loopbackListener() { return *network.listeners[1]; }
};

TEST_F(Manager, PrefersTheHashAndTriesNoNameAfterIt) {
  const std::tuple<std::string, std::string, const char *> kCases[] = {
      {"0x00ff", "Server", "not found with sha1 hash of 00FF. exiting"},
      {"0x0", "Server", "not found with sha1 hash of (null). exiting"},
      {encodings::hexString(identity.reference->certificate.sha1()), "nobody", ""},
      {"", "Server", ""},
      {"", "nobody", "not found with name of nobody. exiting"},
      {"", "", "not specified"}};
  for (const auto &[hash, name, why] : kCases) {
    set("ssl_certificate_sha1_hash", hash);
    set("ssl_certificate_common_name", name);
    EXPECT_EQ(manager.setupLocalListener(), *why == '\0');
    const auto entries = takeEntries();
    EXPECT_TRUE(*why == '\0' || entries.at(0) == std::string("kfy:SSL identity ") + why);
    EXPECT_EQ(entries.size(), *why == '\0' ? 0U : 2U);
  }
  defaults.values.clear();
  EXPECT_FALSE(manager.setupListener());
}

TEST_F(Manager, TakesATokensPINFromAFileThatIsForRootAlone) {
  set("ssl_certificate_common_name", "token");
  store.items = {{fakes::makeIdentity("Token", "token"), "A"}};
  EXPECT_TRUE(manager.setupListener());
  EXPECT_EQ(store.queries.back().pin, nullptr) << "without the setting none is given";
  defaults.values["kfyd/tlsTokenPinFile"] = std::string("/pin");
  const std::string path = base::rooted("/pin");
  const auto refusal = [&] {
    takeEntries();
    EXPECT_TRUE(manager.setupListener());
    const auto entries = takeEntries();
    EXPECT_EQ(store.queries.back().pin == nullptr, entries.size() == 1);
    return entries.empty() ? "" : entries.front();
  };
  EXPECT_THAT(refusal(), HasSubstr("tlsTokenPinFile is not used: cannot"));
  for (const auto &[content, mode, why] :
       {std::tuple("123456\nmore", 0600U, ""),
        {"123456", 0400U, ""},
        {"123456", 0640U, "mode 0640; it must be root's with mode 0600"},
        {"\n", 0600U, "kfy:tlsTokenPinFile /pin is not used: its first line is empty"}}) {
    ASSERT_TRUE(base::replaceFile(path, base::viewOf(content), mode));
    EXPECT_THAT(refusal(), testing::EndsWith(why));
    EXPECT_EQ(store.queries.back().pin != nullptr, *why == '\0');
  }
  if (geteuid() == 0) {
    ASSERT_TRUE(base::replaceFile(path, base::viewOf("1"), 0600));
    ASSERT_EQ(chown(path.c_str(), 7, 7), 0);
    EXPECT_THAT(refusal(), HasSubstr("owner 7, mode 0600; it must be root's"));
  }
  std::filesystem::remove(path);
}

// The road of a message, from the set-up to the end of its connection.
class Road : public Manager, public testing::WithParamInterface<bool> {};
INSTANTIATE_TEST_SUITE_P(DebugMode, Road, testing::Bool());

TEST_P(Road, IsToldFromEndToEnd) {
  set("ssl_certificate_common_name", "Server");
  setDebugMode(GetParam());
  std::shared_ptr<fakes::FakeConnection> far;
  fakes::Transcript transcript;
  transcript.isDebugMode = GetParam();
  transcript.actions = {
      {"setupListener", [&](const auto &) { EXPECT_TRUE(manager.setupListener()); }},
      {"setupLocalListener", [&](const auto &) { EXPECT_TRUE(manager.setupLocalListener()); }},
      {"far", [&](const auto &chunk) { far->deliver(chunk); }},
      {"farEnds", [&](const auto &) { far->end(); }},
      {"accept", [&](const auto &) { far = network.listeners[0]->connect(); }}};
  for (const auto &[word, state] : {std::pair{"waiting", platform::ListenerState::waiting},
                                    {"ready", platform::ListenerState::ready},
                                    {"failed", platform::ListenerState::failed},
                                    {"cancelled", platform::ListenerState::cancelled}}) {
    transcript.actions[word] = [this, state](const auto &error) {
      network.listeners[0]->stateHandler(state, error.empty() ? 0 : std::stoi(error));
    };
  }
  transcript.takeLines = [&] {
    auto lines = takeLogLines();
    for (; far && !far->sent.empty(); far->sent.clear()) {
      lines.push_back("< " + far->sent.front());
    }
    return lines;
  };
  transcript.name(R"(
~ID 0F1E2D3C-4B5A-6978-8796-A5B4C3D2E1F0
~FRAME [DATA]{"type":"request","command":"remove","message_id":"~ID"}[ENDDATA]
~HEX 5B444154415D7B2274797065223A2272657175657374222C22636F6D6D616E64223A2272656D6F7665222C226D6573736167655F6964223A2230463145324433432D344235412D363937382D383739362D413542344333443245314630227D5B454E44444154415D
)");
  transcript.expect(R"(
> setupListener
dbg:setting up listener | dbg:Setting up listener | dbg:create and start listener
> setupLocalListener
dbg:setting up local listener | dbg:Setting up local listener | dbg:create and start listener
> waiting
Listener on port 4116 (tcp) waiting
> ready
Listener on port 4116 (tcp) ready!
> accept
> far ~FRAME
dbg:~HEX | dbg:QuillCommandRemoveString received | dbg:Message Type: Request | dbg:selectedCertificateHash Received
dbg:Got message: Status: NO\nMesage Type: 0\nCommand: 3\nmessageID: ~ID\n | dbg:Daemon processing request or response
dbg:Message Type: Request | dbg:Command Reply | dbg:Command: QuillCommandRemove
dbg:Encoding JSON | dbg:JSON QuillCommandRemove Response
kfy:sending message: Status: NO\nMesage Type: 1\nCommand: 3\nmessageID: ~ID\n
< [DATA]{"type":"response","command":"remove","message_id":"~ID","status":false}[ENDDATA]
> farEnds
dbg:closing connection | kfy:worker is not local removing smartcard | dbg:client disconnected:(null)
> cancelled
> failed 98
kfy:port 4116 is taken by another program: nobody reaches this kfyd there; end that program, then restart kfyd
kfyd: listener (tcp) failed: Address already in use
)");
}

TEST_F(Listening, EachLimitIsItsSettingsValue) {
  std::int64_t value = 1000;
  for (const settings::Setting *bound : settings::kSettings) {
    if (bound->type == settings::SettingType::integer &&
        bound->domain == platform::kStandardDefaults) {
      defaults.values[std::string("kfyd/") + bound->key] = bound->least + (value += 2) * 1024;
    }
  }
  const auto valueOf = [&](std::string_view setting) {
    return std::get<std::int64_t>(defaults.values["kfyd/" + std::string(setting)]);
  };
  const platform::ListenerLimits far = network.asked[0].limits();
  const platform::ListenerLimits near = network.asked[1].limits();
  const platform::ConnectionLimits each = kfyd::connectionLimits(defaults);
  std::string text;
  for (const auto &[most, setting] :
       {far.handshakes, far.handshakesPerSource, far.connections, far.connectionsPerSource,
        near.handshakes, near.handshakesPerSource, near.connections, near.connectionsPerSource,
        each.frameBytes, each.unsentBytes, each.bufferedBytes, each.stalledOutput}) {
    const auto share = static_cast<std::uint64_t>(valueOf(setting)) / most;
    text += std::string(setting) + "/" + std::to_string(share) + " ";
    EXPECT_EQ(most, static_cast<std::uint64_t>(valueOf(setting)) / share);
  }
  EXPECT_EQ(text,
            "maxHandshakes/1 maxHandshakesPerAddress/1 maxPublicConnections/1 "
            "maxConnectionsPerAddress/1 maxHandshakes/1 maxHandshakes/2 maxLocalConnections/1 "
            "maxLocalConnectionsPerUser/1 maxFrameBytes/1 maxUnsentBytes/1 maxBufferedBytes/1 "
            "stalledOutputSeconds/1 ");
  EXPECT_EQ(far.handshakeTime, std::chrono::seconds(valueOf("handshakeSeconds")));
  EXPECT_EQ(near.handshakeTime, far.handshakeTime);
}

TEST_F(Listening, LetsNobodyButThisMachineReachTheSecondListener) {
  EXPECT_EQ(network.asked.at(0).host, "::");
  EXPECT_EQ(network.asked.at(1).host + network.asked.at(1).port, "127.0.0.14117");
  for (const auto &asked : network.asked) {
    EXPECT_EQ(asked.identity, identity.reference);
    EXPECT_EQ((std::vector{asked.keepaliveIdleSeconds, asked.keepaliveIntervalSeconds,
                           asked.keepaliveCount}),
              std::vector(3, 15));
  }
  const auto forgotten = publicListener().connect();
  const auto named = manager.createAndStartListenerWithName("192.0.2.1", "5", /*localOnly=*/false);
  EXPECT_EQ(manager.workers.size(), 0U);
  EXPECT_EQ(network.asked.at(2).host, "192.0.2.1") << "a name is the host of a public listener";
  EXPECT_EQ(base::textOf(*base::readFile(base::rooted("/etc/keyferry/server.pem"), 65536)),
            identity.reference->certificate.pem());
}

TEST_F(Listening, WithdrawsTheCardWhenARemoteConnectionEndsInWhicheverWay) {
  const auto near = loopbackListener().connect();
  const auto far = publicListener().connect();
  const auto cancelled = publicListener().connect();
  manager.insertSmartcard();
  near->end();
  EXPECT_TRUE(isMarkerThere());
  far->end();
  EXPECT_FALSE(isMarkerThere());
  EXPECT_THAT(takeEntries(), ElementsAre("kfy:worker is not local removing smartcard"));
  ASSERT_EQ(manager.workers.size(), 1U);
  manager.insertSmartcard();
  manager.workers[0]->disconnect();
  cancelled->stateHandler(platform::ConnectionState::cancelled, 0);
  EXPECT_FALSE(isMarkerThere());
  EXPECT_EQ(manager.workers.size(), 1U) << "a cancelled one stays";
  const auto next = publicListener().connect();
  ASSERT_EQ(manager.workers.size(), 1U) << "until the next acceptance";
  EXPECT_EQ(manager.workers[0]->g_inbound_connection, next);
  manager.insertSmartcard();
  manager.workers[0]->disconnect();
  const auto last = publicListener().connect();
  next->stateHandler(platform::ConnectionState::cancelled, 0);
  EXPECT_FALSE(isMarkerThere()) << "told of one that is forgotten already";
}

TEST_F(Listening, WithTheSettingWithdrawsTheCardWithItsConnectionAlone) {
  const auto insert = QuillMessage::initCommandMessageInsertSmartCardWithCertificates(nullptr);
  for (const bool isSet : {false, true}) {
    defaults.values["kfyd/cardEndsWithItsConnection"] = isSet;
    const auto first = publicListener().connect();
    const auto last = publicListener().connect();
    const auto program = loopbackListener().connect();
    for (std::size_t index = 0; index < 3; ++index) {
      manager.processRequest(&insert, manager.workers[index]);
    }
    first->end();
    EXPECT_EQ(isMarkerThere(), isSet);
    program->end();
    EXPECT_EQ(isMarkerThere(), isSet);
    last->end();
    EXPECT_FALSE(isMarkerThere());
  }
}

TEST_F(Listening, WithTheSettingEndsConnectionsThatDoNotAuthenticate) {
  defaults.values["kfyd/unauthenticatedSeconds"] = 5;
  const auto stranger = publicListener().connect();
  const auto client = publicListener().connect();
  const auto program = loopbackListener().connect();
  manager.workers[1]->isAuthenticated = true;
  queue.advance(std::chrono::seconds(5));
  EXPECT_FALSE(stranger->isCancelled);
  queue.advance(std::chrono::seconds(2));
  EXPECT_TRUE(stranger->isCancelled);
  EXPECT_FALSE(client->isCancelled || program->isCancelled);
  defaults.values["kfyd/unauthenticatedSeconds"] = 1;
  const auto next = publicListener().connect();
  queue.advance(std::chrono::seconds(3));
  EXPECT_TRUE(next->isCancelled);
  EXPECT_EQ(queue.waitingEvents(), 0U) << "nothing is counted while nobody is new";
  const auto last = publicListener().connect();
  defaults.values.erase("kfyd/unauthenticatedSeconds");
  queue.advance(std::chrono::seconds(9));
  EXPECT_FALSE(last->isCancelled) << "it was lifted meanwhile";
  EXPECT_EQ(queue.waitingEvents(), 0U);
}

TEST_F(Listening, LocalUsersAreLookedUpForEachAcceptance) {
  ASSERT_TRUE(base::makeFolders(base::rooted("/etc"), 0755));
  const std::string file = "ann:x:1000:1::/:/bin/sh\nbob:x:1001:1::/:/bin/sh\n";
  ASSERT_TRUE(base::replaceFile(base::rooted("/etc/passwd"), base::viewOf(file), 0644));
  using Users = std::optional<std::vector<std::uint32_t>>;
  const auto allowed = [&] { return network.asked[1].limits().users; };
  EXPECT_EQ(allowed(), Users());
  defaults.values["kfyd/localUsers"] = std::string("bob  eve ann");
  EXPECT_EQ(allowed(), (Users{{1001, 1000}}));
  EXPECT_EQ(allowed(), allowed());
  EXPECT_THAT(takeEntries(), ElementsAre("kfy:localUsers: no account is named eve"));
  std::filesystem::remove(base::rooted("/etc/passwd"));
  EXPECT_EQ(allowed(), Users{std::vector<std::uint32_t>{}}) << "then only root";
  EXPECT_EQ(network.asked[0].limits().users, Users());
}

TEST_F(Manager, WithoutAPortSaysWhoseItIsAndTouchesNothingOfTheOther) {
  set("ssl_certificate_common_name", "Server");
  EXPECT_TRUE(manager.setupListener());
  EXPECT_TRUE(manager.setupLocalListener());
  manager.insertSmartcard();
  takeEntries();
  network.owner = "kfyd (process 7)";
  network.listeners[0]->stateHandler(platform::ListenerState::failed, EADDRINUSE);
  EXPECT_THAT(takeEntries(), ElementsAre(HasSubstr("port 4116 is taken by kfyd (process 7): ")));
  (void)network.listeners[0]->connect();
  queue.advance(std::chrono::seconds(2));
  EXPECT_FALSE(base::fileExists(base::rooted(base::kStateFile)));
  EXPECT_TRUE(isMarkerThere()) << "the other one's";
  network.listeners[1]->stateHandler(platform::ListenerState::ready, 0);
  EXPECT_FALSE(isMarkerThere()) << "that of one that was killed";
}

TEST_F(Listening, TellsItsStateOnceASecond) {
  const std::string path = base::rooted(base::kStateFile);
  const auto state = [&] {
    queue.advance(std::chrono::seconds(1));
    const auto content = base::readFile(path, 65536);
    return content ? std::string(base::textOf(*content)) : "";
  };
  queue.advance(std::chrono::seconds(1));
  EXPECT_TRUE(base::fileExists(path)) << "with nobody there";
  limits.reached({{1, "maxHandshakes"}, "x"});
  manager.unpairedDevices.note({"192.0.2.9", Bytes(20, 0xAB), clock.time});
  EXPECT_EQ(queue.waitingEvents(), 1U);
  const auto program = loopbackListener().connect();
  const auto far = publicListener().connect();
  EXPECT_EQ(queue.waitingEvents(), 1U) << "changes wait for the same writing";
  std::filesystem::remove_all(base::rooted("/run"));
  EXPECT_EQ(
      state(),
      "{\"started\":1741940813,\"pid\":" + std::to_string(getpid()) +
          R"(,"connections":[{"address":"192.0.2.7","port":50123,"local":false,)"
          R"("authenticated":false,"cards":[]},{"address":"192.0.2.7","port":50123,"local":true,)"
          R"("authenticated":false,"cards":[]}],"connectionCount":2,"pending":0,)"
          R"("relays":0,"refusals":0,"unpaired":[{"address":"192.0.2.9","publicKeyHash":"ABABABABABABABABABABABABABABABABABABABAB",)"
          R"("lastTried":1741940813}],"limits":{"maxHandshakes":1}})");
  EXPECT_EQ(std::filesystem::status(path).permissions(), std::filesystem::perms(0600));
  manager.pendingMessages.insert(UUID::random(), {manager.workers[0], manager.workers[1]});
  program->end();
  EXPECT_THAT(state(), HasSubstr(R"("connectionCount":1,"pending":0)"));
  far->end();
  std::filesystem::remove_all(base::rooted("/run"));
  ASSERT_TRUE(base::replaceFile(base::rooted("/run"), {}, 0600));
  takeEntries();
  for (int round = 0; round < 2; ++round) {
    const auto near = loopbackListener().connect();
    EXPECT_EQ(state(), "");
  }
  EXPECT_THAT(takeEntries(), ElementsAre(HasSubstr("state for kfyctl is not written")));
  std::filesystem::remove(base::rooted("/run"));
}

}  // namespace
