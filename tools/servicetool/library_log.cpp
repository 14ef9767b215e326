#include "library_log.h"

#include <fcntl.h>
#include <sys/mman.h>
#include <syslog.h>
#include <unistd.h>

#include <cstdio>
#include <string>
#include <string_view>

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

}  // namespace

void LibraryLog::Start(bool verbose) {
    shown = verbose;
    openlog("servicetool", LOG_PERROR, LOG_USER);
    setlogmask(kQuiet);
}

LibraryLog::LibraryLog() {
    if (!shown) {
        return;
    }
    std::fflush(stderr);
    caught_ = memfd_create("library-log", MFD_CLOEXEC);
    stderr_ = fcntl(STDERR_FILENO, F_DUPFD_CLOEXEC, 0);
    if (caught_ >= 0 && stderr_ >= 0) {
        dup2(caught_, STDERR_FILENO);
        setlogmask(LOG_UPTO(LOG_DEBUG));
    }
}

LibraryLog::~LibraryLog() {
    if (caught_ >= 0 && stderr_ >= 0) {
        setlogmask(kQuiet);
        dup2(stderr_, STDERR_FILENO);
        PrintCaught();
    }
    if (stderr_ >= 0) {
        close(stderr_);
    }
    if (caught_ >= 0) {
        close(caught_);
    }
}

void LibraryLog::PrintCaught() const {
    const std::string caught = ContentsOf(caught_);
    std::string_view rest = caught;
    while (!rest.empty()) {
        const std::size_t end = rest.find('\n');
        const std::string line =
            std::string(kPrefix) + Escaped(WithoutIdent(rest.substr(0, end))) + '\n';
        std::fwrite(line.data(), 1, line.size(), stderr);
        rest.remove_prefix(end == std::string_view::npos ? rest.size() : end + 1);
    }
}

}  // namespace tavo
