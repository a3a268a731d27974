#pragma once

#include <cstddef>
#include <span>
#include <string>

#include "base/Descriptor.hpp"
#include "base/Root.hpp"

namespace platform_linux {

// Where the machine's log may be, in the order in which it is looked for. An empty path is left
// out.
struct LogPaths {
  std::string journalSocket = base::rooted("/run/systemd/journal/socket");
  std::string syslogSocket = base::rooted("/dev/log");
  // Only a sandboxed root, in which nobody listens, gets a file.
  std::string file = base::root().empty() ? "" : base::rooted("/var/log/unified.log");
};

// Hands entries to the machine's log: datagrams in the journal's native protocol (systemd.io,
// "Native Journal Protocol"), else in the form that syslog(3) sends (RFC 3164), else lines at the
// end of a file. Never blocks. A log that goes away and comes back is found again, by the next send
// at the latest. For one thread; needs no queue, so that a program without one can use it as well.
class EntrySink {
 public:
  // `processName` is the name under which entries appear.
  explicit EntrySink(const std::string &processName, LogPaths paths = {});

  struct Sent {
    std::size_t gone = 0;  // so many of the first entries need not be kept any longer,
    std::size_t lost = 0;  // of which so many were refused for their size
  };

  // Hands over as many of the entries, from the first on, as are taken now. An entry holds no line
  // feed.
  [[nodiscard]] Sent send(std::span<const std::string> entries);

  // The socket to wait for when not all were taken; negative if there is none.
  [[nodiscard]] int descriptor() const { return socket_.get(); }

 private:
  enum class Form { journal, syslog };

  void connect();
  [[nodiscard]] bool connectTo(const std::string &path, Form form);
  [[nodiscard]] bool sendDatagrams(std::span<const std::string> entries, Sent &sent);
  void appendLines(std::span<const std::string> entries, Sent &sent) const;
  [[nodiscard]] std::string opening() const;

  std::string processName_;
  LogPaths paths_;
  base::Descriptor socket_;
  Form form_ = Form::journal;  // what is spoken on the socket
};

}  // namespace platform_linux
