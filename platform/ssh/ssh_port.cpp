// The port of the SSH server, read from its configuration in the same way as the server does.
//
// The file belongs to the administrator and may contain anything. It is read through a small
// buffer, one line at a time, so that no file, however large or unusual, needs any memory.
#include <fcntl.h>
#include <strings.h>
#include <sys/stat.h>

#include <algorithm>
#include <cerrno>
#include <charconv>
#include <cstddef>
#include <string_view>

#include "base/descriptor.h"
#include "base/ports.h"
#include "base/system_files.h"
#include "platform_failure.h"
#include "tavossh.h"

namespace {

constexpr int kDefaultPort = 22;
constexpr std::string_view kBlanks = " \t\r\n\f\v";

struct Line {
    char text[1024];
    std::size_t size;
    bool cut;  // truncated to fit

    std::string_view View() const { return {text, size}; }
};

class LineReader {
  public:
    // Opens without blocking, because the path may be a pipe.
    explicit LineReader(const char *path)
        : file_(open(path, O_RDONLY | O_NONBLOCK | O_CLOEXEC | O_NOCTTY)) {}

    bool IsOpen() const { return file_.IsOpen(); }

    bool IsRegularFile() const {
        struct stat status;
        return fstat(file_.Get(), &status) == 0 && S_ISREG(status.st_mode);
    }

    // Returns false after the last line, and if reading fails.
    bool Next(Line &line) {
        line.size = 0;
        line.cut = false;
        int byte = NextByte();
        const bool any = byte != kNone;
        for (; byte != kNone && byte != '\n'; byte = NextByte()) {
            line.cut = line.size == sizeof(line.text);
            if (!line.cut) {
                line.text[line.size++] = static_cast<char>(byte);
            }
        }
        return any;
    }

    bool Failed() const { return failed_; }

  private:
    static constexpr int kNone = -1;

    int NextByte() {
        if (position_ == size_) {
            const ssize_t size = read(file_.Get(), buffer_, sizeof(buffer_));
            failed_ = size < 0;
            position_ = 0;
            size_ = std::max<ssize_t>(size, 0);
        }
        return position_ < size_ ? buffer_[position_++] : kNone;
    }

    tavo::Descriptor file_;
    bool failed_ = false;
    ssize_t position_ = 0;
    ssize_t size_ = 0;
    unsigned char buffer_[4096];
};

std::string_view WithoutLeadingBlanks(std::string_view text) {
    text.remove_prefix(std::min(text.find_first_not_of(kBlanks), text.size()));
    return text;
}

// A line as parsed by the server: a keyword in any case, then blanks or one "=", then arguments. In
// a comment the keyword starts with "#".
struct Option {
    std::string_view keyword;
    std::string_view arguments;

    bool Is(std::string_view name) const {
        return keyword.size() == name.size() &&
               strncasecmp(keyword.data(), name.data(), name.size()) == 0;
    }
};

Option ParseOption(std::string_view line) {
    line = WithoutLeadingBlanks(line);
    const std::size_t size = std::min({line.find_first_of(kBlanks), line.find('='), line.size()});
    std::string_view arguments = WithoutLeadingBlanks(line.substr(size));
    if (arguments.starts_with('=')) {
        arguments = WithoutLeadingBlanks(arguments.substr(1));
    }
    return {line.substr(0, size), arguments};
}

// Removes the first argument, which may be quoted; empty if the closing quote is missing.
std::string_view TakeArgument(std::string_view &arguments) {
    const bool quoted = arguments.starts_with('"') || arguments.starts_with('\'');
    const std::size_t begin = quoted ? 1 : 0;
    const std::size_t end = quoted ? arguments.find(arguments[0], begin)
                                   : std::min(arguments.find_first_of(kBlanks), arguments.size());
    if (end == std::string_view::npos) {
        return {};
    }
    const std::string_view argument = arguments.substr(begin, end - begin);
    arguments.remove_prefix(end + begin);
    return argument;
}

// Parses exactly one port, optionally followed by a comment.
int ParsePort(std::string_view arguments) {
    const std::string_view text = TakeArgument(arguments);
    const std::string_view rest = WithoutLeadingBlanks(arguments);
    const char *end = text.data() + text.size();
    unsigned int port = 0;
    const auto [stop, error] = std::from_chars(text.data(), end, port);
    const bool number =
        error == std::errc() && stop == end && port >= 1 && port <= tavo::kHighestPort;
    if (!number || (!rest.empty() && rest[0] != '#')) {
        return TAVO_PLATFORM_FAIL(TLIBC_ERR_BAD_PARAMETER);
    }
    return static_cast<int>(port);
}

int FindPort(LineReader &lines) {
    for (Line line; lines.Next(line);) {
        const Option option = ParseOption(line.View());
        if (option.Is("match")) {
            return kDefaultPort;  // the following lines are not global; ports are
        }
        if (option.Is("port")) {
            // The missing part could be a part of the number.
            return line.cut ? TAVO_PLATFORM_FAIL(TLIBC_ERR_BAD_PARAMETER)
                            : ParsePort(option.arguments);
        }
    }
    return lines.Failed() ? TAVO_PLATFORM_FAIL(TLIBC_ERR_FILE_UNUSABLE) : kDefaultPort;
}

}  // namespace

int TAVOServiceSSHPortGet(void) {
    LineReader lines(tavo::kSshConfigFile);
    if (!lines.IsOpen()) {
        return errno == ENOENT || errno == ENOTDIR ? kDefaultPort
                                                   : TAVO_PLATFORM_FAIL(TLIBC_ERR_FILE_UNUSABLE);
    }
    return lines.IsRegularFile() ? FindPort(lines) : TAVO_PLATFORM_FAIL(TLIBC_ERR_FILE_UNUSABLE);
}
