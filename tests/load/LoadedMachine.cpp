#include "load/LoadedMachine.hpp"

#include <sys/resource.h>
#include <sys/socket.h>
#include <sys/un.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>

namespace load {

using namespace std::chrono_literals;
using system_tests::otherRSAIdentity;

namespace {

// What the daemon says when it is asked for a key that nobody holds.
constexpr std::string_view kUnknownKey = "certificate not found or not authenticated. stopping";

}  // namespace

bool isFull() {
  return std::getenv("KEYFERRY_LOAD") != nullptr;
}

Holder::Holder(bool signs) {
  thread_ = std::jthread([this, signs](const std::stop_token &stop) {
    while (!stop.stop_requested() && !peer_.connection->end()) {
      if (const auto request = peer_.connection->receive(client::WaitLimits::within(100ms))) {
        const Bytes &data = *request->dataToSign;
        peer_.answer(*request, signs ? *otherRSAIdentity().key.signRawPKCS1(data) : data);
      }
    }
    EXPECT_FALSE(peer_.connection->end()) << "the holder was thrown out";
  });
}

LoadedMachine::LoadedMachine() {
  rlimit descriptors{};
  ::getrlimit(RLIMIT_NOFILE, &descriptors);
  descriptors.rlim_cur = descriptors.rlim_max;
  ::setrlimit(RLIMIT_NOFILE, &descriptors);
  std::filesystem::create_directories(at("/run/systemd/journal"));
  openJournal(/*isRead=*/true);
}

void LoadedMachine::openJournal(bool isRead) {
  reader_ = {};
  sockaddr_un address{};
  address.sun_family = AF_UNIX;
  at("/run/systemd/journal/socket").copy(address.sun_path, sizeof(address.sun_path) - 1);
  journal_ = base::Descriptor(::socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0));
  ASSERT_EQ(::bind(journal_.get(), reinterpret_cast<const sockaddr *>(&address), sizeof(address)),
            0);
  if (isRead) {
    reader_ = std::jthread([this](const std::stop_token &stop) {
      const std::stop_callback wake(stop, [this] { ::shutdown(journal_.get(), SHUT_RDWR); });
      std::array<char, 65536> entry{};
      ssize_t size = 0;
      while ((size = ::recv(journal_.get(), entry.data(), entry.size(), 0)) > 0) {
        journalBytes_ += static_cast<std::size_t>(size);
        if (std::string_view(entry.data(), static_cast<std::size_t>(size)).find(kUnknownKey) !=
            std::string_view::npos) {
          ++refusalLines_;
        }
      }
    });
  }
}

void LoadedMachine::expectJournalKeepsUp() {
  Peer asker = Peer::local();
  const QuillMessage request = system_tests::signRequest(Bytes(16), system_tests::ecIdentity());
  // a line may be lost: a journal that falls behind is not waited for
  EXPECT_TRUE(eventually([&, before = refusalLines_.load()] {
    EXPECT_FALSE(asker.ask(request).status);
    return refusalLines_ > before;
  }));
}

std::vector<double> LoadedMachine::sign(std::chrono::milliseconds time, bool isSigned) {
  using Clock = std::chrono::steady_clock;
  Peer asker = Peer::local();
  std::vector<double> times;
  const auto end = Clock::now() + time;
  for (std::uint32_t number = 0; Clock::now() < end; ++number) {
    const Bytes data = base::bytesOf(std::to_string(number));
    const auto start = Clock::now();
    const QuillMessage answer = asker.ask(system_tests::signRequest(data));
    times.push_back(std::chrono::duration<double, std::micro>(Clock::now() - start).count());
    if (!answer.status || !answer.signedData) {
      ADD_FAILURE() << "request " << number << " was refused";
      break;
    }
    EXPECT_TRUE(isSigned
                    ? otherRSAIdentity().key.publicKey().verifyRawPKCS1(*answer.signedData, data)
                    : answer.signedData == data);
  }
  EXPECT_FALSE(asker.connection->take()) << "each has exactly one answer";
  return times;
}

double percentile(std::vector<double> values, double share) {
  std::ranges::sort(values);
  return values[static_cast<std::size_t>(share * static_cast<double>(values.size() - 1))];
}

std::size_t LoadedMachine::descriptors() const {
  const std::filesystem::directory_iterator all("/proc/" + std::to_string(daemon->id()) + "/fd");
  return static_cast<std::size_t>(std::distance(begin(all), end(all)));
}

void LoadedMachine::expectDescriptors(std::size_t count) const {
  EXPECT_TRUE(eventually([&] { return descriptors() <= count; }))
      << descriptors() << " instead of " << count;
}

std::size_t LoadedMachine::residentKiB() const {
  std::ifstream file("/proc/" + std::to_string(daemon->id()) + "/statm");
  std::size_t resident = 0;
  file >> resident >> resident;  // the first is the size of all
  return resident * static_cast<std::size_t>(::sysconf(_SC_PAGESIZE)) / 1024;
}

}  // namespace load
