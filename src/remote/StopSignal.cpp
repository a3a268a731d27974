#include "remote/StopSignal.hpp"

#include <sys/signalfd.h>
#include <unistd.h>

#include <csignal>

namespace remote {

StopSignal::StopSignal() {
  sigset_t signals;
  sigemptyset(&signals);
  for (const int number : {SIGINT, SIGTERM, SIGHUP}) {
    sigaddset(&signals, number);
  }
  (void)::pthread_sigmask(SIG_BLOCK, &signals, nullptr);
  signals_ = base::Descriptor(::signalfd(-1, &signals, SFD_CLOEXEC | SFD_NONBLOCK));
}

void StopSignal::consume() const {
  signalfd_siginfo information{};
  (void)!::read(signals_.get(), &information, sizeof information);
}

}  // namespace remote
