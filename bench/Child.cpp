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

void execute(const char *program) {
  ::dup2(::open("/dev/null", O_WRONLY), STDERR_FILENO);
  ::execl(program, program, nullptr);
}

Child runJournal() {
  sockaddr_un address{};
  address.sun_family = AF_UNIX;
  base::rooted("/run/systemd/journal/socket").copy(address.sun_path, sizeof(address.sun_path) - 1);
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
