#include "logging/CVNUnifiedLogger.hpp"

#include <filesystem>
#include <fstream>
#include <regex>

#include "base/Files.hpp"
#include "base/Root.hpp"
#include "encodings/HexString.hpp"
#include "fakes/LoggedTest.hpp"
#include "logging/CVNLog.hpp"
#include "logging/StandardErrorLines.hpp"
#include "logging/UnauthenticatedLines.hpp"

namespace {

using namespace std::chrono_literals;
using testing::ElementsAre;

constexpr const char *kDefaultLog = "/tmp/kfy/Keyferry.log";

void makeFile(const std::string &path, const std::string &content = "") {
  std::filesystem::create_directories(std::filesystem::path(base::rooted(path)).parent_path());
  std::ofstream(base::rooted(path)) << content;
}

class Logger : public fakes::LoggedTest {
 public:
  ~Logger() override {
    for (const auto &entry : std::filesystem::directory_iterator(base::root())) {
      std::filesystem::remove_all(entry);
    }
    std::filesystem::create_directories(base::rooted("/tmp"));
  }

  // The lines of the log file, without time and tag.
  static std::vector<std::string> fileLines() {
    std::ifstream file(base::rooted(kDefaultLog));
    std::vector<std::string> lines;
    for (std::string line; std::getline(file, line);) {
      lines.push_back(
          std::regex_replace(line, std::regex("^.*kfyd\\([0-9]+\\): |^.*:(?=Last)"), ""));
    }
    return lines;
  }
};

TEST_F(Logger, DebugModeTakesEffectAtOnceBothWays) {
  CVNLog("two\nlines %li", 5L);
  CVNLogDebug("lost");
  logging::logToFileAlone("lost");
  EXPECT_EQ(log.standardError, "");
  EXPECT_TRUE(std::filesystem::is_empty(base::rooted("/tmp/kfy"))) << "made all the same";
  makeFile(std::string(logging::kDebugMarker));
  CVNLogDebug("one");
  std::filesystem::remove(base::rooted(logging::kDebugMarker));
  CVNLogDebug("lost");
  CVNLog("entry alone");
  setDebugMode(true);
  CVNLog("two");
  logging::logToFileAlone("three");
  EXPECT_THAT(takeEntries(),
              ElementsAre("kfy:two\\nlines 5", "kfy:one", "kfy:entry alone", "kfy:two"));
  EXPECT_THAT(fileLines(), ElementsAre("one", "two", "three"));
  EXPECT_EQ(log.standardError, "one\ntwo\nthree\n");
}

TEST_F(Logger, DebugModeIsLookedUpAnewAfterAnEventWithChangesOrABlockingStep) {
  logging::eventBegins();
  CVNLogDebug("off");
  setDebugMode(true);
  CVNLogDebug("still off");
  {
    const logging::BlockingStep step;
  }
  EXPECT_EQ(log.flushes, 2) << "the log and standard error leave before the step";
  CVNLogDebug("on");
  logging::eventBegins();
  setDebugMode(false);
  CVNLogDebug("off again");
  bool mayHaveChanged = false;
  logging::logPlatform()->mayHaveChanged = [&mayHaveChanged] { return mayHaveChanged; };
  const auto moment = logging::currentMoment();
  for (const bool hasSome : {false, true}) {
    mayHaveChanged = hasSome;
    setDebugMode(true);
    logging::eventBegins();
    EXPECT_EQ(logging::debugModeOn(), hasSome);
    EXPECT_EQ(logging::currentMoment() != moment, hasSome);
  }
  EXPECT_THAT(takeEntries(), ElementsAre("kfy:on"));
}

TEST_F(Logger, MakesOfALongMessageWhatIsTakenOfIt) {
  const Bytes frame(1 << 20, 0xAB);
  const std::string whole = encodings::hexString(frame);
  CVNLog("%@", encodings::Hex{frame});
  const std::string entry = takeEntries().front();
  EXPECT_THAT("kfy:" + whole, testing::StartsWith(entry));
  EXPECT_GT(entry.size(), platform::kLongestEntry);
  EXPECT_LT(entry.size(), platform::kLongestEntry + 100);
  setDebugMode(true);
  CVNLog("%@", encodings::Hex{frame});
  EXPECT_EQ(log.standardError, whole + "\n");
}

TEST_F(Logger, HidesInTheUnifiedLogAloneWhatAMessageSays) {
  setDebugMode(true);
  defaults.values["kfyd/redactUnifiedLog"] = true;
  CVNLog("secret");
  CVNLogDebug("trace");
  EXPECT_THAT(takeEntries(), ElementsAre("kfy:<private>", "kfy:<private>"));
  EXPECT_THAT(fileLines(), ElementsAre("secret", "trace"));
}

TEST_F(Logger, CountsWhatIsLeftOutForThoseThatHaveNotAuthenticated) {
  const auto writes = [this](std::size_t bytes) {
    const logging::UnauthenticatedLines lines(/*isUnauthenticated=*/true);
    CVNLog("%s", std::string(bytes, 'x'));
    logging::warn(EPIPE, "y");
    return std::to_string(takeEntries().size()) +
           (std::exchange(log.standardError, {}).empty() ? "-" : "y");
  };
  EXPECT_EQ(writes(1000), "1y") << "there is no limit by default";
  defaults.values["kfyd/strangerLogBytesPerSecond"] = 100;
  clock.time += std::chrono::seconds(1);
  EXPECT_EQ(writes(50), "1y");
  EXPECT_EQ(writes(240), "1-") << "a long line is paid for afterwards";
  CVNLog("another's");
  logging::warn(EPIPE, "another's");
  EXPECT_EQ(takeEntries().size() + std::exchange(log.standardError, {}).size(), 30U);
  clock.time += std::chrono::seconds(2);
  EXPECT_EQ(writes(1), "0-");
  logging::eventBegins();
  EXPECT_THAT(takeEntries(), testing::IsEmpty());
  clock.time -= std::chrono::hours(1);
  logging::eventBegins();
  EXPECT_THAT(takeEntries(),
              ElementsAre("kfy:3 lines about clients that have not authenticated left out (limit "
                          "strangerLogBytesPerSecond is 100)"));
  EXPECT_EQ(writes(1), "1y");
}

TEST_F(Logger, RepeatsWithinTwoSecondsOfTheLastWrittenLineAreCounted) {
  setDebugMode(true);
  CVNLog("same");
  clock.time += 1s;
  CVNLogDebug("same");  // the level is not compared
  clock.time += 1s;     // exactly 2.0 s after the line, not after the repeat
  CVNLog("same");
  EXPECT_EQ(CVNUnifiedLogger::sharedLogger()->repeated, 2);
  clock.time += 1ms;
  CVNLog("same");
  CVNLog("other\n");
  clock.time -= 10s;  // the clock goes back
  CVNLog("other\n");
  CVNLog("end");
  EXPECT_THAT(fileLines(), ElementsAre("same", "Last message repeated 2 times", "same", "other", "",
                                       "Last message repeated 1 times", "end"));
  EXPECT_EQ(log.standardError, "same\nsame\nsame\nsame\nother\n\nother\n\nend\n");
  EXPECT_EQ(takeEntries().size(), 7U);
}

TEST_F(Logger, FromThe1002ndRepeatOnStandardErrorGetsEachTwice) {
  setDebugMode(true);
  for (int count = 0; count < 1 + 1001; ++count) {
    CVNLog("x");
  }
  EXPECT_EQ(log.standardError.size(), 2U * 1002);
  CVNLog("x");
  EXPECT_EQ(log.standardError.size(), 2U * 1004);
}

TEST_F(Logger, AMovedFileIsMadeAgainAndALostLineChangesTheState) {
  setDebugMode(true);
  CVNLog("one");
  std::filesystem::remove_all(base::rooted("/tmp/kfy"));
  makeFile("/tmp/kfy");  // a file in the folder's place
  CVNLog("lost");
  CVNLog("lost");
  EXPECT_EQ(log.standardError,
            "one\nlost\nerror creating logfile at /tmp/kfy/Keyferry.log\nlost\n");
  EXPECT_EQ(CVNUnifiedLogger::sharedLogger()->repeated, 1);
  std::filesystem::remove(base::rooted("/tmp/kfy"));
  std::filesystem::create_directory(base::rooted("/tmp/kfy"));
  CVNLog("two");
  EXPECT_THAT(fileLines(), ElementsAre("Last message repeated 1 times", "two"));
}

TEST_F(Logger, AFolderOrFileOfSomebodyElseInASharedOneIsNotFollowed) {
  setDebugMode(true);
  std::filesystem::permissions(base::rooted("/tmp"), std::filesystem::perms::all);
  std::filesystem::create_directory(base::rooted("/elsewhere"));
  const auto cannotLogTo = [&](const char *what) {
    log.standardError.clear();
    CVNLog("%s", what);
    EXPECT_TRUE(std::filesystem::is_empty(base::rooted("/elsewhere"))) << what;
    return log.standardError.find("error creating logfile") != std::string::npos;
  };
  CVNLog("start");
  std::filesystem::permissions(base::rooted("/tmp/kfy"), std::filesystem::perms::all);
  EXPECT_TRUE(cannotLogTo("a folder that all can write"));
  std::filesystem::remove_all(base::rooted("/tmp/kfy"));
  std::filesystem::create_symlink(base::rooted("/elsewhere"), base::rooted("/tmp/kfy"));
  EXPECT_TRUE(cannotLogTo("a link in the folder's place"));
  std::filesystem::remove(base::rooted("/tmp/kfy"));
  std::filesystem::create_directory(base::rooted("/tmp/kfy"));
  std::filesystem::create_symlink(base::rooted("/elsewhere/log"), base::rooted(kDefaultLog));
  EXPECT_FALSE(cannotLogTo("a link in the file's place"));
}

TEST_F(Logger, TimeStampIsLocalTimeWithItsOffset) {
  setDebugMode(true);
  std::string expected;
  for (const auto &[offset, stamp] : {std::pair{0s, "2025-03-14T08:26:53Z"},
                                      {3600s, "2025-03-14T09:26:53+01:00"},
                                      {-34200s, "2025-03-13T22:56:53-09:30"}}) {
    clock.offset = offset;
    CVNLog("%s", stamp);
    expected += stamp + (" kfyd(" + std::to_string(getpid()) + "): " + stamp + "\n");
  }
  const auto written = base::readFile(base::rooted(kDefaultLog), 65536);
  EXPECT_EQ(base::textOf(written.value()), expected);
}

TEST_F(Logger, PlaceOfTheLogFollowsSettingsAndUser) {
  makeFile("/etc/passwd",
           "root:x:0:0::/root:/bin/sh\nann:x:1000:1000::/home/ann:/bin/sh\n"
           "bob:x:1001:1001::/home/bob:/bin/sh\n");
  std::filesystem::create_directories(base::rooted("/home/ann/Library/Logs"));
  std::filesystem::create_directories(base::rooted("/root/logs"));
  makeFile("/srv/file");
  // the user, the settings of folder and file, the bundle's name of the file
  const std::tuple<uid_t, const char *, const char *, const char *, const char *> kCases[] = {
      {0, "", "", "", "/tmp/kfy/Keyferry.log"},
      {1000, "", "", "", "/home/ann/Library/Logs/Keyferry.log"},
      {1001, "", "", "", "/tmp/kfy-....../Keyferry.log"},
      {0, "/home/ann", "~x.log", "b", "/home/ann/~x.log"},
      {0, "/home/ann//", "", "", "/home/ann/Keyferry.log"},
      {0, "~/logs", "", "b.log", "/root/logs/b.log"},
      {0, "/nowhere", "", "", "/tmp/kfy/Keyferry.log"},
      {0, "/home/ann", "/a//b.log/", "", "/home/ann/a/b.log"},
      {0, "/home/ann", "/", "", "/home/ann"},
      {0, "/", "", "", "/Keyferry.log"},
      {0, "../../srv", "../x.log", "", "../../srv/../x.log"},
      {0, "/srv/file", "", "", "/srv/file/Keyferry.log"}};
  for (const auto &[user, folder, file, bundleName, expected] : kCases) {
    SCOPED_TRACE(expected);
    defaults.values["kfyd/LogFolderPath"] = folder;
    defaults.values["kfyd/LogFileName"] = file;
    startLogging(user, bundleName);
    const std::string place = CVNUnifiedLogger::sharedLogger()->logFileURL;
    EXPECT_THAT(place, testing::MatchesRegex(expected));
    EXPECT_TRUE(std::filesystem::path(base::rooted(place))
                    .lexically_normal()
                    .string()
                    .starts_with(base::root() + "/"));
  }
}

}  // namespace
