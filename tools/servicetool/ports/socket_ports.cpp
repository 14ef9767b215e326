#include "ports/socket_ports.h"

#include <arpa/inet.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <utility>

#include "input/input_file.h"
#include "ports/protocols.h"
#include "tavoserviceconf.h"

namespace tavo::tool {
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

constexpr std::size_t kChunk = 64;

class Search {
  public:
    Search(std::uint32_t protocols, const SkippedNames &skipped, const SearchLimits &limits)
        : protocols_(protocols), skipped_(skipped), limits_(limits) {}

    // Notes the ports of `set` that are held.
    void FindAll(const PortRanges &set);

    SocketPorts Result() &&;

  private:
    bool IsLate() const { return Clock::now() - start_ >= limits_.time; }
    bool IsHeld(const PortRanges &set);
    void FindInChunk(const PortRanges &chunk);
    bool Find(const PortRanges &set);
    void FindInHalves(const PortRanges &set);

    std::uint32_t protocols_;
    const SkippedNames &skipped_;
    SearchLimits limits_;
    Clock::time_point start_ = Clock::now();
    std::size_t asked_ = 0;
    SocketPorts ports_;
};

// The library looks at every socket anew for each range, so few ranges at a time are asked for, to
// keep an eye on the time between them.
void Search::FindAll(const PortRanges &set) {
    for (std::size_t next = 0; next < set.size() && ports_.known; next += kChunk) {
        if (next != 0 && IsLate()) {
            ports_.known = false;
            ports_.problem =
                "it takes more than " + std::to_string(limits_.time.count()) + " seconds";
            return;
        }
        const auto begin = set.begin() + static_cast<std::ptrdiff_t>(next);
        const auto size = static_cast<std::ptrdiff_t>(std::min(kChunk, set.size() - next));
        FindInChunk(PortRanges(begin, begin + size));
    }
}

// Where the ports between the ranges are not held either, one range is asked for instead of many.
// Port 0 would get lost in it: the library has no answer for it by itself.
void Search::FindInChunk(const PortRanges &chunk) {
    if (chunk.size() == 1 || chunk.front().first == 0 ||
        IsHeld({{chunk.front().first, chunk.back().last}})) {
        Find(chunk);
    }
}

// Whether any are held.
bool Search::Find(const PortRanges &set) {
    if (set.empty() || !IsHeld(set)) {
        return false;
    }
    FindInHalves(set);
    return true;
}

bool Search::IsHeld(const PortRanges &set) {
    ++asked_;
    const LibraryAnswer answer = AskLibrary(set, protocols_, skipped_, TAVO_PORT_CHECK_RUNTIME);
    if (answer.verdict == PortVerdict::kUnknown) {
        ports_.known = false;
        ports_.problem = answer.reason;
    }
    return answer.verdict == PortVerdict::kTaken;
}

// Of a set that is held. When the lower half is not, the upper one is, and need not be asked for as
// a whole; a single port always is, since sockets come and go between two questions.
void Search::FindInHalves(const PortRanges &set) {
    if (PortCount(set) == 1) {
        ports_.held.push_back(set.front());
        return;
    }
    if ((asked_ >= limits_.questions && set.size() == 1) || IsLate()) {
        ports_.partly_held.insert(ports_.partly_held.end(), set.begin(), set.end());
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

std::uint32_t PortOf(const sockaddr_storage &address) {
    return ntohs(address.ss_family == AF_INET6
                     ? reinterpret_cast<const sockaddr_in6 &>(address).sin6_port
                     : reinterpret_cast<const sockaddr_in &>(address).sin_port);
}

sockaddr_storage Loopback(int family) {
    sockaddr_storage address{};
    address.ss_family = static_cast<sa_family_t>(family);
    if (family == AF_INET6) {
        reinterpret_cast<sockaddr_in6 &>(address).sin6_addr = in6addr_loopback;
    } else {
        reinterpret_cast<sockaddr_in &>(address).sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    }
    return address;
}

// A socket of our own on the loopback address, where nobody from outside meets it, at a port that
// the kernel chose.
class OwnSocket {
  public:
    OwnSocket(int family, bool tcp)
        : descriptor_(socket(family, (tcp ? SOCK_STREAM : SOCK_DGRAM) | SOCK_CLOEXEC, 0)) {
        sockaddr_storage address = Loopback(family);
        socklen_t size = family == AF_INET6 ? sizeof(sockaddr_in6) : sizeof(sockaddr_in);
        auto *generic = reinterpret_cast<sockaddr *>(&address);
        if (descriptor_ >= 0 && bind(descriptor_, generic, size) == 0 &&
            (!tcp || listen(descriptor_, 1) == 0) &&
            getsockname(descriptor_, generic, &size) == 0) {
            port_ = PortOf(address);
        } else {
            error_ = errno;
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
    int Error() const { return error_; }          // why it holds none

  private:
    int descriptor_;
    std::uint32_t port_ = 0;
    int error_ = 0;
};

bool SeesPort(std::uint32_t port, std::uint32_t protocol) {
    return AskLibrary({{port, port}}, protocol, {}, TAVO_PORT_CHECK_RUNTIME).verdict ==
           PortVerdict::kTaken;
}

// Either family may be switched off.
bool SeesOwnSocket(std::uint32_t protocol, std::string &problem) {
    int error = 0;
    for (const int family : {AF_INET, AF_INET6}) {
        const OwnSocket own(family, protocol == TAVO_PROTO_TCP);
        if (own.Port() != 0) {
            return SeesPort(own.Port(), protocol);
        }
        error = error == 0 ? own.Error() : error;
    }
    problem = "no port can be held to try: " + ErrorText(error);
    return false;
}

}  // namespace

SocketPorts AskSockets(const PortRanges &set, std::uint32_t protocols, const SkippedNames &skipped,
                       const SearchLimits &limits) {
    Search search(protocols, skipped, limits);
    search.FindAll(set);
    return std::move(search).Result();
}

bool SeesSockets(std::uint32_t protocols, std::string &problem) {
    for (const std::uint32_t protocol : kProtocols) {
        if ((protocols & protocol) != 0 && !SeesOwnSocket(protocol, problem)) {
            return false;
        }
    }
    return true;
}

}  // namespace tavo::tool
