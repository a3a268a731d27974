#include <exception>

#include "remote/Console.hpp"
#include "remote/Program.hpp"

int main(int count, char **arguments) {
  try {
    return remote::runProgram(count, arguments);
  } catch (const std::exception &failure) {
    remote::complain(failure.what());
    return 1;
  }
}
