#include "linux/process/SpawnToolRunner.hpp"

#include <fcntl.h>
#include <spawn.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <csignal>
#include <new>
#include <vector>

#include "base/Descriptor.hpp"
#include "base/Root.hpp"

namespace platform_linux {
namespace {

using Deadline = std::chrono::steady_clock::time_point;

// The arguments of posix_spawn for a program.
class Setup {
 public:
  // `end` becomes the program's descriptor `number`, standard input or output.
  Setup(int end, int number, const std::string &workingFolder) {
    sigset_t none;
    sigset_t all;
    sigemptyset(&none);
    sigfillset(&all);
    ::posix_spawnattr_init(&attributes_);
    ::posix_spawnattr_setflags(
        &attributes_,
        static_cast<short>(POSIX_SPAWN_SETPGROUP | POSIX_SPAWN_SETSIGMASK | POSIX_SPAWN_SETSIGDEF));
    ::posix_spawnattr_setpgroup(&attributes_, 0);
    ::posix_spawnattr_setsigmask(&attributes_, &none);
    ::posix_spawnattr_setsigdefault(&attributes_, &all);
    ::posix_spawn_file_actions_init(&actions_);
    isComplete_ = ::posix_spawn_file_actions_addchdir_np(&actions_, workingFolder.c_str()) == 0 &&
                  ::posix_spawn_file_actions_adddup2(&actions_, end, number) == 0 &&
                  ::posix_spawn_file_actions_addclosefrom_np(&actions_, STDERR_FILENO + 1) == 0;
  }
  ~Setup() {
    ::posix_spawn_file_actions_destroy(&actions_);
    ::posix_spawnattr_destroy(&attributes_);
  }
  Setup(const Setup &) = delete;
  Setup &operator=(const Setup &) = delete;

  // Starts the program; its process ID, or nothing.
  [[nodiscard]] std::optional<pid_t> start(const std::string &program,
                                           std::span<const std::string> arguments) const {
    std::vector<std::string> texts{program};
    texts.insert(texts.end(), arguments.begin(), arguments.end());
    std::vector<char *> pointers;
    pointers.reserve(texts.size() + 1);
    for (std::string &text : texts) {
      pointers.push_back(text.data());
    }
    pointers.push_back(nullptr);
    pid_t process = 0;
    if (!isComplete_ || ::posix_spawn(&process, program.c_str(), &actions_, &attributes_,
                                      pointers.data(), environ) != 0) {
      return std::nullopt;
    }
    return process;
  }

 private:
  posix_spawnattr_t attributes_{};
  posix_spawn_file_actions_t actions_{};
  bool isComplete_ = false;
};

// Reads the stream to its end. Nothing if a limit or the memory was exceeded; the program must then
// be ended.
std::optional<Bytes> readToEnd(int descriptor, Deadline deadline, std::size_t limit) try {
  Bytes output;
  std::array<std::uint8_t, 65536> piece;
  while (base::waitToRead(descriptor, deadline)) {
    const ssize_t count = ::read(descriptor, piece.data(), piece.size());
    if (count == 0) {
      return output;
    }
    if (count < 0 && errno == EINTR) {
      continue;
    }
    if (count < 0 || static_cast<std::size_t>(count) > limit - output.size()) {
      return std::nullopt;
    }
    output.insert(output.end(), piece.begin(), piece.begin() + count);
  }
  return std::nullopt;
} catch (const std::bad_alloc &) {
  return std::nullopt;
}

bool endsBefore(pid_t process, Deadline deadline) {
  const base::Descriptor watch(static_cast<int>(::syscall(SYS_pidfd_open, process, 0)));
  return watch.get() >= 0 && base::waitToRead(watch.get(), deadline);
}

// The status with which it ended, as waitpid gives it.
int reap(pid_t process) {
  int status = 0;
  while (::waitpid(process, &status, 0) < 0 && errno == EINTR) {
  }
  return status;
}

}  // namespace

std::optional<Bytes> SpawnToolRunner::outputOf(const std::string &program,
                                               std::span<const std::string> arguments,
                                               const std::string &workingFolder,
                                               platform::RunLimits limits) {
  const Deadline deadline = std::chrono::steady_clock::now() + limits.time;
  std::array<int, 2> ends{};
  if (::pipe2(ends.data(), O_CLOEXEC) != 0) {
    return std::nullopt;
  }
  const base::Descriptor source(ends[0]);
  base::Descriptor sink(ends[1]);
  const auto process = Setup(sink.get(), STDOUT_FILENO, base::rooted(workingFolder))
                           .start(base::rooted(program), arguments);
  // close our copy: while it is open, the stream does not end
  sink.close();
  if (!process) {
    return std::nullopt;
  }
  auto output = readToEnd(source.get(), deadline, limits.outputBytes);
  if (!output || !endsBefore(*process, deadline)) {
    // Before it is reaped: until then the group's number cannot belong to another group.
    ::kill(-*process, SIGKILL);
    output.reset();
  }
  reap(*process);
  return output;
}

std::optional<int> SpawnToolRunner::statusOf(const std::string &program,
                                             std::span<const std::string> arguments,
                                             const SecretBytes &input,
                                             std::chrono::milliseconds time) {
  const Deadline deadline = std::chrono::steady_clock::now() + time;
  std::array<int, 2> ends{};
  if (::pipe2(ends.data(), O_CLOEXEC) != 0) {
    return std::nullopt;
  }
  base::Descriptor source(ends[0]);
  base::Descriptor sink(ends[1]);
  const auto process = Setup(source.get(), STDIN_FILENO, "/").start(program, arguments);
  source.close();
  if (!process) {
    return std::nullopt;
  }
  // It fits into the pipe, so this waits for nobody. A program that does not want it says so by its
  // status.
  const ByteView bytes = input.reveal();
  (void)!::write(sink.get(), bytes.data(), bytes.size());
  sink.close();
  const bool isInTime = endsBefore(*process, deadline);
  if (!isInTime) {
    ::kill(-*process, SIGKILL);
  }
  const int status = reap(*process);
  return isInTime && WIFEXITED(status) ? std::optional(WEXITSTATUS(status)) : std::nullopt;
}

}  // namespace platform_linux
