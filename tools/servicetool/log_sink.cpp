// The system log of this program: the linker prefers these functions to those of libc, for the
// library's code in it and for the shared libraries. The forms with "chk" are what the others
// become under _FORTIFY_SOURCE. The header of libc, which declares all of them, is left out: it may
// define them inline.
#include <cstdarg>
#include <cstdio>

#include "input/library_log.h"

namespace {

// A line has two paths at most, and a few words.
constexpr std::size_t kLineSize = 16384;

void Print(const char *format, va_list arguments) {
    char line[kLineSize];
    if (std::vsnprintf(line, sizeof(line), format, arguments) >= 0) {
        tavo::tool::PrintLogLine(line);
    }
}

}  // namespace

extern "C" {

__attribute__((visibility("default"))) void vsyslog(int priority, const char *format,
                                                    va_list arguments);
__attribute__((visibility("default"))) void syslog(int priority, const char *format, ...);
__attribute__((visibility("default"))) void __vsyslog_chk(int priority, int flag,
                                                          const char *format, va_list arguments);
__attribute__((visibility("default"))) void __syslog_chk(int priority, int flag, const char *format,
                                                         ...);

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
