// Runs a real program, to test it as a user runs it.
#ifndef TAVO_TESTS_SUPPORT_RUN_PROGRAM_H
#define TAVO_TESTS_SUPPORT_RUN_PROGRAM_H

#include <string>
#include <string_view>
#include <vector>

namespace tavo::test {

struct ProgramResult {
    int status;  // exit status, or 128 + n if signal n ended it
    std::string out;
    std::string err;
};

// Runs arguments[0] (searched on the PATH if it contains no slash) with `input` on its standard
// input and waits for it. `environment` contains NAME=VALUE settings that are added to the
// environment of the test. Throws if the program cannot be started.
ProgramResult RunProgram(const std::vector<std::string> &arguments, std::string_view input = {},
                         const std::vector<std::string> &environment = {});

// Adds settings to the environment that make a program load the shared object `path` before all
// others.
std::vector<std::string> Preloading(const std::string &path,
                                    std::vector<std::string> environment = {});

}  // namespace tavo::test

#endif
