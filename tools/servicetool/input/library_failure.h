// Failures of the library due to the system, which refused memory, a file or a folder. They are not
// an answer to the query, and later results may be wrong.
#ifndef TAVO_SERVICETOOL_INPUT_LIBRARY_FAILURE_H
#define TAVO_SERVICETOOL_INPUT_LIBRARY_FAILURE_H

#include <string>

namespace tavo::tool {

// Clears the error state, so that an earlier failure is not attributed to the next call.
void ForgetFailure();

// The text for a system error among the library's error codes, such as "a file cannot be opened or
// used"; empty for other codes.
std::string SystemReason(unsigned int code);

// Call this after a failed call. Throws std::bad_alloc if it was out of memory, and
// std::runtime_error with `what` and the reason after any other system error.
void ThrowIfSystemFailed(const std::string &what);

}  // namespace tavo::tool

#endif
