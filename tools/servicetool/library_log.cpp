#include "library_log.h"

#include <fcntl.h>
#include <sys/mman.h>
#include <syslog.h>
#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <string>
#include <string_view>
#include <utility>

#include "text.h"

namespace tavo {
namespace {

constexpr std::string_view kPrefix = "log: ";
constexpr std::string_view kIdent = "servicetool: ";  // what LOG_PERROR puts in front of a line

// What the library never writes, so that outside of a LibraryLog it is silent.
constexpr int kQuiet = LOG_MASK(LOG_EMERG);

bool shown = false;

std::string ContentsOf(int descriptor) {
    std::string contents;
    char buffer[4096];
    off_t offset = 0;
    for (ssize_t got; (got = pread(descriptor, buffer, sizeof(buffer), offset)) > 0;
         offset += got) {
        contents.append(buffer, static_cast<std::size_t>(got));
    }
    return contents;
}

std::string_view WithoutIdent(std::string_view line) {
    return line.starts_with(kIdent) ? line.substr(kIdent.size()) : line;
}

std::vector<std::string> LinesOf(std::string_view text) {
    std::vector<std::string> lines;
    while (!text.empty()) {
        const std::string_view line = text.substr(0, text.find('\n'));
        lines.emplace_back(WithoutIdent(line));
        text.remove_prefix(std::min(line.size() + 1, text.size()));
    }
    return lines;
}

void Print(const std::vector<std::string> &lines) {
    for (const std::string &line : lines) {
        const std::string shown_line = std::string(kPrefix) + Escaped(line) + '\n';
        std::fwrite(shown_line.data(), 1, shown_line.size(), stderr);
    }
}

// "SOURCE:LINE MESSAGE[0xCODE SOURCE:LINE]" without what only a developer wants to know. What a
// program says is as it was.
std::string Message(const std::string &line) {
    constexpr std::string_view kSource = ".cpp:";
    const std::size_t source = line.find(kSource);
    const std::size_t blank = line.find(' ');
    if (source == std::string::npos || blank < source + kSource.size()) {
        return line;
    }
    const std::size_t state = line.rfind("[0x");
    const bool has_state = state != std::string::npos && line.ends_with(']');
    return line.substr(blank + 1, has_state ? state - blank - 1 : std::string::npos);
}

}  // namespace

void LibraryLog::Start(bool verbose) {
    shown = verbose;
    openlog("servicetool", LOG_PERROR, LOG_USER);
    setlogmask(kQuiet);
}

LibraryLog::LibraryLog(bool change) {
    if (!shown && !change) {
        return;
    }
    caught_ = memfd_create("library-log", MFD_CLOEXEC);
    if (caught_ >= 0) {
        Catch(STDERR_FILENO, stderr_);
        if (change) {
            Catch(STDOUT_FILENO, stdout_);
        }
        setlogmask(LOG_UPTO(LOG_DEBUG));
    }
}

std::vector<std::string> LibraryLog::End() {
    if (caught_ < 0) {
        return {};
    }
    setlogmask(kQuiet);
    Release(STDERR_FILENO, stderr_);
    Release(STDOUT_FILENO, stdout_);
    const std::string caught = ContentsOf(caught_);
    close(std::exchange(caught_, -1));
    std::vector<std::string> lines = LinesOf(caught);
    if (shown) {
        Print(lines);
    }
    std::transform(lines.begin(), lines.end(), lines.begin(), Message);
    return lines;
}

// What was printed so far stands before what is caught.
void LibraryLog::Catch(int descriptor, int &real) {
    std::fflush(descriptor == STDERR_FILENO ? stderr : stdout);
    real = fcntl(descriptor, F_DUPFD_CLOEXEC, 0);
    if (real >= 0) {
        dup2(caught_, descriptor);
    }
}

void LibraryLog::Release(int descriptor, int &real) {
    if (real >= 0) {
        dup2(real, descriptor);
        close(std::exchange(real, -1));
    }
}

}  // namespace tavo
