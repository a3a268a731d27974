// An allocation fails, the next, the one after that: one message or one connection is lost then,
// and nothing else.

#ifdef __SANITIZE_ADDRESS__
#include <sanitizer/lsan_interface.h>
#endif
#include <openssl/crypto.h>

#include <future>

#include "daemon/NetworkLimits.hpp"
#include "daemon/QuillNetworkManager.hpp"
#include "fakes/FakeAccounts.hpp"
#include "fakes/FakeItemStore.hpp"
#include "fakes/FakeToolRunner.hpp"
#include "fakes/LoggedTest.hpp"
#include "fakes/MadeIdentity.hpp"
#include "linux/network/AsioMainQueue.hpp"
#include "linux/network/TlsNetwork.hpp"
#include "settings/Settings.hpp"
#include "system/Peer.hpp"

namespace {

// How many allocations of this thread succeed before one fails; negative: all do.
thread_local long remaining = -1;

bool fails() {
  return remaining >= 0 && remaining-- == 0;
}

}  // namespace

void *operator new(std::size_t size) {
  void *const memory = fails() ? nullptr : std::malloc(size);
  if (memory == nullptr) {
    throw std::bad_alloc();
  }
  return memory;
}
// In line the compiler sees what free() gets and takes the pair for a mistake.
[[gnu::noinline]] void operator delete(void *memory) noexcept {
  std::free(memory);
}
[[gnu::noinline]] void operator delete(void *memory, std::size_t) noexcept {
  std::free(memory);
}

namespace {

// The library that TLS is made of asks for its own memory.
const int kIsLibraryIncluded = CRYPTO_set_mem_functions(
    [](std::size_t size, const char *, int) {
#ifdef __SANITIZE_ADDRESS__
      const __lsan::ScopedDisabler itMayLoseSomethingWhenAnAllocationFails;
#endif
      return fails() ? nullptr : std::malloc(size);
    },
    [](void *memory, std::size_t size, const char *, int) {
      return fails() ? nullptr : std::realloc(memory, size);
    },
    [](void *memory, const char *, int) { std::free(memory); });

using client::Connection;
using system_tests::insertionOf;
using system_tests::signRequest;

// The whole daemon in a thread of this process, on the platform's real network.
class WithoutMemory : public fakes::LoggedTest {
 public:
  WithoutMemory()
      : manager(
            {{tools, clock, defaults, accounts, accounts, limits}, network, store, store, queue}) {
    store.items = {{fakes::makeIdentity("Server", "server"), ""}};
    defaults.values["com.corvane.kfyd/ssl_certificate_common_name"] = std::string("Server");
    EXPECT_EQ(kIsLibraryIncluded, 1);
    listener = manager.createAndStartListenerWithName("127.0.0.1", "0", /*localOnly=*/false);
    localListener = manager.createAndStartListenerWithName("127.0.0.1", "0", /*localOnly=*/true);
    thread = std::jthread([this](const std::stop_token &stop) {
      const std::stop_callback end(stop, [this] { queue.post([this] { queue.stop(); }); });
      queue.run();
    });
  }

  // In the daemon's thread.
  template <typename Work>
  void there(Work work) {
    std::promise<void> isDone;
    queue.post([&] {
      work();
      isDone.set_value();
    });
    isDone.get_future().wait();
  }

  struct Peers {
    std::unique_ptr<Connection> remote;
    std::unique_ptr<Connection> local;
  };
  // Trusts remotes without listing and signature.
  Peers dialBoth() {
    Peers peers{dial(*listener), dial(*localListener)};
    there([this] {
      for (const auto &worker : manager.workers) {
        worker->isAuthenticated = !worker->isLocal;
      }
    });
    return peers;
  }

  // Serves both while the n-th of the daemon's allocations fails; true if so many were asked for.
  // Whoever is still connected afterwards is served, and so are those who come then.
  template <typename Work>
  bool surviveFailure(long number, Peers &peers, Work work) {
    SCOPED_TRACE(number);
    there([&] { remaining = number; });
    work();
    bool hasFailed = false;
    there([&] {
      hasFailed = std::exchange(remaining, -1) < 0;
      takeEntries();
    });
    for (const auto *connection : {&peers.remote, &peers.local}) {
      EXPECT_TRUE(!*connection || isServed(**connection) || (*connection)->end())
          << "neither served nor ended";
    }
    const Peers next = dialBoth();
    EXPECT_TRUE(next.remote && isServed(*next.remote) && next.local && isServed(*next.local));
    return hasFailed;
  }

  // True once it is answered. What was sent before has been done then, or lost; and one question
  // may be what is lost.
  static bool isServed(Connection &connection) {
    const auto list = QuillMessage::initCommandMessageGetCertificates;
    bool isAnswered = false;
    for (int tries = 0; !isAnswered && !connection.end() && tries < 100; ++tries) {
      isAnswered =
          connection.request(list(), client::WaitLimits::within(std::chrono::milliseconds(20)))
              .has_value();
    }
    return isAnswered;
  }
  std::unique_ptr<Connection> dial(const platform::Listener &to) const {
    return Connection::open(
        "127.0.0.1", to.port(), [](const auto &) { return true; },
        client::WaitLimits::within(std::chrono::seconds(3)));
  }

  fakes::FakeToolRunner tools;
  fakes::FakeAccounts accounts;
  fakes::FakeItemStore store;
  logging::LimitLog limits{clock};
  platform_linux::AsioMainQueue queue;
  platform_linux::TlsNetwork network{queue, [this] { return kfyd::connectionLimits(defaults); },
                                     [](const platform::ReachedLimit &) {}};
  QuillNetworkManager manager;
  std::unique_ptr<platform::Listener> listener;
  std::unique_ptr<platform::Listener> localListener;
  std::jthread thread;
};

// Reads while the n-th allocation fails, for each n: the result is whole, or there is none, or
// std::bad_alloc reaches the caller; and the next reading succeeds. `step`: where most allocations
// are the library's, one like the other.
template <typename Read, typename Check>
void expectAllOrNothing(long step, Read read, Check isWhole) {
  long number = 0;
  for (bool hasFailed = true; hasFailed; number += step) {
    decltype(read()) result;
    remaining = number;
    try {
      result = read();
    } catch (const std::bad_alloc &) {
    }
    hasFailed = std::exchange(remaining, -1) < 0;
    EXPECT_TRUE(result ? isWhole(*result) : hasFailed) << number;
    result = read();
    ASSERT_TRUE(result && isWhole(*result)) << number;
  }
  EXPECT_GT(number, 5);
}

using ReadingWithoutMemory = fakes::LoggedTest;

TEST_F(ReadingWithoutMemory, GivesAllOrNothing) {
  const crypto::Identity &owner = system_tests::ecIdentity();
  const SecretText password("secret");
  const auto isOwner = [&](const crypto::Identity &read) {
    return read.certificate.der() == owner.certificate.der() &&
           crypto::belongTogether(read.certificate, read.key);
  };
  for (const std::string &file : {fakes::encryptedPemOf(owner, "secret"),
                                  fakes::encoded(fakes::makePackage(owner, "secret"))}) {
    expectAllOrNothing(
        /*step=*/17, [&] { return crypto::readIdentity(base::viewOf(file), &password); }, isOwner);
  }
  const std::string twice = owner.certificate.pem() + owner.certificate.pem();
  expectAllOrNothing(
      /*step=*/1,
      [&] { return std::optional(crypto::Certificate::allFromPEM(base::viewOf(twice))); },
      [](const auto &read) { return read.size() == 2; });
  const CleansedBytes json = insertionOf(owner).json().value();
  expectAllOrNothing(
      /*step=*/1, [&] { return QuillMessage::initWithJSONData(json); },
      [&](const QuillMessage &read) { return read.json() == json; });
}

TEST_F(WithoutMemory, HandshakesFailAloneAndListenersGoOn) {
  long number = 0;
  Peers peers;
  // most are the TLS library's, one like the other
  for (long step = 1; surviveFailure(number, peers, [&] { peers = dialBoth(); }); step = 7) {
    number += step;
  }
  EXPECT_GT(number, 100);
}

TEST_F(WithoutMemory, MessagesAreLostAloneOrWithTheirConnection) {
  const crypto::Identity &card = system_tests::ecIdentity();
  int relayed = 0;
  // An insertion, and a relay there and back.
  const auto exchange = [&](const Peers &peers) {
    (void)peers.remote->send(insertionOf(card));
    if (!isServed(*peers.remote) || !peers.local->send(signRequest(Bytes{1}, card)) ||
        !isServed(*peers.local) || !isServed(*peers.remote)) {
      return;
    }
    while (const auto message = peers.remote->take()) {
      if (message->messageType == QuillMessageTypeRequest) {
        ++relayed;
        (void)peers.remote->send(QuillMessage::initWithReplyMessageForSignMessage(
            /*status=*/true, message->messageID, Bytes{2}));
        (void)isServed(*peers.remote);
      }
    }
  };
  long number = 0;
  for (bool hasFailed = true; hasFailed; ++number) {
    Peers peers = dialBoth();
    hasFailed = surviveFailure(number, peers, [&] { exchange(peers); });
  }
  EXPECT_GT(number, 100);
  EXPECT_GT(relayed, 0);
}

}  // namespace
