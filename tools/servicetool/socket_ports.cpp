#include "socket_ports.h"

#include <arpa/inet.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

#include <utility>

#include "protocols.h"
#include "tavoserviceconf.h"

namespace tavo {
namespace {

// Both halves of a set of at least two ports.
std::pair<PortRanges, PortRanges> Halves(const PortRanges &set) {
    if (set.size() > 1) {
        const auto middle = set.begin() + static_cast<std::ptrdiff_t>(set.size() / 2);
        return {PortRanges(set.begin(), middle), PortRanges(middle, set.end())};
    }
    const auto [first, last] = set.front();
    const std::uint32_t middle = first + (last - first) / 2;
    return {{{first, middle}}, {{middle + 1, last}}};
}

using Clock = std::chrono::steady_clock;

class Search {
  public:
    Search(std::uint32_t protocols, const SkippedNames &skipped, const SearchLimits &limits)
        : protocols_(protocols), skipped_(skipped), limits_(limits) {}

    // Notes the ports of `set` that are held; whether there are any.
    bool Find(const PortRanges &set);

    SocketPorts Result() &&;

  private:
    bool IsHeld(const PortRanges &set);
    void FindInHalves(const PortRanges &set);

    std::uint32_t protocols_;
    const SkippedNames &skipped_;
    SearchLimits limits_;
    Clock::time_point start_ = Clock::now();
    std::size_t asked_ = 0;
    SocketPorts ports_;
};

bool Search::Find(const PortRanges &set) {
    if (set.empty() || !IsHeld(set)) {
        return false;
    }
    FindInHalves(set);
    return true;
}

bool Search::IsHeld(const PortRanges &set) {
    ++asked_;
    const LibraryVerdict verdict =
        AskLibrary(set, protocols_, skipped_, TAVO_PORT_CHECK_RUNTIME).verdict;
    ports_.known = ports_.known && verdict != LibraryVerdict::kUnknown;
    return verdict == LibraryVerdict::kTaken;
}

// Of a set that is held. When the lower half is not, the upper one is, and need not be asked for as
// a whole; a single port always is, since sockets come and go between two questions.
void Search::FindInHalves(const PortRanges &set) {
    if (PortCount(set) == 1) {
        ports_.held.push_back(set.front());
        return;
    }
    if (asked_ >= limits_.questions || Clock::now() - start_ >= limits_.time) {
        ports_.partly_held.push_back({set.front().first, set.back().last});
        return;
    }
    const auto [low, high] = Halves(set);
    if (Find(low) || PortCount(high) == 1) {
        Find(high);
    } else {
        FindInHalves(high);
    }
}

SocketPorts Search::Result() && {
    ports_.held = Merged(std::move(ports_.held));
    return std::move(ports_);
}

// A socket of our own, at a port that the kernel chose.
class OwnSocket {
  public:
    explicit OwnSocket(bool tcp)
        : descriptor_(socket(AF_INET, (tcp ? SOCK_STREAM : SOCK_DGRAM) | SOCK_CLOEXEC, 0)) {
        sockaddr_in address{};
        socklen_t size = sizeof(address);
        auto *generic = reinterpret_cast<sockaddr *>(&address);
        address.sin_family = AF_INET;
        address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
        if (bind(descriptor_, generic, size) == 0 && (!tcp || listen(descriptor_, 1) == 0) &&
            getsockname(descriptor_, generic, &size) == 0) {
            port_ = ntohs(address.sin_port);
        }
    }
    ~OwnSocket() {
        if (descriptor_ >= 0) {
            close(descriptor_);
        }
    }
    OwnSocket(const OwnSocket &) = delete;
    OwnSocket &operator=(const OwnSocket &) = delete;

    std::uint32_t Port() const { return port_; }  // 0 when it holds none

  private:
    int descriptor_;
    std::uint32_t port_ = 0;
};

}  // namespace

SocketPorts AskSockets(const PortRanges &set, std::uint32_t protocols, const SkippedNames &skipped,
                       const SearchLimits &limits) {
    Search search(protocols, skipped, limits);
    search.Find(set);
    return std::move(search).Result();
}

bool SeesSockets(std::uint32_t protocols) {
    for (const std::uint32_t protocol : kProtocols) {
        if ((protocols & protocol) == 0) {
            continue;
        }
        const OwnSocket own(protocol == TAVO_PROTO_TCP);
        const PortRange port = {own.Port(), own.Port()};
        if (port.first == 0 || AskLibrary({port}, protocol, {}, TAVO_PORT_CHECK_RUNTIME).verdict !=
                                   LibraryVerdict::kTaken) {
            return false;
        }
    }
    return true;
}

}  // namespace tavo
