// The system log of this program: these functions replace those of libc, for the library's code in
// this program and for the shared libraries. With _FORTIFY_SOURCE, callers use the "chk" variants.
// The header of libc is not included, because it may define the functions inline.
#include <cstdarg>
#include <cstdio>

#include "input/library.h"

#pragma GCC visibility push(default)
extern "C" {

void vsyslog(int /*priority*/, const char *format, va_list arguments) {
    // Long enough for the longest lines, which contain two paths.
    char line[16384];
    if (std::vsnprintf(line, sizeof(line), format, arguments) >= 0) {
        tavo::tool::PrintLogLine(line);
    }
}

void syslog(int priority, const char *format, ...) {
    va_list arguments;
    va_start(arguments, format);
    vsyslog(priority, format, arguments);
    va_end(arguments);
}

void __vsyslog_chk(int priority, int /*flag*/, const char *format, va_list arguments) {
    vsyslog(priority, format, arguments);
}

void __syslog_chk(int priority, int /*flag*/, const char *format, ...) {
    va_list arguments;
    va_start(arguments, format);
    vsyslog(priority, format, arguments);
    va_end(arguments);
}

}  // extern "C"
#pragma GCC visibility pop
