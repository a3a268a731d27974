#include "linux/log/LogCollector.hpp"

#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/socket.h>
#include <sys/un.h>

#include <array>
#include <csignal>
#include <cstring>
#include <filesystem>
#include <optional>
#include <string>
#include <vector>

#include "base/Descriptor.hpp"
#include "fakes/FakeMainQueue.hpp"
#include "fakes/TemporaryFolder.hpp"

namespace {

using platform_linux::LogCollector;
using platform_linux::LogPaths;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::MatchesRegex;
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

  std::vector<std::string> received() {
    std::vector<std::string> datagrams;
    std::string buffer(100'000, '\0');
    ssize_t length = 0;
    while ((length = ::recv(socket_.get(), buffer.data(), buffer.size(), 0)) >= 0) {
      datagrams.push_back(buffer.substr(0, static_cast<std::size_t>(length)));
    }
    return datagrams;
  }

  // The texts of journal entries alone.
  std::vector<std::string> messages() {
    std::vector<std::string> texts;
    for (const std::string &datagram : received()) {
      const std::size_t start = datagram.find("\nMESSAGE=") + 9;
      texts.push_back(datagram.substr(start, datagram.size() - start - 1));
    }
    return texts;
  }

 private:
  base::Descriptor socket_;
};

class Collector : public testing::Test {
 protected:
  void makeCollector(int standardError = -1) {
    collector_.emplace(queue_, "kfyd",
                       LogPaths{folder_ / "journal", folder_ / "syslog", folder_ / "var/log/file"},
                       standardError);
  }
  void addNumbers(int count) {
    for (int number = 0; number < count; ++number) {
      collector_->entry(std::to_string(number));
    }
  }
  // Reads, as time goes on, until nothing waits any more.
  std::vector<std::string> drain(Log &log) {
    std::vector<std::string> all;
    do {
      queue_.advance(500ms);
      for (std::string &text : log.messages()) {
        all.push_back(std::move(text));
      }
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
  const std::string before =
      "PRIORITY=5\nSYSLOG_IDENTIFIER=kfyd\nSYSLOG_PID=" + pid_ + "\nMESSAGE=";
  EXPECT_THAT(journal.received(), ElementsAre(before + "one\n", before + "two PRIORITY=0\n"));
  EXPECT_EQ(queue_.waitingEvents(), 0);
}

TEST_F(Collector, FlushAndTheEndNeedNoQueueAndTheQueueMayLiveLonger) {
  Log journal(folder_ / "journal");
  makeCollector();
  collector_->entry("one");
  collector_->flush();
  EXPECT_THAT(journal.messages(), ElementsAre("one"));
  collector_->entry("two");
  collector_.reset();
  EXPECT_THAT(journal.messages(), ElementsAre("two"));
  queue_.advance(1s);
}

TEST_F(Collector, EntryIsCutBetweenCharacters) {
  Log journal(folder_ / "journal");
  makeCollector();
  std::string text = "x";
  for (int count = 0; count < 40'000; ++count) {
    text += "é";
  }
  collector_->entry(text);
  collector_->flush();
  EXPECT_THAT(journal.messages(), ElementsAre(text.substr(0, 65'535)));
}

TEST_F(Collector, JournalThatReadsNothingKeepsOrderAndIsAskedLessAndLessOften) {
  Log journal(folder_ / "journal");
  makeCollector();
  addNumbers(3000);
  queue_.advance(10s);
  EXPECT_EQ(queue_.waitingEvents(), 1);
  queue_.advance(queue_.untilNextEvent());
  EXPECT_EQ(queue_.untilNextEvent(), 500ms);
  const auto texts = drain(journal);
  ASSERT_EQ(texts.size(), 3000);
  for (std::size_t index = 0; index < texts.size(); ++index) {
    ASSERT_EQ(texts[index], std::to_string(index));
  }
}

TEST_F(Collector, DroppedEntriesAreCountedInTheirPlace) {
  Log journal(folder_ / "journal");
  makeCollector();
  addNumbers(20'000);
  std::vector<std::string> texts = drain(journal);
  collector_->entry("later");
  collector_->flush();
  EXPECT_THAT(journal.messages(), ElementsAre("later"));
  ASSERT_GT(texts.size(), 4096);
  const std::size_t kept = texts.size() - 1;
  EXPECT_EQ(texts[kept - 1], std::to_string(kept - 1));
  EXPECT_EQ(texts[kept], std::to_string(20'000 - kept) + " entries dropped");
}

TEST_F(Collector, JournalThatRestartsIsFoundAgain) {
  std::filesystem::create_directories(folder_ / "var/log/file");  // so that the file is no way out
  std::optional<Log> journal(folder_ / "journal");
  makeCollector();
  collector_->entry("one");
  collector_->flush();
  journal.emplace(folder_ / "journal");
  collector_->entry("two");
  collector_->flush();
  EXPECT_THAT(journal->messages(), ElementsAre("two"));
  journal.reset();
  collector_->entry("three");
  queue_.advance(10s);
  journal.emplace(folder_ / "journal");
  collector_->entry("four");
  EXPECT_THAT(drain(*journal), ElementsAre("three", "four"));
}

TEST_F(Collector, SyslogThenAFileStandInUntilTheJournalIsThere) {
  makeCollector();
  collector_->entry("one");
  collector_->entry("two");
  collector_->flush();
  EXPECT_EQ(folder_.read("var/log/file"), "one\ntwo\n");
  Log syslog(folder_ / "syslog");
  collector_->entry("three");
  collector_->flush();
  EXPECT_THAT(syslog.received(),
              ElementsAre(MatchesRegex("<29>[A-Z][a-z]{2} [ 1-3][0-9] [0-9]{2}:[0-9]{2}:[0-9]{2} "
                                       "kfyd\\[" +
                                       pid_ + "\\]: three")));
  Log journal(folder_ / "journal");
  collector_->entry("four");
  collector_->flush();
  EXPECT_THAT(journal.messages(), ElementsAre("four"));
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

  std::string received() {
    std::string text;
    std::array<char, 65'536> piece;
    ssize_t count = 0;
    while ((count = ::read(reader_.get(), piece.data(), piece.size())) > 0) {
      text.append(piece.data(), static_cast<std::size_t>(count));
    }
    return text;
  }
  std::string drainText() {
    std::string text;
    do {
      queue_.advance(500ms);
      text += received();
    } while (queue_.waitingEvents() > 0);
    return text;
  }

  base::Descriptor reader_;
  base::Descriptor writer_;
};

// A write that blocks would stop the test itself: it reads only afterwards.
TEST_F(StandardErrorPipe, FullPipeStopsNothingAndLosesNothing) {
  std::string all;
  for (int line = 0; all.size() < 500'000; ++line) {
    const std::string text = "line " + std::to_string(line) + "\n";
    all += text;
    collector_->write(text);
    collector_->flush();
  }
  EXPECT_TRUE(drainText() == all);
  EXPECT_EQ(::fcntl(writer_.get(), F_GETFL) & O_NONBLOCK, 0);
}

TEST_F(StandardErrorPipe, DroppedTextIsCountedInItsPlace) {
  const std::string line(1023, 'x');
  for (int count = 0; count < 2048; ++count) {
    collector_->write(line + "\n");
  }
  const std::string text = drainText();
  const std::size_t kept = text.find('k');
  ASSERT_NE(kept, std::string::npos);
  EXPECT_GT(kept, 1'000'000);
  EXPECT_EQ(text.substr(kept),
            "kfyd: " + std::to_string(2048 * 1024 - kept) + " bytes of standard error dropped\n");
}

TEST_F(StandardErrorPipe, TextThatIsTooLargeAtAllDoesNotShutOutTheNext) {
  collector_->write(std::string(2'000'000, 'x'));
  queue_.advance(10ms);
  collector_->write("next\n");
  EXPECT_EQ(drainText(), "kfyd: 2000000 bytes of standard error dropped\nnext\n");
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
