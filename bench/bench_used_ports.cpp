// Queries the ports in use: the library, and as a lower bound a minimal netlink reader, which
// requests the same dumps from the kernel, walks every message and marks its port, but checks and
// returns nothing.
//
// Arguments are whether TCP is queried (else UDP), the number of its sockets, half of them over
// IPv6, and the ends of the range.
#include <arpa/inet.h>
#include <benchmark/benchmark.h>
#include <linux/inet_diag.h>
#include <linux/netlink.h>
#include <linux/sock_diag.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

#include <bitset>
#include <cstdio>
#include <cstdlib>
#include <tuple>
#include <utility>
#include <vector>

#include "bench_main.h"
#include "tavonet.h"

namespace {

constexpr int kFirstPort = 20000;
constexpr int kTimeWait = 6;

[[noreturn]] void Die(const char *what) {
    std::perror(what);
    std::exit(1);
}

// A socket that holds `port` of the loopback address of its family; a TCP socket listens.
int OpenSocket(int family, bool tcp, int port) {
    sockaddr_in6 ipv6 = {};
    ipv6.sin6_family = AF_INET6;
    ipv6.sin6_port = htons(static_cast<in_port_t>(port));
    ipv6.sin6_addr = in6addr_loopback;
    sockaddr_in ipv4 = {};
    ipv4.sin_family = AF_INET;
    ipv4.sin_port = ipv6.sin6_port;
    ipv4.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    const bool over_ipv6 = family == AF_INET6;
    const auto *name = over_ipv6 ? reinterpret_cast<const sockaddr *>(&ipv6)
                                 : reinterpret_cast<const sockaddr *>(&ipv4);
    const int fd = socket(family, tcp ? SOCK_STREAM : SOCK_DGRAM, 0);
    if (fd < 0 || bind(fd, name, over_ipv6 ? sizeof(ipv6) : sizeof(ipv4)) != 0 ||
        (tcp && listen(fd, 1) != 0)) {
        Die("socket");
    }
    return fd;
}

// Opens the sockets; benchmarks with equal arguments share them.
void Prepare(bool tcp, int count) {
    static std::pair<bool, int> prepared;
    static std::vector<int> open;
    if (prepared == std::pair(tcp, count)) {
        return;
    }
    for (const int fd : open) {
        close(fd);
    }
    open.clear();
    for (int i = 0; i < count; ++i) {
        open.push_back(OpenSocket(i % 2 == 0 ? AF_INET : AF_INET6, tcp, kFirstPort + i));
    }
    prepared = {tcp, count};
}

int SocketsInRange(const benchmark::State &state) {
    const auto count = static_cast<int>(state.range(1));
    int inside = 0;
    for (int port = kFirstPort; port < kFirstPort + count; ++port) {
        inside += port >= state.range(2) && port <= state.range(3) ? 1 : 0;
    }
    return inside;
}

void Library(benchmark::State &state) {
    const bool tcp = state.range(0) != 0;
    Prepare(tcp, static_cast<int>(state.range(1)));
    const int expected = SocketsInRange(state);
    static int slots[65536];
    for (auto _ : state) {
        int count = 0;
        if (TAVONetGetPortUsedInRange(slots, &count, static_cast<int>(state.range(2)),
                                      static_cast<int>(state.range(3)), tcp) != 0 ||
            count != expected) {
            state.SkipWithError("not every port was found");
        }
    }
}

using Ports = std::bitset<65536>;

void AskFor(int netlink, int family, bool tcp) {
    struct {
        nlmsghdr header;
        inet_diag_req_v2 sockets;
    } request = {};
    request.header.nlmsg_len = sizeof(request);
    request.header.nlmsg_type = SOCK_DIAG_BY_FAMILY;
    request.header.nlmsg_flags = NLM_F_REQUEST | NLM_F_DUMP;
    request.sockets.sdiag_family = static_cast<unsigned char>(family);
    request.sockets.sdiag_protocol = tcp ? IPPROTO_TCP : IPPROTO_UDP;
    request.sockets.idiag_states = ~(1u << kTimeWait);
    if (send(netlink, &request, sizeof(request), 0) != sizeof(request)) {
        Die("send");
    }
}

// Marks the ports of one datagram. Returns false after the last message of the dump.
bool MarkAll(const char *data, std::size_t size, Ports &ports) {
    for (std::size_t at = 0; at < size;) {
        const auto *header = reinterpret_cast<const nlmsghdr *>(data + at);
        if (header->nlmsg_type != SOCK_DIAG_BY_FAMILY) {
            return false;
        }
        const auto *socket = reinterpret_cast<const inet_diag_msg *>(data + at + sizeof(nlmsghdr));
        ports[ntohs(socket->id.idiag_sport)] = true;
        at += NLMSG_ALIGN(header->nlmsg_len);
    }
    return true;
}

void Floor(benchmark::State &state) {
    const bool tcp = state.range(0) != 0;
    Prepare(tcp, static_cast<int>(state.range(1)));
    alignas(nlmsghdr) static char buffer[32768];
    for (auto _ : state) {
        Ports ports;
        const int netlink = socket(AF_NETLINK, SOCK_RAW | SOCK_CLOEXEC, NETLINK_SOCK_DIAG);
        for (const int family : {AF_INET, AF_INET6}) {
            AskFor(netlink, family, tcp);
            ssize_t got = 0;
            do {
                got = recv(netlink, buffer, sizeof(buffer), 0);
            } while (got > 0 && MarkAll(buffer, static_cast<std::size_t>(got), ports));
        }
        close(netlink);
        benchmark::DoNotOptimize(ports);
    }
}

void RegisterAll() {
    static constexpr struct {
        const char *name;
        void (*run)(benchmark::State &);
    } kFamilies[] = {{"Library", Library}, {"Floor", Floor}};
    static constexpr std::tuple<int, int, int, int> kQuestions[] = {
        {1, 10000, 1, 65535}, {1, 10000, 25000, 25000}, {0, 10000, 1, 65535}};
    for (const auto &[tcp, sockets, low, high] : kQuestions) {
        for (const auto &family : kFamilies) {
            benchmark::RegisterBenchmark(family.name, family.run)
                ->Args({tcp, sockets, low, high})
                ->Repetitions(5)
                ->Unit(benchmark::kMicrosecond);
        }
    }
}

}  // namespace

int main(int argc, char **argv) {
    tavo::bench::AllowManySockets();
    tavo::bench::RatioReporter reporter({tavo::bench::Ratio{"Library", "Floor"}});
    return tavo::bench::RunBenchmarks(argc, argv, RegisterAll, reporter);
}
