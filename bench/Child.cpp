#include "Child.hpp"

#include <fcntl.h>
#include <sys/prctl.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <csignal>
#include <ctime>
#include <fstream>
#include <system_error>

#include "base/Descriptor.hpp"
#include "base/Root.hpp"

namespace bench {
namespace {

void need(bool isDone, const char *what) {
  if (!isDone) {
    throw std::system_error(errno, std::generic_category(), what);
  }
}

}  // namespace

Child::Child(const std::function<void()> &work) : id_(::fork()) {
  need(id_ >= 0, "fork");
  if (id_ == 0) {
    ::prctl(PR_SET_PDEATHSIG, SIGKILL);
    work();
    ::_exit(1);
  }
}

Child::~Child() {
  ::kill(id_, SIGKILL);
  ::waitpid(id_, nullptr, 0);
}

double Child::processorTime() const {
  clockid_t clock = 0;
  timespec time{};
  need(::clock_getcpuclockid(id_, &clock) == 0 && ::clock_gettime(clock, &time) == 0,
       "processor time of a child");
  return static_cast<double>(time.tv_sec) * 1e6 + static_cast<double>(time.tv_nsec) / 1e3;
}

double Child::mainThreadTime() const {
  // The first number is nanoseconds (proc(5)). The clock of another process's thread can't be read.
  double time = 0;
  std::ifstream file("/proc/" + std::to_string(id_) + "/schedstat");
  need(static_cast<bool>(file >> time), "processor time of a thread");
  return time / 1e3;
}

double Child::residentKiB() const {
  double pages = 0;
  std::ifstream file("/proc/" + std::to_string(id_) + "/statm");
  need(static_cast<bool>(file >> pages >> pages), "memory of a child");  // the first is all
  return pages * static_cast<double>(::sysconf(_SC_PAGESIZE)) / 1024;
}

void execute(std::vector<std::string> command) {
  const int nothing = ::open("/dev/null", O_WRONLY);
  ::dup2(nothing, STDOUT_FILENO);
  ::dup2(nothing, STDERR_FILENO);
  std::vector<char *> arguments;
  for (std::string &argument : command) {
    arguments.push_back(argument.data());
  }
  arguments.push_back(nullptr);
  ::execv(arguments[0], arguments.data());
}

Child runJournal() {
  sockaddr_un address{};
  address.sun_family = AF_UNIX;
  base::rooted("/run/systemd/journal/socket").copy(address.sun_path, sizeof(address.sun_path) - 1);
  ::unlink(address.sun_path);  // of the program before
  const base::Descriptor socket(::socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0));
  need(::bind(socket.get(), reinterpret_cast<const sockaddr *>(&address), sizeof(address)) == 0,
       "journal");
  return Child([&] {
    std::array<char, 65536> entry{};
    while (::recv(socket.get(), entry.data(), entry.size(), 0) > 0) {
    }
  });
}

}  // namespace bench
