#include "input/library_log.h"

#include <fcntl.h>
#include <sys/mman.h>
#include <syslog.h>
#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <string>
#include <string_view>
#include <utility>

#include "output/text.h"

namespace tavo::tool {
namespace {

constexpr std::string_view kPrefix = "log: ";

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

// What LOG_PERROR and LOG_PID put in front of a line of our own process. Programs that the library
// runs may print anything but that.
const std::string &Ident() {
    static const std::string ident = "servicetool[" + std::to_string(getpid()) + "]: ";
    return ident;
}

// A program may end without a newline, and the library's next line then stands behind its last.
void AddLine(std::vector<LoggedLine> &lines, std::string_view line) {
    const std::size_t ident = line.find(Ident());
    if (ident != 0) {
        lines.push_back({std::string(line.substr(0, ident)), false});
    }
    if (ident != std::string_view::npos) {
        lines.push_back({std::string(line.substr(ident + Ident().size())), true});
    }
}

std::vector<LoggedLine> LinesOf(std::string_view text) {
    std::vector<LoggedLine> lines;
    while (!text.empty()) {
        const std::string_view line = text.substr(0, text.find('\n'));
        AddLine(lines, line);
        text.remove_prefix(std::min(line.size() + 1, text.size()));
    }
    return lines;
}

void Print(const std::vector<LoggedLine> &lines) {
    for (const LoggedLine &line : lines) {
        const std::string shown_line = std::string(kPrefix) + Escaped(line.text) + '\n';
        std::fwrite(shown_line.data(), 1, shown_line.size(), stderr);
    }
}

// "SOURCE:LINE MESSAGE[0xCODE SOURCE:LINE]" without what only a developer wants to know. What other
// libraries log is as it was.
LoggedLine WithoutSource(const LoggedLine &line) {
    constexpr std::string_view kSource = ".cpp:";
    const std::size_t source = line.text.find(kSource);
    const std::size_t blank = line.text.find(' ');
    if (!line.of_library || source == std::string::npos || blank < source + kSource.size()) {
        return {line.text, false};
    }
    const std::size_t state = line.text.rfind("[0x");
    const bool has_state = state != std::string::npos && line.text.ends_with(']');
    return {line.text.substr(blank + 1, has_state ? state - blank - 1 : std::string::npos), true};
}

}  // namespace

void LibraryLog::Start(bool verbose) {
    shown = verbose;
    openlog("servicetool", LOG_PERROR | LOG_PID, LOG_USER);
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

std::vector<LoggedLine> LibraryLog::End() {
    if (caught_ < 0) {
        return {};
    }
    setlogmask(kQuiet);
    Release(STDERR_FILENO, stderr_);
    Release(STDOUT_FILENO, stdout_);
    const std::string caught = ContentsOf(caught_);
    close(std::exchange(caught_, -1));
    std::vector<LoggedLine> lines = LinesOf(caught);
    if (shown) {
        Print(lines);
    }
    std::transform(lines.begin(), lines.end(), lines.begin(), WithoutSource);
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

}  // namespace tavo::tool
