// A message stays in the socket until the launcher reads it, and a sender waits while the socket is
// full. No message is lost if the socket is drained once more after the last process has ended.
#include "message_log.h"

#include <fcntl.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>

#include <array>
#include <charconv>
#include <cstdio>

#include "failure.h"

namespace tavo {
namespace {

constexpr std::array kSeverities = {"emerg",   "alert",  "crit", "err",
                                    "warning", "notice", "info", "debug"};
constexpr std::array kFacilities = {"kern", "user", "mail", "daemon", "auth",     "syslog",
                                    "lpr",  "news", "uucp", "cron",   "authpriv", "ftp"};

std::string Priority(unsigned value) {
    const unsigned facility = value / 8;
    const std::string name = facility < kFacilities.size() ? kFacilities[facility]
                             : facility >= 16 && facility < 24
                                 ? "local" + std::to_string(facility - 16)
                                 : std::to_string(facility);
    return name + "." + kSeverities[value % 8];
}

// The path may be too long for sun_path, so the folder is accessed through its descriptor.
sockaddr_un AddressIn(const Descriptor &folder) {
    sockaddr_un address = {};
    address.sun_family = AF_UNIX;
    std::snprintf(address.sun_path, sizeof(address.sun_path), "/proc/self/fd/%d/socket",
                  folder.Get());
    return address;
}

}  // namespace

MessageLog::MessageLog(const std::filesystem::path &root)
    : folder_(open((root / "run/log").c_str(), O_PATH | O_DIRECTORY | O_CLOEXEC)),
      socket_(socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0)),
      file_(openat(folder_.Get(), "messages", O_WRONLY | O_APPEND | O_CREAT | O_CLOEXEC, 0644)) {
    const sockaddr_un address = AddressIn(folder_);
    if (!folder_.IsOpen() || !socket_.IsOpen() || !file_.IsOpen() ||
        bind(socket_.Get(), reinterpret_cast<const sockaddr *>(&address), sizeof(address)) != 0 ||
        fchmodat(folder_.Get(), "socket", 0666, 0) != 0) {
        FailWithErrno("cannot open the system log of the appliance");
    }
}

MessageLog::~MessageLog() {
    unlinkat(folder_.Get(), "socket", 0);
}

void MessageLog::Drain() const {
    ssize_t length;
    while ((length = recv(socket_.Get(), nullptr, 0, MSG_PEEK | MSG_TRUNC | MSG_DONTWAIT)) >= 0) {
        std::string message(static_cast<std::size_t>(length), '\0');
        recv(socket_.Get(), message.data(), message.size(), 0);
        const std::string line = MessageLine(message);
        if (write(file_.Get(), line.data(), line.size()) != static_cast<ssize_t>(line.size())) {
            FailWithErrno("cannot write the system log of the appliance");
        }
    }
}

std::string MessageLine(std::string_view message) {
    std::string line;
    unsigned priority = 0;
    const char *end = message.data() + message.size();
    if (message.starts_with('<')) {
        const auto [rest, error] = std::from_chars(message.data() + 1, end, priority);
        if (error == std::errc() && rest != end && *rest == '>') {
            line = Priority(priority) + " ";
            message.remove_prefix(static_cast<std::size_t>(rest + 1 - message.data()));
        }
    }
    while (message.ends_with('\n') || message.ends_with('\0')) {
        message.remove_suffix(1);
    }
    // One line per message; newlines are written in the notation of rsyslog.
    for (char c : message) {
        line += c == '\n' ? "#012" : std::string(1, c);
    }
    return line + "\n";
}

}  // namespace tavo
