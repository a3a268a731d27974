#include "linux/log/EntrySink.hpp"

#include <fcntl.h>
#include <sys/socket.h>
#include <sys/uio.h>
#include <sys/un.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <ctime>
#include <utility>

#include "base/Files.hpp"

namespace platform_linux {
namespace {

constexpr int kNotice = 5;                // priority "notice", RFC 3164 section 4.1.1
constexpr int kDaemonFacility = 3;        // facility "system daemons", same place
constexpr int kSendBuffer = 1024 * 1024;  // a burst of a few thousand entries
constexpr std::size_t kBatch = 64;        // datagrams per system call

// Not strftime: a program that this is loaded into may have set a locale, and these names are
// English.
std::string syslogTime() {
  static constexpr const char *kMonths[] = {"Jan", "Feb", "Mar", "Apr", "May", "Jun",
                                            "Jul", "Aug", "Sep", "Oct", "Nov", "Dec"};
  const std::time_t now = std::time(nullptr);
  std::tm parts{};
  ::localtime_r(&now, &parts);
  std::array<char, 32> text{};
  std::snprintf(text.data(), text.size(), "%s %2d %02d:%02d:%02d", kMonths[parts.tm_mon],
                parts.tm_mday, parts.tm_hour, parts.tm_min, parts.tm_sec);
  return text.data();
}

iovec pieceOf(const std::string &text, std::size_t length) {
  // sendmmsg only reads, but its structure is shared with calls that write
  return {const_cast<char *>(text.data()), length};
}

}  // namespace

EntrySink::EntrySink(const std::string &processName, LogPaths paths)
    : processName_(processName), paths_(std::move(paths)) {
  // an executable's name may hold anything, and a line feed would begin a field of its own
  std::ranges::replace(processName_, '\n', '?');
}

EntrySink::Sent EntrySink::send(std::span<const std::string> entries) {
  Sent sent;
  // The second round is for a log that has been restarted, or for the one that replaces it.
  for (int round = 0; round < 2 && sent.gone < entries.size(); ++round) {
    connect();
    if (socket_.get() < 0) {
      appendLines(entries, sent);
      break;
    }
    if (sendDatagrams(entries, sent)) {
      break;
    }
    socket_.close();
  }
  return sent;
}

// A replacement is left as soon as the journal is there.
void EntrySink::connect() {
  const bool isConnected = socket_.get() >= 0;
  if ((isConnected && form_ == Form::journal) || connectTo(paths_.journalSocket, Form::journal) ||
      isConnected) {
    return;
  }
  static_cast<void>(connectTo(paths_.syslogSocket, Form::syslog));
}

bool EntrySink::connectTo(const std::string &path, Form form) {
  sockaddr_un address{};
  address.sun_family = AF_UNIX;
  if (path.empty() || path.size() >= sizeof(address.sun_path)) {
    return false;
  }
  std::memcpy(address.sun_path, path.data(), path.size());
  base::Descriptor socket(::socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0));
  if (socket.get() < 0 ||
      ::connect(socket.get(), reinterpret_cast<const sockaddr *>(&address), sizeof(address)) != 0) {
    return false;
  }
  // as large as permitted: the first call needs root, the second does not
  if (::setsockopt(socket.get(), SOL_SOCKET, SO_SNDBUFFORCE, &kSendBuffer, sizeof(kSendBuffer)) !=
      0) {
    ::setsockopt(socket.get(), SOL_SOCKET, SO_SNDBUF, &kSendBuffer, sizeof(kSendBuffer));
  }
  socket_ = std::move(socket);
  form_ = form;
  return true;
}

// What stands before an entry's text in its datagram.
std::string EntrySink::opening() const {
  const std::string process = std::to_string(::getpid());
  switch (form_) {
    case Form::journal:
      return "PRIORITY=" + std::to_string(kNotice) + "\nSYSLOG_IDENTIFIER=" + processName_ +
             "\nSYSLOG_PID=" + process + "\nMESSAGE=";
    case Form::syslog:
      return "<" + std::to_string(kDaemonFacility * 8 + kNotice) + ">" + syslogTime() + " " +
             processName_ + "[" + process + "]: ";
  }
  return {};
}

// False if the other end has gone. Otherwise all were sent, or the socket is full.
bool EntrySink::sendDatagrams(std::span<const std::string> entries, Sent &sent) {
  const std::string before = opening();
  const std::string after = "\n";
  std::array<std::array<iovec, 3>, kBatch> pieces;
  std::array<mmsghdr, kBatch> datagrams;
  while (sent.gone < entries.size()) {
    const auto batch = entries.subspan(sent.gone, std::min(kBatch, entries.size() - sent.gone));
    for (std::size_t index = 0; index < batch.size(); ++index) {
      pieces[index] = {pieceOf(before, before.size()), pieceOf(batch[index], batch[index].size()),
                       pieceOf(after, form_ == Form::journal ? after.size() : 0)};
      datagrams[index] = {};
      datagrams[index].msg_hdr.msg_iov = pieces[index].data();
      datagrams[index].msg_hdr.msg_iovlen = pieces[index].size();
    }
    const int count = ::sendmmsg(socket_.get(), datagrams.data(),
                                 static_cast<unsigned>(batch.size()), MSG_DONTWAIT | MSG_NOSIGNAL);
    if (count >= 0) {
      sent.gone += static_cast<std::size_t>(count);
    } else if (errno == EMSGSIZE) {
      ++sent.gone;
      ++sent.lost;
    } else if (errno != EINTR) {
      return errno == EAGAIN || errno == ENOBUFS;
    }
  }
  return true;
}

void EntrySink::appendLines(std::span<const std::string> entries, Sent &sent) const {
  if (paths_.file.empty()) {
    return;
  }
  constexpr int kFlags = O_WRONLY | O_APPEND | O_CREAT | O_CLOEXEC | O_NOFOLLOW | O_NONBLOCK;
  base::Descriptor file(::open(paths_.file.c_str(), kFlags, 0640));
  if (file.get() < 0 && errno == ENOENT &&
      base::makeFolders(paths_.file.substr(0, paths_.file.rfind('/')), 0755)) {
    file = base::Descriptor(::open(paths_.file.c_str(), kFlags, 0640));
  }
  while (file.get() >= 0 && sent.gone < entries.size()) {
    const std::string line = entries[sent.gone] + "\n";
    if (::write(file.get(), line.data(), line.size()) != static_cast<ssize_t>(line.size())) {
      return;
    }
    ++sent.gone;
  }
}

}  // namespace platform_linux
