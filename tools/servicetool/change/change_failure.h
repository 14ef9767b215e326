// Why a change failed, as far as it can be found out: the library gives a code, logs lines and runs
// programs that write what they think.
#ifndef TAVO_SERVICETOOL_CHANGE_CHANGE_FAILURE_H
#define TAVO_SERVICETOOL_CHANGE_CHANGE_FAILURE_H

#include <string>
#include <vector>

#include "input/library_log.h"

namespace tavo::tool {

// What a call of the library came to.
struct Outcome {
    int result = -1;
    unsigned int code = 0;          // the library's error code
    std::vector<LoggedLine> lines;  // what was logged meanwhile
    std::string problem;            // why the library was not even called; else empty
};

// Why the file at `path` is not what it was to be.
std::string ReasonOf(const Outcome &outcome, const std::string &path);

// A line that the library logged of a program that failed, or that the program is missing.
std::string ReasonInLine(const std::string &line);

}  // namespace tavo::tool

#endif
