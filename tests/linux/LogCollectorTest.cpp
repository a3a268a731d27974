#include "linux/log/LogCollector.hpp"

#include <fcntl.h>
#include <gmock/gmock.h>
#include <sys/socket.h>
#include <sys/un.h>

#include <csignal>
#include <cstring>

#include "base/Descriptor.hpp"
#include "fakes/FakeMainQueue.hpp"
#include "fakes/TemporaryFolder.hpp"

namespace {

using platform_linux::LogCollector;
using testing::ElementsAre;
using testing::IsEmpty;
using namespace std::chrono_literals;

// A log that listens, and reads only when the test wants it to.
class Log {
 public:
  explicit Log(const std::string &path)
      : socket_(::socket(AF_UNIX, SOCK_DGRAM | SOCK_NONBLOCK, 0)) {
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    std::strncpy(address.sun_path, path.c_str(), sizeof(address.sun_path) - 1);
    ::unlink(path.c_str());
    EXPECT_EQ(::bind(socket_.get(), reinterpret_cast<sockaddr *>(&address), sizeof(address)), 0);
  }

  // What has come; of entries of the journal's protocol from this text on.
  std::vector<std::string> received(const std::string &from = "\nMESSAGE=") {
    std::vector<std::string> texts;
    std::string buffer(100'000, '\0');
    ssize_t length = 0;
    while ((length = ::recv(socket_.get(), buffer.data(), buffer.size(), 0)) >= 0) {
      texts.push_back(buffer.substr(0, static_cast<std::size_t>(length)));
      const std::size_t start = texts.back().find(from);
      texts.back().erase(0, start == std::string::npos ? 0 : start + from.size());
    }
    return texts;
  }

 private:
  base::Descriptor socket_;
};

class Collector : public testing::Test {
 protected:
  void makeCollector(int standardError = -1) {
    collector_.emplace(
        queue_, "kfyd",
        platform_linux::LogPaths{folder_ / "journal", folder_ / "syslog", folder_ / "var/log/file"},
        standardError);
  }
  void flush(const std::string &entry) {
    collector_->entry(entry);
    collector_->flush();
  }
  // What is read, as time goes on, until nothing waits any more.
  template <typename Read>
  auto drain(Read read) {
    auto all = read();
    do {
      queue_.advance(500ms);
      const auto more = read();
      all.insert(all.end(), more.begin(), more.end());
    } while (queue_.waitingEvents() > 0);
    return all;
  }

  const std::string pid_ = std::to_string(::getpid());
  fakes::TemporaryFolder folder_;
  fakes::FakeMainQueue queue_;
  std::optional<LogCollector> collector_;
};

TEST_F(Collector, EntriesLeaveTogetherTenMillisecondsAfterTheFirst) {
  Log journal(folder_ / "journal");
  makeCollector();
  collector_->entry("one");
  queue_.advance(9ms);
  collector_->entry("two\nPRIORITY=0");
  EXPECT_THAT(journal.received(), IsEmpty());
  queue_.advance(1ms);
  const std::string before = "SYSLOG_IDENTIFIER=kfyd\nSYSLOG_PID=" + pid_ + "\nMESSAGE=";
  EXPECT_THAT(journal.received("PRIORITY=5\n"),
              ElementsAre(before + "one\n", before + "two PRIORITY=0\n"));
  EXPECT_EQ(queue_.waitingEvents(), 0);
}

TEST_F(Collector, JournalThatReadsNothingHearsWhatWasDropped) {
  Log journal(folder_ / "journal");
  makeCollector();
  for (int number = 0; number < 20'000; ++number) {
    collector_->entry(std::to_string(number));
  }
  queue_.advance(10s);
  const auto texts = drain([&] { return journal.received(); });
  ASSERT_GT(texts.size(), 4096);
  const std::size_t kept = texts.size() - 1;
  for (std::size_t index = 0; index < kept; ++index) {
    ASSERT_EQ(texts[index], std::to_string(index) + "\n");
  }
  EXPECT_EQ(texts[kept], std::to_string(20'000 - kept) + " entries dropped\n");
}

TEST_F(Collector, SyslogThenAFileStandInUntilTheJournalIsThere) {
  makeCollector();
  collector_->entry("one");
  flush("two");
  Log syslog(folder_ / "syslog");
  flush("three");
  const std::string time = "[A-Z][a-z]{2} [ 1-3][0-9] [0-9]{2}:[0-9]{2}:[0-9]{2}";
  EXPECT_THAT(syslog.received(),
              ElementsAre(testing::MatchesRegex("<29>" + time + " kfyd\\[" + pid_ + "\\]: three")));
  Log journal(folder_ / "journal");
  flush("four");
  EXPECT_THAT(journal.received(), ElementsAre("four\n"));
  EXPECT_THAT(syslog.received(), IsEmpty());
  EXPECT_EQ(folder_.read("var/log/file"), "one\ntwo\n");
}

class StandardErrorPipe : public Collector {
 protected:
  StandardErrorPipe() {
    std::array<int, 2> ends{};
    EXPECT_EQ(::pipe(ends.data()), 0);
    reader_ = base::Descriptor(ends[0]);
    writer_ = base::Descriptor(ends[1]);
    ::fcntl(reader_.get(), F_SETFL, O_NONBLOCK);
    makeCollector(writer_.get());
  }
  std::string drained() {
    return drain([&] {
      std::string text(1 << 20, '\0');
      text.resize(static_cast<std::size_t>(
          std::max<ssize_t>(0, ::read(reader_.get(), text.data(), text.size()))));
      return text;
    });
  }

  base::Descriptor reader_;
  base::Descriptor writer_;
};

// A write that blocks would stop the test itself: it reads only afterwards.
TEST_F(StandardErrorPipe, FullPipeStopsNothingAndDroppedTextIsCountedInItsPlace) {
  std::string all;
  for (int line = 0; all.size() < 500'000; ++line) {
    const std::string text = "line " + std::to_string(line) + "\n";
    all += text;
    collector_->write(text);
    collector_->flush();
  }
  EXPECT_TRUE(drained() == all);
  EXPECT_EQ(::fcntl(writer_.get(), F_GETFL) & O_NONBLOCK, 0);
  for (int count = 0; count < 2048; ++count) {
    collector_->write(std::string(1023, 'x') + "\n");
  }
  const std::string text = drained();
  const std::size_t kept = text.find('k');
  ASSERT_NE(kept, std::string::npos);
  EXPECT_EQ(text.substr(kept),
            "kfyd: " + std::to_string(2048 * 1024 - kept) + " bytes of standard error dropped\n");
}

TEST_F(StandardErrorPipe, EndIsNotHeldUpByAReaderThatStandsStillOrIsGone) {
  std::signal(SIGPIPE, SIG_IGN);
  for (const bool isGone : {false, true}) {
    makeCollector(writer_.get());
    collector_->write(std::string(900'000, 'x'));
    if (isGone) {
      reader_.close();
    }
    const auto start = std::chrono::steady_clock::now();
    collector_.reset();
    EXPECT_LT(std::chrono::steady_clock::now() - start, 10s);
  }
  std::signal(SIGPIPE, SIG_DFL);
}

}  // namespace
