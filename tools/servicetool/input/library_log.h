// The lines that the library writes to the system log. servicetool reports the reasons for failures
// itself, so it prints these lines to standard error only on request. They have no other use.
#ifndef TAVO_SERVICETOOL_INPUT_LIBRARY_LOG_H
#define TAVO_SERVICETOOL_INPUT_LIBRARY_LOG_H

#include <string_view>

namespace tavo::tool {

// Sets whether lines are printed from now on.
void ShowLibraryLog(bool show);

// Prints a line, escaped and after "log: ", if printing is on. Lines may contain text from files,
// so syslog(3) must not copy them to the terminal unescaped.
void PrintLogLine(std::string_view line) noexcept;

}  // namespace tavo::tool

#endif
