// Reporting of failures in the library: set the error code, if any, write one log line, return.
// Each macro yields -1, so that a failing step is reported and returned in one line.
//
// Support staff search logs for these texts, so they are frozen, misspellings included. Each line
// starts with the source file and line, which are added here. They name the operation that failed:
// a template or helper that works for several operations takes the place of its caller (TAVO_HERE)
// and reports the failure with the _AT form of the macro.
#ifndef TAVO_SRC_SUPPORT_FAILURE_H
#define TAVO_SRC_SUPPORT_FAILURE_H

#include <syslog.h>

#include <cstdarg>
#include <cstddef>
#include <cstdio>

#include "base/descriptor.h"
#include "support/text.h"
#include "tavocore.h"

namespace tavo {

// A position in the source; the file name has no directory.
struct Place {
    const char *file;
    int line;
};

// The format of a log line, built from pieces. The longest format of the library has 150 characters
// and the file name in the error state at most 255, so the buffer is always large enough; a longer
// format would be truncated.
class LineFormat {
  public:
    explicit LineFormat(const Place &place) { AddPlace(place); }

    void Add(const char *format) {
        for (; *format != '\0' && length_ < kSize - 1; ++format) {
            text_[length_++] = *format;
        }
        text_[length_] = '\0';
    }

    void AddPlace(const Place &place) {
        AddLiteral(place.file);
        char line[16];
        std::snprintf(line, sizeof(line), ":%d ", place.line);
        Add(line);
    }

    // Adds the error state: "[0x0D00 source.cpp:47]".
    void AddErrorState() {
        char number[16];
        std::snprintf(number, sizeof(number), "[0x%04X ", TLIBCErrGet());
        Add(number);
        const char *file = TLIBCErrorGetFile();
        AddLiteral(file != nullptr ? file : "(null)");
        std::snprintf(number, sizeof(number), ":%d]", TLIBCErrorGetLine());
        Add(number);
    }

    const char *Get() const { return text_; }

  private:
    static constexpr std::size_t kSize = 2048;

    // Appends a text without interpreting "%". A caller of the core library may have set the error
    // state with any text as the file name.
    void AddLiteral(const char *text) {
        for (; *text != '\0'; ++text) {
            const char piece[] = {*text, *text == '%' ? '%' : '\0', '\0'};
            Add(piece);
        }
    }

    char text_[kSize];
    std::size_t length_ = 0;
};

enum class LineEnd { kText, kErrorState };

// Writes a log line, which may end in the error state, whichever call set it; errno is unchanged. A
// function, not a macro, so that the compiler checks the format.
__attribute__((format(printf, 3, 4))) inline int LogAt(const Place &place, LineEnd end,
                                                       const char *format, ...) {
    const UnchangedErrno unchanged;
    LineFormat line(place);
    line.Add(format);
    if (end == LineEnd::kErrorState) {
        line.AddErrorState();
    }
    va_list arguments;
    va_start(arguments, format);
    vsyslog(LOG_ERR, line.Get(), arguments);
    va_end(arguments);
    return -1;
}

// The error state at the time of construction, to be restored after calls that change it.
class ErrorState {
  public:
    ErrorState() : code_(TLIBCErrGet()), line_(TLIBCErrorGetLine()) {
        CopyText(file_, TLIBCErrorGetFile());
    }

    void Restore() const { TLIBCErrSetEx(code_, file_, line_); }

  private:
    unsigned int code_;
    int line_;
    char file_[256];
};

// Records an error code with a position in the source.
inline int SetErrorAt(const Place &place, unsigned int code) {
    TLIBCErrSetEx(code, place.file, place.line);
    return -1;
}

}  // namespace tavo

// The current position in the source.
#define TAVO_HERE (::tavo::Place{__FILE_NAME__, __LINE__})

// Each of these takes a format and its arguments after the place and the error code. The arguments
// are evaluated after the error code is recorded, so they may read it.

// Records an error code.
#define TAVO_SET_ERROR_AT(place, code) ::tavo::SetErrorAt((place), (code))
#define TAVO_SET_ERROR(code) TAVO_SET_ERROR_AT(TAVO_HERE, code)

// Writes a log line; with _STATE, one that ends in the error state: "[0x0D00 source.cpp:47]".
#define TAVO_LOG_AT(place, ...) ::tavo::LogAt((place), ::tavo::LineEnd::kText, __VA_ARGS__)
#define TAVO_LOG(...) TAVO_LOG_AT(TAVO_HERE, __VA_ARGS__)
#define TAVO_LOG_STATE_AT(place, ...) \
    ::tavo::LogAt((place), ::tavo::LineEnd::kErrorState, __VA_ARGS__)
#define TAVO_LOG_STATE(...) TAVO_LOG_STATE_AT(TAVO_HERE, __VA_ARGS__)

// Both: records an error code, then writes a log line.
#define TAVO_FAIL_AT(place, code, ...) \
    (TAVO_SET_ERROR_AT(place, code), TAVO_LOG_AT(place, __VA_ARGS__))
#define TAVO_FAIL(code, ...) TAVO_FAIL_AT(TAVO_HERE, code, __VA_ARGS__)
#define TAVO_FAIL_STATE_AT(place, code, ...) \
    (TAVO_SET_ERROR_AT(place, code), TAVO_LOG_STATE_AT(place, __VA_ARGS__))
#define TAVO_FAIL_STATE(code, ...) TAVO_FAIL_STATE_AT(TAVO_HERE, code, __VA_ARGS__)

// Reports that a record for a service could not be allocated.
#define TAVO_FAIL_NO_MEMORY() \
    TAVO_FAIL_STATE(TLIBC_ERR_NO_MEMORY, "Failed to allocate for service, tavoerr=")

// Reports that memory ran out while allocating `what`.
#define TAVO_FAIL_ALLOC_AT(place, what)                                                            \
    TAVO_FAIL_AT(place, TLIBC_ERR_NO_MEMORY, "Failed to alloc %s, Out of memory.[0x%04X]", (what), \
                 ::TLIBCErrGet())
#define TAVO_FAIL_ALLOC(what) TAVO_FAIL_ALLOC_AT(TAVO_HERE, what)

#endif
