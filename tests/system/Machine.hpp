#pragma once

#include "system/Peer.hpp"

namespace system_tests {

// What a program has done.
struct Outcome {
  int status;
  std::string output;
};

// A machine with an empty root and a network of its own, on which the real programs run.
class Machine : public testing::Test {
 public:
  Machine();
  ~Machine() override;

  // A path of the system, where it lies on this machine.
  [[nodiscard]] static std::string at(const std::string &path);
  static void write(const std::string &path, const std::string &content, unsigned mode = 0644);
  [[nodiscard]] static std::string read(const std::string &path);
  [[nodiscard]] static bool isMarkerThere();
  // Puts a disk of its own under what a folder holds. Skips the test where that is not possible.
  void mountDisk(const std::string &folder, const char *options);

  // Runs a program to its end.
  Outcome run(const std::string &program, const std::vector<std::string> &arguments);
  // Runs a program that has to succeed and returns what it printed.
  std::string succeed(const std::string &program, const std::vector<std::string> &arguments);
  // Starts a program.
  std::unique_ptr<Process> start(const std::string &program,
                                 const std::vector<std::string> &arguments);

  // Pairs this key's hash with a user.
  void pair(const std::string &hash);
  // Starts the daemon and waits until it listens.
  void startDaemon();
  // What of the unified log, from its beginning, holds the text.
  [[nodiscard]] bool hasLogged(const std::string &text) const;

  std::unique_ptr<Process> daemon;

 private:
  int started_ = 0;
  std::string disk_;
};

// A machine whose daemon has a TLS identity and whose user ann is paired with rsaIdentity().
class PairedMachine : public Machine {
 public:
  PairedMachine();
};

}  // namespace system_tests
