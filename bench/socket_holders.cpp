#include "socket_holders.h"

#include <arpa/inet.h>
#include <netinet/in.h>
#include <sys/prctl.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

#include <csignal>
#include <string>
#include <utility>
#include <vector>

namespace tavo::bench {
namespace {

// Opens a socket with a port of its own, every fifth for UDP, every second over IPv6; a TCP socket
// listens. Returns -1 on failure.
int OpenSocket(int number) {
    const bool tcp = number % 5 != 0;
    const bool over_ipv6 = number % 2 == 1;
    const in_port_t port = htons(static_cast<in_port_t>(kFirstHeldPort + number));
    sockaddr_in6 ipv6 = {};
    ipv6.sin6_family = AF_INET6;
    ipv6.sin6_port = port;
    ipv6.sin6_addr = in6addr_loopback;
    sockaddr_in ipv4 = {};
    ipv4.sin_family = AF_INET;
    ipv4.sin_port = port;
    ipv4.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    const auto *name = over_ipv6 ? reinterpret_cast<const sockaddr *>(&ipv6)
                                 : reinterpret_cast<const sockaddr *>(&ipv4);
    const int fd = socket(over_ipv6 ? AF_INET6 : AF_INET, tcp ? SOCK_STREAM : SOCK_DGRAM, 0);
    if (fd >= 0 && bind(fd, name, over_ipv6 ? sizeof(ipv6) : sizeof(ipv4)) == 0 &&
        (!tcp || listen(fd, 1) == 0)) {
        return fd;
    }
    if (fd >= 0) {
        close(fd);
    }
    return -1;
}

// Holds sockets first..last-1 until the benchmark ends; writes the number of open ones to `report`.
[[noreturn]] void Hold(int first, int last, int report) {
    prctl(PR_SET_PDEATHSIG, SIGKILL);
    int held = 0;
    for (int number = first; number < last; ++number) {
        held += OpenSocket(number) >= 0 ? 1 : 0;
    }
    const bool reported = write(report, &held, sizeof(held)) == sizeof(held);
    close(report);  // the reader must not wait for holders that fail to report
    if (!reported) {
        _exit(1);
    }
    for (;;) {
        pause();
    }
}

// The processes that hold the sockets.
class Holders {
  public:
    ~Holders() { Stop(); }

    // Starts as many as possible and returns the number of sockets they hold.
    int Start(int sockets, int processes) {
        Stop();
        int report[2];
        if (pipe(report) != 0) {
            return 0;
        }
        for (int i = 0; i < processes; ++i) {
            const pid_t child = fork();
            if (child == 0) {
                Hold(sockets * i / processes, sockets * (i + 1) / processes, report[1]);
            }
            if (child > 0) {
                children_.push_back(child);
            }
        }
        close(report[1]);
        int total = 0;
        for (std::size_t i = 0; i < children_.size(); ++i) {
            int held = 0;
            total += read(report[0], &held, sizeof(held)) == sizeof(held) ? held : 0;
        }
        close(report[0]);
        return total;
    }

    std::size_t Count() const { return children_.size(); }

  private:
    void Stop() {
        for (const pid_t child : children_) {
            kill(child, SIGKILL);
        }
        for (const pid_t child : children_) {
            waitpid(child, nullptr, 0);
        }
        children_.clear();
    }

    std::vector<pid_t> children_;
};

}  // namespace

int HoldSockets(benchmark::State &state) {
    static Holders holders;
    static std::pair<int, int> prepared;
    static int held = 0;
    const std::pair wanted(static_cast<int>(state.range(0)), static_cast<int>(state.range(1)));
    if (std::exchange(prepared, wanted) != wanted) {
        held = holders.Start(wanted.first, wanted.second);
    }
    state.SetLabel(std::to_string(held) + " sockets in " + std::to_string(holders.Count()) +
                   " processes");
    return held;
}

}  // namespace tavo::bench
