#include "system/Process.hpp"

#include <fcntl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <csignal>
#include <fstream>

namespace system_tests {

Process::Process(const std::string &program, const std::vector<std::string> &arguments,
                 const std::string &outputPath)
    : outputPath_(outputPath) {
  std::vector<std::string> words = arguments;
  words.insert(words.begin(), program.starts_with("/") ? program : KEYFERRY_PROGRAMS "/" + program);
  std::vector<char *> pointers;
  for (std::string &word : words) {
    pointers.push_back(word.data());
  }
  pointers.push_back(nullptr);
  id_ = fork();
  if (id_ == 0) {
    const int output = open(outputPath.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_APPEND, 0600);
    dup2(open("/dev/null", O_RDONLY), STDIN_FILENO);
    dup2(output, STDOUT_FILENO);
    dup2(output, STDERR_FILENO);
    close_range(3, ~0U, 0);
    execv(pointers[0], pointers.data());
    _exit(127);
  }
  isRunning_ = id_ > 0;
}

Process::~Process() {
  end(SIGKILL);
}

std::string Process::output() const {
  std::ifstream file(outputPath_);
  return {std::istreambuf_iterator<char>(file), {}};
}

bool Process::hasSaid(const std::string &text) {
  const auto isThere = [&] { return output().find(text) != std::string::npos; };
  return eventually([&] { return isThere() || hasEnded(); }) && isThere();
}

bool Process::hasEnded() {
  if (isRunning_) {
    int status = 0;
    if (waitpid(id_, &status, WNOHANG) == id_) {
      isRunning_ = false;
      status_ = WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
    }
  }
  return !isRunning_;
}

int Process::waitForEnd() {
  return eventually([&] { return hasEnded(); }) ? status_ : -1;
}

int Process::end(int signal) {
  if (!hasEnded()) {
    kill(id_, signal);
  }
  return waitForEnd();
}

}  // namespace system_tests
