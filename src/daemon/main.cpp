// kfyd: lets a remote client act as a smart card for this machine.

#include <sys/prctl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <csignal>
#include <cstdio>
#include <exception>
#include <filesystem>
#include <memory>
#include <string>

#include "base/Root.hpp"
#include "daemon/NetworkLimits.hpp"
#include "daemon/QuillNetworkManager.hpp"
#include "linux/accounts/AccountFileDirectory.hpp"
#include "linux/accounts/ShadowAccounts.hpp"
#include "linux/clock/SystemClock.hpp"
#include "linux/defaults/ChangeWatch.hpp"
#include "linux/defaults/TomlUserDefaults.hpp"
#include "linux/log/LogCollector.hpp"
#include "linux/network/AsioMainQueue.hpp"
#include "linux/network/TlsNetwork.hpp"
#include "linux/process/SpawnToolRunner.hpp"
#include "linux/store/SqliteItemStore.hpp"
#include "linux/tokens/P11TokenWatcher.hpp"
#include "logging/CVNLog.hpp"
#include "logging/DebugMode.hpp"
#include "logging/LimitLog.hpp"
#include "logging/LogPlatform.hpp"
#include "settings/SettingFaults.hpp"
#include "settings/Settings.hpp"

namespace {

constexpr int kCannotListen = -1;
constexpr int kFailed = 1;

std::string processName() {
  std::error_code unknown;
  return std::filesystem::read_symlink("/proc/self/exe", unknown).filename().string();
}

// Logs what the platform reports: settings and keychain files, tokens and keys that can't be used,
// and lost events.
void reportFromPlatform(const std::string &line) {
  CVNLog("%s", line);
}

// Memory holds relayed PINs and passwords, so there is no core file and no debugger of another
// user. New files are for root alone. A peer that goes away raises no signal.
void prepareProcess() {
  prctl(PR_SET_DUMPABLE, 0);
  umask(077);
  std::signal(SIGPIPE, SIG_IGN);
}

int exitWith(const char *line) {
  CVNLog("%s", line);
  logging::flushLogs();
  return kCannotListen;
}

// Sets both listeners up and serves what comes in.
int serve(platform::MainQueue &queue) {
  logging::logToFileAlone("Starting Listener");
  QuillNetworkManager &manager = QuillNetworkManager::manager();
  if (!manager.setupListener()) {
    logging::logToFileAlone("no");
    return exitWith("error setting up listener. exiting.");
  }
  if (!manager.setupLocalListener()) {
    return exitWith("error setting up local listener. exiting.");
  }
  queue.run();
  return 0;
}

int runDaemon() {
  prepareProcess();
  platform_linux::AsioMainQueue queue(reportFromPlatform);
  platform_linux::SystemClock clock;
  platform_linux::TomlUserDefaults defaults(reportFromPlatform, "/etc/keyferry",
                                            logging::currentMoment, settings::complaintsAbout);
  platform_linux::ChangeWatch changes({std::string(logging::kDebugMarker),
                                       defaults.pathOf(platform::kStandardDefaults),
                                       defaults.pathOf(settings::kIdentityDomain)});
  platform_linux::LogCollector log(queue, processName());
  platform_linux::SpawnToolRunner tools;
  platform_linux::AccountFileDirectory directory(reportFromPlatform);
  platform_linux::ShadowAccounts accounts(tools);
  platform_linux::SqliteItemStore store(base::rooted("/var/lib/keyferry/keychain.db"),
                                        reportFromPlatform);
  platform_linux::P11TokenWatcher tokens(reportFromPlatform,
                                         platform_linux::P11TokenWatcher::moduleFolderOfRoot());
  logging::LimitLog limits(clock);
  platform_linux::TlsNetwork network(
      queue, [&defaults] { return kfyd::connectionLimits(defaults); },
      [&limits](const platform::ReachedLimit &reached) { limits.reached(reached); });
  logging::useLogPlatform(std::make_unique<logging::LogPlatform>(logging::LogPlatform{
      clock, defaults, log, log, processName(), getuid(), /*bundleLogFileName=*/std::nullopt,
      [&changes] { return changes.mayHaveChanged(); }}));
  queue.setBeforeEvent(logging::eventBegins);
  QuillNetworkManager::usePlatform(
      {{tools, clock, defaults, directory, accounts, limits}, network, store, tokens, queue});
  try {
    return serve(queue);
  } catch (const std::exception &failure) {
    // logged here, while the log still exists
    CVNLog("kfyd ends: %s", failure.what());
    logging::flushLogs();
    return kFailed;
  }
}

}  // namespace

int main() {
  try {
    return runDaemon();
  } catch (const std::exception &failure) {
    std::fprintf(stderr, "kfyd: cannot start: %s\n", failure.what());
    return kFailed;
  }
}
