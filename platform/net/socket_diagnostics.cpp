// One request for each address family, answered with a dump: datagrams of messages, one message for
// each socket, the last of them NLMSG_DONE (netlink(7)).
//
// The kernel filters out sockets in TIME_WAIT and ports outside the range, so that a query for one
// port is cheap however many sockets there are. If the dump is incomplete for any reason, the
// caller uses another source, so failures are not distinguished here.
#include "socket_diagnostics.h"

#include <arpa/inet.h>
#include <linux/inet_diag.h>
#include <linux/netlink.h>
#include <linux/sock_diag.h>
#include <netinet/tcp.h>
#include <sys/socket.h>
#include <sys/time.h>

#include <algorithm>
#include <chrono>
#include <cstddef>
#include <cstring>
#include <string_view>

#include "base/descriptor.h"

namespace tavo {
namespace {

using std::chrono::steady_clock;

// The kernel makes the datagrams of a dump as large as the read buffer, up to this size.
constexpr std::size_t kLargestDatagram = 32768;

// The kernel has its answer ready when the request returns, so this limit is reached only in case
// of a serious fault.
constexpr std::chrono::seconds kPatience(2);

// The number of attempts for dumps that the kernel reports as inconsistent.
constexpr int kTries = 3;

// Every state but one. This includes the states without a name in netinet/tcp.h: pending requests
// of listeners (12) and, in newer kernels, TCP sockets that are bound but not used (13).
constexpr std::uint32_t kStates = ~(std::uint32_t{1} << TCP_TIME_WAIT);

// A program that the kernel runs on each socket: a test is an operation whose operand is the `no`
// of the next operation. `yes` and `no` are the number of bytes to advance; the exact end of the
// program means a match, any position after it means no match.
struct PortFilter {
    explicit PortFilter(PortRange range)
        : attribute{sizeof(PortFilter), INET_DIAG_REQ_BYTECODE},
          operations{{INET_DIAG_BC_S_GE, kTest, 2 * kTest + 4},
                     {INET_DIAG_BC_NOP, 0, range.first},
                     {INET_DIAG_BC_S_LE, kTest, kTest + 4},
                     {INET_DIAG_BC_NOP, 0, range.last}} {}

    static constexpr unsigned char kTest = 2 * sizeof(inet_diag_bc_op);

    nlattr attribute;
    inet_diag_bc_op operations[4];
};

struct Request {
    Request(int family, int protocol, PortRange range, std::uint32_t sequence) : filter(range) {
        header.nlmsg_len = sizeof(*this);
        header.nlmsg_type = SOCK_DIAG_BY_FAMILY;
        header.nlmsg_flags = NLM_F_REQUEST | NLM_F_DUMP;
        header.nlmsg_seq = sequence;
        sockets.sdiag_family = static_cast<unsigned char>(family);
        sockets.sdiag_protocol = static_cast<unsigned char>(protocol);
        sockets.idiag_states = kStates;
    }

    nlmsghdr header{};
    inet_diag_req_v2 sockets{};
    PortFilter filter;
};
static_assert(sizeof(Request) == sizeof(nlmsghdr) + sizeof(inet_diag_req_v2) + sizeof(PortFilter));

// A dump that is being received.
struct Dump {
    PortSet &ports;
    std::uint32_t sequence;
    bool disturbed = false;  // sockets may be missing
};

enum class Progress { kGoesOn, kComplete, kFailed };

// Reads a value from the start of `bytes`, which need not be aligned. Returns false if there are
// too few bytes.
template <typename Value>
bool Peek(std::string_view bytes, Value &value) {
    if (bytes.size() < sizeof(value)) {
        return false;
    }
    std::memcpy(&value, bytes.data(), sizeof(value));
    return true;
}

Progress TakeSocket(Dump &dump, std::string_view body) {
    inet_diag_msg socket;
    if (!Peek(body, socket)) {
        return Progress::kFailed;
    }
    dump.ports[ntohs(socket.id.idiag_sport)] = true;
    return Progress::kGoesOn;
}

// An aborted dump ends like any other, but with a negative error number: this is how the kernel
// reports that it has no diagnostics for a protocol.
Progress TakeEnd(std::string_view body) {
    int result = 0;
    return Peek(body, result) && result < 0 ? Progress::kFailed : Progress::kComplete;
}

Progress TakeMessage(Dump &dump, const nlmsghdr &header, std::string_view body) {
    if (header.nlmsg_seq != dump.sequence) {
        return Progress::kGoesOn;
    }
    dump.disturbed |= (header.nlmsg_flags & NLM_F_DUMP_INTR) != 0;
    switch (header.nlmsg_type) {
        case SOCK_DIAG_BY_FAMILY:
            return TakeSocket(dump, body);
        case NLMSG_DONE:
            return TakeEnd(body);
        case NLMSG_NOOP:
            return Progress::kGoesOn;
        default:
            return Progress::kFailed;
    }
}

Progress TakeDatagram(Dump &dump, std::string_view rest) {
    while (!rest.empty()) {
        nlmsghdr header;
        if (!Peek(rest, header) || header.nlmsg_len < sizeof(header) ||
            header.nlmsg_len > rest.size()) {
            return Progress::kFailed;
        }
        const std::string_view message = rest.substr(0, header.nlmsg_len);
        const Progress progress = TakeMessage(dump, header, message.substr(sizeof(header)));
        if (progress != Progress::kGoesOn) {
            return progress;
        }
        rest.remove_prefix(std::min<std::size_t>(NLMSG_ALIGN(header.nlmsg_len), rest.size()));
    }
    return Progress::kGoesOn;
}

// Returns the size of the next datagram even if it is larger than the buffer. A signal restarts the
// socket's own time limit, so a caller with a fast timer needs this one.
ssize_t Receive(int netlink, char *buffer, std::size_t size) {
    const steady_clock::time_point deadline = steady_clock::now() + kPatience;
    for (;;) {
        const ssize_t got = recv(netlink, buffer, size, MSG_TRUNC);
        if (got >= 0 || errno != EINTR || steady_clock::now() >= deadline) {
            return got;
        }
    }
}

bool ReceiveDump(int netlink, Dump &dump) {
    char buffer[kLargestDatagram];
    Progress progress = Progress::kGoesOn;
    while (progress == Progress::kGoesOn) {
        const ssize_t got = Receive(netlink, buffer, sizeof(buffer));
        if (got <= 0 || static_cast<std::size_t>(got) > sizeof(buffer)) {
            return false;
        }
        progress = TakeDatagram(dump, {buffer, static_cast<std::size_t>(got)});
    }
    return progress == Progress::kComplete;
}

bool Send(int netlink, const Request &request) {
    const ssize_t sent = Uninterrupted([&] { return send(netlink, &request, sizeof(request), 0); });
    return sent == sizeof(request);
}

int OpenDiagnostics() {
    return socket(AF_NETLINK, SOCK_RAW | SOCK_CLOEXEC, NETLINK_SOCK_DIAG);
}

bool LimitWaiting(int netlink) {
    const timeval patience = {kPatience.count(), 0};
    return setsockopt(netlink, SOL_SOCKET, SO_RCVTIMEO, &patience, sizeof(patience)) == 0;
}

}  // namespace

bool AskForSockets(int netlink, int family, int protocol, PortRange range, PortSet &ports) {
    for (std::uint32_t sequence = 1; sequence <= kTries; ++sequence) {
        Dump dump = {ports, sequence};
        if (!Send(netlink, Request(family, protocol, range, sequence)) ||
            !ReceiveDump(netlink, dump)) {
            return false;
        }
        if (!dump.disturbed) {
            return true;
        }
    }
    return false;
}

bool AskForSockets(int protocol, PortRange range, PortSet &ports) {
    const Descriptor netlink(OpenDiagnostics());
    return netlink.IsOpen() && LimitWaiting(netlink.Get()) &&
           AskForSockets(netlink.Get(), AF_INET, protocol, range, ports) &&
           AskForSockets(netlink.Get(), AF_INET6, protocol, range, ports);
}

}  // namespace tavo
