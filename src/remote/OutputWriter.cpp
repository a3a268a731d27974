#include "remote/OutputWriter.hpp"

#include <poll.h>
#include <sys/eventfd.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <climits>
#include <csignal>
#include <deque>
#include <mutex>
#include <string>

#include "base/Descriptor.hpp"
#include "base/Secret.hpp"

namespace remote {
namespace {

constexpr std::size_t kStreams = 2;

base::Descriptor makeEvent() {
  return base::Descriptor(::eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK));
}

}  // namespace

struct OutputWriter::State {
  struct Line {
    Stream stream;
    CleansedBytes text;
    std::size_t written = 0;
  };

  struct Progress {
    int descriptor = -1;
    std::size_t waitingBytes = 0;
    std::size_t dropped = 0;  // lines dropped behind the last waiting one
    bool isLost = false;      // a line was dropped or could not be written
  };

  State(int outputDescriptor, int errorDescriptor)
      : streams{{{outputDescriptor}, {errorDescriptor}}} {}

  // All of these need the lock.
  void add(Stream stream, ByteView text);
  void sayWhatWasDropped();
  [[nodiscard]] std::array<pollfd, kStreams + 1> whatToWaitFor() const;
  [[nodiscard]] Line *oldestFor(const std::array<pollfd, kStreams + 1> &ready);
  void advance(const Line &line, ssize_t count, int error);

  void serve();

  base::Descriptor changed = makeEvent();  // lines were added, or the writer is to end
  base::Descriptor idle = makeEvent();     // readable while no line waits
  std::mutex mutex;
  std::deque<Line> lines;
  std::array<Progress, kStreams> streams;
  bool isEnding = false;
};

void OutputWriter::State::add(Stream stream, ByteView text) {
  Progress &progress = streams.at(stream);
  // lines are dropped until the reader has caught up and has been told
  const bool isFull = progress.waitingBytes > 0 && progress.waitingBytes + text.size() > kMostBytes;
  if (progress.dropped > 0 || isFull) {
    ++progress.dropped;
    progress.isLost = true;
    return;
  }
  lines.push_back({stream, CleansedBytes(text.begin(), text.end())});
  progress.waitingBytes += text.size();
}

void OutputWriter::State::sayWhatWasDropped() {
  for (const Stream stream : {output, errors}) {
    Progress &progress = streams.at(stream);
    if (progress.dropped > 0 && progress.waitingBytes <= kMostBytes / 2) {
      const std::string text = "kfy-remote: " + std::to_string(progress.dropped) +
                               " lines dropped, since nobody read them\n";
      progress.dropped = 0;
      add(stream, base::viewOf(text));
    }
  }
}

std::array<pollfd, kStreams + 1> OutputWriter::State::whatToWaitFor() const {
  std::array<pollfd, kStreams + 1> waiting{};
  for (std::size_t stream = 0; stream < kStreams; ++stream) {
    const Progress &progress = streams.at(stream);
    waiting.at(stream) = {progress.waitingBytes > 0 ? progress.descriptor : -1, POLLOUT, 0};
  }
  waiting.back() = {changed.get(), POLLIN, 0};
  return waiting;
}

OutputWriter::State::Line *OutputWriter::State::oldestFor(
    const std::array<pollfd, kStreams + 1> &ready) {
  const auto found = std::ranges::find_if(
      lines, [&](const Line &line) { return ready.at(line.stream).revents != 0; });
  return found == lines.end() ? nullptr : &*found;
}

// Notes that `count` bytes of the line were written, or that writing failed for good.
void OutputWriter::State::advance(const Line &line, ssize_t count, int error) {
  Progress &progress = streams.at(line.stream);
  const Stream stream = line.stream;
  if (count < 0 && (error == EINTR || error == EAGAIN)) {
    return;
  }
  if (count < 0) {
    progress.isLost = true;
    progress.waitingBytes = 0;
    std::erase_if(lines, [&](const Line &other) { return other.stream == stream; });
    return;
  }
  progress.waitingBytes -= static_cast<std::size_t>(count);
  if (line.written == line.text.size()) {
    lines.erase(std::ranges::find_if(lines, [&](const Line &other) { return &other == &line; }));
  }
}

void OutputWriter::State::serve() {
  std::unique_lock lock(mutex);
  while (!isEnding || !lines.empty()) {
    auto waiting = whatToWaitFor();
    lock.unlock();
    (void)::poll(waiting.data(), waiting.size(), /*timeout=*/-1);
    eventfd_t count = 0;
    (void)::eventfd_read(changed.get(), &count);
    lock.lock();
    if (Line *line = oldestFor(waiting)) {
      const int descriptor = streams.at(line->stream).descriptor;
      const ByteView rest = ByteView(line->text).subspan(line->written);
      lock.unlock();  // only this thread removes lines, and a deque does not move the others
      const ssize_t written =
          ::write(descriptor, rest.data(), std::min<std::size_t>(rest.size(), PIPE_BUF));
      const int error = errno;
      lock.lock();
      line->written += written > 0 ? static_cast<std::size_t>(written) : 0;
      advance(*line, written, error);
    }
    sayWhatWasDropped();
    if (lines.empty()) {
      (void)::eventfd_write(idle.get(), 1);
    }
  }
}

OutputWriter::OutputWriter(int outputDescriptor, int errorDescriptor)
    : state_(std::make_shared<State>(outputDescriptor, errorDescriptor)) {
  (void)::eventfd_write(state_->idle.get(), 1);
  // signals go to the other threads
  sigset_t all;
  sigset_t before;
  sigfillset(&all);
  (void)::pthread_sigmask(SIG_SETMASK, &all, &before);
  thread_ = std::thread([state = state_] { state->serve(); });
  (void)::pthread_sigmask(SIG_SETMASK, &before, nullptr);
}

OutputWriter::~OutputWriter() {
  const bool isIdle =
      client::waitFor(state_->idle.get(), /*toWrite=*/false, client::WaitLimits::within(kLastWait));
  {
    const std::scoped_lock lock(state_->mutex);
    state_->isEnding = true;
    (void)::eventfd_write(state_->changed.get(), 1);
  }
  if (isIdle) {
    thread_.join();
  } else {
    thread_.detach();
  }
}

void OutputWriter::add(Stream stream, ByteView line) {
  const std::scoped_lock lock(state_->mutex);
  state_->add(stream, line);
  eventfd_t count = 0;
  (void)::eventfd_read(state_->idle.get(), &count);
  (void)::eventfd_write(state_->changed.get(), 1);
}

OutputWriter::Outcome OutputWriter::flush(const client::WaitLimits &limits) {
  const bool isIdle = client::waitFor(state_->idle.get(), /*toWrite=*/false, limits);
  const std::scoped_lock lock(state_->mutex);
  if (state_->streams.at(output).isLost) {
    return Outcome::lost;
  }
  return isIdle ? Outcome::written : Outcome::stuck;
}

}  // namespace remote
