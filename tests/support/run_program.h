// Runs a real program, to test it the way a user meets it.
#ifndef TAVO_TESTS_SUPPORT_RUN_PROGRAM_H
#define TAVO_TESTS_SUPPORT_RUN_PROGRAM_H

#include <string>
#include <string_view>
#include <vector>

namespace tavo::test {

struct ProgramResult {
    int status;  // exit status, or 128 + n when signal n ended it
    std::string out;
    std::string err;
};

// Runs arguments[0] (looked up on the PATH when it has no slash) with `input` on its standard input
// and waits for it. `environment` holds NAME=VALUE settings on top of the test's own environment.
// Throws where the program cannot be started.
ProgramResult RunProgram(const std::vector<std::string> &arguments, std::string_view input = {},
                         const std::vector<std::string> &environment = {});

// Adds to the environment what makes a program load the shared object `path` before all others.
std::vector<std::string> Preloading(const std::string &path,
                                    std::vector<std::string> environment = {});

}  // namespace tavo::test

#endif
