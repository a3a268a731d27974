#include <exception>
#include <iostream>

#include "ctl/CommandLine.hpp"
#include "ctl/ScAuth.hpp"

int main(int argc, char **argv) {
  try {
    ctl::Invocation invocation = ctl::sessionOnStandardStreams();
    return ctl::runScAuth(ctl::argumentsOf(argc, argv), invocation);
  } catch (const std::exception &error) {
    std::cerr << "sc_auth: error: " << error.what() << '\n';
    return ctl::exitFailed;
  }
}
