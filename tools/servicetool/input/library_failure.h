// Failures of the library that say nothing about what it was asked: the system refused memory, a
// file or a folder. An answer that is worked out past one of these may be wrong.
#ifndef TAVO_SERVICETOOL_INPUT_LIBRARY_FAILURE_H
#define TAVO_SERVICETOOL_INPUT_LIBRARY_FAILURE_H

#include <string>

namespace tavo::tool {

// Forgets an earlier failure, which would be taken for one of the next call.
void ForgetFailure();

// The system's part in an error code of the library, such as "a file cannot be opened or used";
// empty for a code that has none.
std::string SystemReason(unsigned int code);

// For a call that failed. Throws std::bad_alloc when its code says that memory ran out, and
// std::runtime_error with `what` and the reason when it says that the system refused something
// else.
void ThrowIfSystemFailed(const std::string &what);

}  // namespace tavo::tool

#endif
