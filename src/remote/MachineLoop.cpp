#include "remote/MachineLoop.hpp"

#include <poll.h>

#include <algorithm>
#include <climits>
#include <memory>
#include <thread>
#include <vector>

#include "remote/Machine.hpp"

namespace remote {
namespace {

// Keys in files keep a processor busy each.
constexpr std::size_t kFewestKeyThreads = 2;
constexpr std::size_t kMostKeyThreads = 16;
constexpr std::chrono::seconds kWaitForAttempts(1);

using Machines = std::vector<std::shared_ptr<Machine>>;

// Positions in the list of polled descriptors.
enum Place : std::size_t { kSignal, kExecutor, kTerminal, kFirstMachine };

int waitTime(const Machines &machines) {
  auto due = client::Deadline::max();
  for (const auto &machine : machines) {
    if (machine->hasMore()) {
      return 0;
    }
    due = std::min(due, machine->dueAt());
  }
  const auto now = std::chrono::steady_clock::now();
  if (due <= now) {
    return 0;
  }
  const auto left = std::chrono::ceil<std::chrono::milliseconds>(due - now).count();
  return due == client::Deadline::max() ? -1 : static_cast<int>(std::min<long>(left, INT_MAX));
}

short eventsFor(bool wantsWrite) {
  return static_cast<short>(wantsWrite ? POLLIN | POLLOUT : POLLIN);
}

std::vector<pollfd> waitForEvents(const Machines &machines, const StopSignal &stop,
                                  const LoopExecutor &executor, const Consent &consent) {
  std::vector<pollfd> events{{stop.descriptor(), POLLIN, 0},
                             {executor.descriptor(), POLLIN, 0},
                             {consent.descriptor(), eventsFor(consent.wantsWrite()), 0}};
  for (const auto &machine : machines) {
    events.push_back({machine->descriptor(), eventsFor(machine->wantsWrite()), 0});
  }
  if (::poll(events.data(), events.size(), waitTime(machines)) < 0) {
    for (pollfd &event : events) {
      event.revents = 0;  // interrupted: no event is known
    }
  }
  return events;
}

void takeTurns(const Machines &machines) {
  for (const auto &machine : machines) {
    machine->turn();
  }
}

bool allFinished(const Machines &machines) {
  return std::ranges::all_of(machines, [](const auto &machine) { return machine->isFinished(); });
}

// True if a signal ended it.
bool runLoop(const Machines &machines, const StopSignal &stop, LoopExecutor &executor,
             Consent &consent) {
  bool isLeaving = false;
  takeTurns(machines);
  while (!allFinished(machines)) {
    const std::vector<pollfd> events = waitForEvents(machines, stop, executor, consent);
    if (events[kSignal].revents != 0) {
      stop.consume();
      if (isLeaving) {
        return true;
      }
      isLeaving = true;
      std::ranges::for_each(machines, [](const auto &machine) { machine->leave(); });
    }
    if (events[kExecutor].revents != 0) {
      executor.runAll();
    }
    if (events[kTerminal].revents != 0) {
      consent.readAnswer();
    }
    takeTurns(machines);
  }
  return isLeaving;
}

}  // namespace

LoopEnd serveMachines(const ConnectCommand &command, const KnownHosts &knownHosts,
                      const KeyRing &keys, const crypto::Identity &authentication,
                      Terminal &terminal, Console &console, const StopSignal &stop) {
  const Bytes hash = authentication.key.publicKey().hash().value_or(Bytes());
  const auto executor = std::make_shared<LoopExecutor>();
  Consent consent(terminal);
  ConnectionAttempts attempts(executor);
  WorkPool pool(std::clamp<std::size_t>(std::thread::hardware_concurrency(), kFewestKeyThreads,
                                        kMostKeyThreads));
  const Services services{keys,
                          authentication,
                          hash,
                          knownHosts,
                          consent,
                          console,
                          command.withoutConsent,
                          pool,
                          executor,
                          attempts,
                          command.reinsertion,
                          command.isSetup,
                          command.machines.size() == 1};
  Machines machines;
  for (const Address &address : command.machines) {
    machines.push_back(std::make_shared<Machine>(address, command.fingerprint, services));
  }
  LoopEnd end;
  end.bySignal = runLoop(machines, stop, *executor, consent);
  end.isSetUp = command.isSetup && machines.front()->hasServed();
  machines.clear();
  end.mayClearUp = attempts.finish(std::chrono::steady_clock::now() + kWaitForAttempts);
  return end;
}

}  // namespace remote
