// The lines that the library writes to the system log. servicetool reports the reasons of failures
// itself, so it shows these lines on standard error only to those who ask for them, and nothing
// else looks at them.
#ifndef TAVO_SERVICETOOL_INPUT_LIBRARY_LOG_H
#define TAVO_SERVICETOOL_INPUT_LIBRARY_LOG_H

#include <string_view>

namespace tavo::tool {

// Whether lines are shown from now on.
void ShowLibraryLog(bool show);

// Prints a line, escaped and after "log: ", where lines are shown. Lines may hold what files hold,
// so syslog(3) itself must not copy them to the terminal.
void PrintLogLine(std::string_view line) noexcept;

}  // namespace tavo::tool

#endif
