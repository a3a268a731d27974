#pragma once

#include <gtest/gtest.h>

namespace fakes {

// The status with which a child ends that runs `child`; the negative signal that has ended it.
template <typename Child>
int statusOfChild(Child &&child) {
  const pid_t identifier = ::fork();
  if (identifier == 0) {
    ::_exit(child());
  }
  int status = -1;
  EXPECT_EQ(::waitpid(identifier, &status, 0), identifier);
  return WIFEXITED(status) ? WEXITSTATUS(status) : -WTERMSIG(status);
}

}  // namespace fakes
