#include <exception>

#include "remote/Console.hpp"
#include "remote/Program.hpp"

int main(int count, char **arguments) {
  remote::prepareProcess();
  remote::Console console;
  try {
    return remote::runProgram(count, arguments, console);
  } catch (const std::exception &failure) {
    console.complain(failure.what());
    return 1;
  }
}
