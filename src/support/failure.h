// How everything in the library fails: set the error code where one is named, write the one log
// line, return. Each macro gives -1, so that a failing step is reported and returned in one line.
//
// The log line is the appliance's diagnostic of record: support greps for these texts, so they are
// frozen, misspellings included. Source file and line come first and are added here.
#ifndef TAVO_SRC_SUPPORT_FAILURE_H
#define TAVO_SRC_SUPPORT_FAILURE_H

#include <syslog.h>

#include "tavocore.h"

namespace tavo {

constexpr unsigned int kErrorBadParameter = 0xD00;
constexpr unsigned int kErrorNoMemory = 0x200;
constexpr unsigned int kErrorBadSource = 0x600;
constexpr unsigned int kErrorNoFile = 0x700;
constexpr unsigned int kErrorCannotOpen = 0x900;
constexpr unsigned int kErrorBufferTooSmall = 0xBF00;
constexpr unsigned int kErrorAlreadyInstalled = 0xC000;
constexpr unsigned int kErrorRename = 0x2800;
constexpr unsigned int kErrorListDirectory = 0x2A00;
constexpr unsigned int kErrorCopy = 0x3B00;
constexpr unsigned int kErrorMakeDirectory = 0x3C00;
constexpr unsigned int kErrorFirewallServices = 0x9900;

// A function, not the value itself: the compiler would call an unused -1 a mistake.
constexpr int Failed() {
    return -1;
}

}  // namespace tavo

// Records an error code with this place in the source.
#define TAVO_SET_ERROR(nError) \
    (::TLIBCErrSetEx((nError), __FILE_NAME__, __LINE__), ::tavo::Failed())

// Writes a log line.
#define TAVO_LOG(szFormat, ...)                                                                \
    (::syslog(LOG_ERR, "%s:%d " szFormat, __FILE_NAME__, __LINE__ __VA_OPT__(, ) __VA_ARGS__), \
     ::tavo::Failed())

// Writes a log line that ends in the error state, whoever set it: "[0x0D00 source.cpp:47]".
#define TAVO_LOG_STATE(szFormat, ...)                                               \
    TAVO_LOG(szFormat "[0x%04X %s:%d]" __VA_OPT__(, ) __VA_ARGS__, ::TLIBCErrGet(), \
             ::TLIBCErrorGetFile(), ::TLIBCErrorGetLine())

// Both at once: records an error code, then writes a log line, that of the second with this error
// state behind it.
#define TAVO_FAIL(nError, szFormat, ...) \
    (TAVO_SET_ERROR(nError), TAVO_LOG(szFormat __VA_OPT__(, ) __VA_ARGS__))
#define TAVO_FAIL_STATE(nError, szFormat, ...) \
    (TAVO_SET_ERROR(nError), TAVO_LOG_STATE(szFormat __VA_OPT__(, ) __VA_ARGS__))

// Reports that a record for a service could not be allocated.
#define TAVO_FAIL_NO_MEMORY() \
    TAVO_FAIL_STATE(::tavo::kErrorNoMemory, "Failed to allocate for service, tavoerr=")

// Reports that memory ran out for what the text names.
#define TAVO_FAIL_ALLOC(szWhat)              \
    (TAVO_SET_ERROR(::tavo::kErrorNoMemory), \
     TAVO_LOG("Failed to alloc %s, Out of memory.[0x%04X]", (szWhat), ::TLIBCErrGet()))

#endif
