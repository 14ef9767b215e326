// Runs servicetool as its users do.
#ifndef TAVO_TESTS_SERVICETOOL_RUN_H
#define TAVO_TESTS_SERVICETOOL_RUN_H

#include <string>
#include <string_view>
#include <vector>

#include "run_program.h"
#include "temporary_folder.h"

namespace tavo::test {

ProgramResult ServiceTool(std::vector<std::string> arguments, std::string_view input = {});

// The same with a preloaded library that replaces functions of the system or of the libraries.
ProgramResult ServiceToolPreloading(const std::string &library, std::vector<std::string> arguments);

// A copy of servicetool and its libraries in a folder that every user can enter. The build itself
// may be in a folder that only its owner can enter.
class ServiceToolForEveryone {
  public:
    ServiceToolForEveryone();

    // The command that starts the copy, to be appended to a command such as setpriv.
    std::vector<std::string> Command() const;

  private:
    TemporaryFolder folder_;
};

// The output of servicetool on a terminal of that size, standard output and standard error
// together.
std::string ServiceToolOnTerminal(std::vector<std::string> arguments, unsigned short columns = 80,
                                  const std::vector<std::string> &environment = {"TERM=xterm"},
                                  unsigned short lines = 25);

// A service file with one valid service in lines 1 to 4, and `more` from line 5.
std::string GoodServiceAnd(const std::string &more);

}  // namespace tavo::test

#endif
