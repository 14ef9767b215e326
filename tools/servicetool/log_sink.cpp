// The system log of this program: these functions replace those of libc, for the library's code in
// this program and for the shared libraries. With _FORTIFY_SOURCE, callers use the "chk" variants.
// The header of libc is not included, because it may define the functions inline.
#include <cstdarg>
#include <cstdio>

#include "input/library.h"

namespace {

// Long enough for the longest lines, which contain two paths.
constexpr std::size_t kLineSize = 16384;

void Print(const char *format, va_list arguments) {
    char line[kLineSize];
    if (std::vsnprintf(line, sizeof(line), format, arguments) >= 0) {
        tavo::tool::PrintLogLine(line);
    }
}

}  // namespace

#pragma GCC visibility push(default)
extern "C" {

void vsyslog(int /*priority*/, const char *format, va_list arguments) {
    Print(format, arguments);
}

void syslog(int /*priority*/, const char *format, ...) {
    va_list arguments;
    va_start(arguments, format);
    Print(format, arguments);
    va_end(arguments);
}

void __vsyslog_chk(int /*priority*/, int /*flag*/, const char *format, va_list arguments) {
    Print(format, arguments);
}

void __syslog_chk(int /*priority*/, int /*flag*/, const char *format, ...) {
    va_list arguments;
    va_start(arguments, format);
    Print(format, arguments);
    va_end(arguments);
}

}  // extern "C"
#pragma GCC visibility pop
