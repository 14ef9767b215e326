// Runs servicetool the way its users do.
#ifndef TAVO_TESTS_SERVICETOOL_RUN_H
#define TAVO_TESTS_SERVICETOOL_RUN_H

#include <string>
#include <string_view>
#include <vector>

#include "run_program.h"
#include "temporary_folder.h"

namespace tavo::test {

ProgramResult ServiceTool(std::vector<std::string> arguments, std::string_view input = {});

// The same with a library in front, which stands in for something of the system or of the
// libraries.
ProgramResult ServiceToolBehind(const std::string &library, std::vector<std::string> arguments);

// A copy of servicetool and of the libraries of its build in a folder that every user can enter.
// The build itself may be below a folder that is closed to all but its owner.
class ServiceToolForEveryone {
  public:
    ServiceToolForEveryone();

    // The words that start the copy, for the end of a command such as setpriv.
    std::vector<std::string> Command() const;

  private:
    TemporaryFolder folder_;
};

// What servicetool shows on a terminal of that size, standard output and error together.
std::string ServiceToolOnTerminal(std::vector<std::string> arguments, unsigned short columns = 80,
                                  const std::vector<std::string> &environment = {"TERM=xterm"},
                                  unsigned short lines = 25);

// A service file of one good service in lines 1 to 4, with `more` from line 5 on.
std::string GoodServiceAnd(const std::string &more);

}  // namespace tavo::test

#endif
