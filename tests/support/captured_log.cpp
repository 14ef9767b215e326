#include "captured_log.h"

#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <mutex>

#include "patterns.h"

namespace {

// LOG_ERR of syslog(3). Its header is not included because it may define the functions below
// inline.
constexpr int kLogError = 3;

// Lines are caught while allocations fail, so they are stored in static memory: for each line its
// priority (one byte) and its text with the terminator.
char g_caught[1 << 20];
std::size_t g_used = 0;
bool g_catching = false;
std::mutex g_mutex;

void Catch(int priority, const char *format, va_list args) {
    const std::lock_guard lock(g_mutex);
    if (!g_catching) {
        return;
    }
    const std::size_t room = sizeof(g_caught) - g_used - 1;
    const int length = std::vsnprintf(g_caught + g_used + 1, room, format, args);
    if (length < 0 || static_cast<std::size_t>(length) >= room) {
        std::fputs("CapturedLog is full\n", stderr);
        std::abort();
    }
    g_caught[g_used] = static_cast<char>(priority);
    g_used += static_cast<std::size_t>(length) + 2;
}

}  // namespace

// syslog and vsyslog, and the functions that _FORTIFY_SOURCE replaces them with.
extern "C" {

#define TAVO_INTERPOSED __attribute__((visibility("default")))

TAVO_INTERPOSED void syslog(int priority, const char *format, ...);
void syslog(int priority, const char *format, ...) {
    va_list args;
    va_start(args, format);
    Catch(priority, format, args);
    va_end(args);
}

TAVO_INTERPOSED void vsyslog(int priority, const char *format, va_list args);
void vsyslog(int priority, const char *format, va_list args) {
    Catch(priority, format, args);
}

TAVO_INTERPOSED void __syslog_chk(int priority, int /*flag*/, const char *format, ...);
void __syslog_chk(int priority, int /*flag*/, const char *format, ...) {
    va_list args;
    va_start(args, format);
    Catch(priority, format, args);
    va_end(args);
}

TAVO_INTERPOSED void __vsyslog_chk(int priority, int /*flag*/, const char *format, va_list args);
void __vsyslog_chk(int priority, int /*flag*/, const char *format, va_list args) {
    Catch(priority, format, args);
}

}  // extern "C"

namespace tavo::test {

CapturedLog::CapturedLog() {
    g_used = 0;
    g_catching = true;
}

CapturedLog::~CapturedLog() {
    g_catching = false;
}

std::vector<CapturedLog::Line> CapturedLog::Lines() const {
    std::vector<Line> lines;
    for (std::size_t i = 0; i < g_used;) {
        lines.push_back({g_caught[i], g_caught + i + 1});
        i += lines.back().text.size() + 2;
    }
    return lines;
}

std::vector<std::string> CapturedLog::Messages() const {
    constexpr char kPrefix[] = "^[a-z0-9_]+\\.(cpp|h):[1-9][0-9]* ";
    constexpr char kState[] = "(\\[0x[0-9A-F]{4,} [a-z0-9_]*(\\.cpp)?:)[0-9]+\\]$";
    std::vector<std::string> messages;
    for (const Line &line : Lines()) {
        if (line.priority != kLogError) {
            messages.push_back("not LOG_ERR: " + line.text);
        } else if (!HasMatch(line.text, kPrefix)) {
            messages.push_back("no SOURCE:LINE prefix: " + line.text);
        } else {
            messages.push_back(
                ReplaceMatches(ReplaceMatches(line.text, kPrefix, ""), kState, "$1N]"));
        }
    }
    return messages;
}

void CapturedLog::Clear() {
    g_used = 0;
}

}  // namespace tavo::test
