// Compares the two ways to find the ports in use on the same real sockets. The private network of
// the appliance contains no other sockets.
#include <netinet/in.h>
#include <sys/prctl.h>
#include <sys/wait.h>

#include <algorithm>
#include <csignal>
#include <iostream>
#include <random>

#include "socket_diagnostics.h"
#include "socket_tables.h"
#include "sockets.h"
#include "used_ports.h"

namespace tavo::test {
namespace {

constexpr PortRange kEveryPort = {1, 65535};

std::vector<int> Marked(const PortSet &ports, PortRange range = kEveryPort) {
    std::vector<int> marked;
    for (int port = range.first; port <= range.last; ++port) {
        if (ports[static_cast<std::size_t>(port)]) {
            marked.push_back(port);
        }
    }
    return marked;
}

std::vector<int> FromDiagnostics(Transport transport, PortRange range = kEveryPort) {
    PortSet ports;
    EXPECT_TRUE(AskForSockets(transport == kTcp ? IPPROTO_TCP : IPPROTO_UDP, range, ports));
    return Marked(ports);
}

std::vector<int> FromTables(Transport transport, PortRange range = kEveryPort) {
    PortSet ports;
    EXPECT_TRUE(ReadSocketTables(transport == kTcp
                                     ? SocketTables{"/proc/net/tcp", "/proc/net/tcp6"}
                                     : SocketTables{"/proc/net/udp", "/proc/net/udp6"},
                                 ports));
    return Marked(ports, range);
}

TEST(AgreementTest, HoldsWithoutSockets) {
    for (const Transport transport : {kTcp, kUdp}) {
        EXPECT_THAT(FromDiagnostics(transport), testing::IsEmpty());
        EXPECT_THAT(FromTables(transport), testing::IsEmpty());
    }
}

class AgreementOver : public testing::TestWithParam<int> {};

INSTANTIATE_TEST_SUITE_P(EachFamily, AgreementOver, testing::Values(AF_INET, AF_INET6),
                         [](const auto &test) { return test.param == AF_INET ? "IPv4" : "IPv6"; });

TEST_P(AgreementOver, HoldsForTcpInManyStates) {
    const int family = GetParam();
    const Socket listener = Listener(family, 80);
    const Connection established(family, 8080, 40000);
    const Connection half_closed(family, 8081, 40001);
    half_closed.client.ShutdownWriting();
    half_closed.server.ReadToEnd();
    Connection waiting(family, 8082, 40002);
    waiting.client.Close();
    waiting.server.ReadToEnd();
    waiting.server.Close();
    const std::vector<int> expected = {80, 8080, 8081, 40000, 40001};
    // The last acknowledgement may still be under way.
    for (int turn = 0; FromTables(kTcp) != expected && turn < 10'000; ++turn) {
        usleep(1000);
    }
    EXPECT_EQ(FromDiagnostics(kTcp), expected);
    EXPECT_EQ(FromTables(kTcp), expected);
}

TEST_P(AgreementOver, HoldsForUdp) {
    const int family = GetParam();
    const Socket bound = UdpSocket(family, 53);
    Socket connected = UdpSocket(family, 5353);
    connected.Connect(53);
    const std::vector<int> expected = {53, 5353};
    EXPECT_EQ(FromDiagnostics(kUdp), expected);
    EXPECT_EQ(FromTables(kUdp), expected);
}

TEST(AgreementTest, HoldsForDualStackSockets) {
    Socket listener(AF_INET6, SOCK_STREAM);
    listener.OverBoth().Bind(8080).Listen();
    Socket client(AF_INET, SOCK_STREAM);
    client.Bind(40000).Connect(8080);
    const std::vector<int> expected = {8080, 40000};
    EXPECT_EQ(FromDiagnostics(kTcp), expected);
    EXPECT_EQ(FromTables(kTcp), expected);
}

// The kernel filters out the ports outside the range with a program that is sent to it.
TEST(AgreementTest, HoldsForAnyRange) {
    const unsigned int seed = std::random_device()();
    std::cout << "seed " << seed << '\n';
    std::mt19937 random(seed);
    const auto port = [&] { return static_cast<std::uint16_t>(random() % 65535 + 1); };
    std::vector<Socket> sockets;
    std::vector<int> bounds = {1, 65535};
    for (int i = 0; i < 200; ++i) {
        sockets.emplace_back(i % 2 == 0 ? AF_INET : AF_INET6, i % 4 < 2 ? SOCK_STREAM : SOCK_DGRAM);
        bounds.push_back(port());
        sockets.back().Set(SOL_SOCKET, SO_REUSEPORT, 1).Bind(bounds.back());
        if (i % 4 < 2) {
            sockets.back().Listen();
        }
    }
    for (int turn = 0; turn < 300; ++turn) {
        // Ends on a used port, next to one, or anywhere.
        const auto end = [&] {
            const int used = bounds[random() % bounds.size()] + static_cast<int>(random() % 3) - 1;
            return random() % 2 == 0 ? port()
                                     : static_cast<std::uint16_t>(std::clamp(used, 1, 65535));
        };
        const auto [first, last] = std::minmax({end(), end()});
        const PortRange range = {first, last};
        const Transport transport = turn % 2 == 0 ? kTcp : kUdp;
        ASSERT_EQ(FromDiagnostics(transport, range), FromTables(transport, range))
            << first << ".." << last;
    }
}

// Holds the ports first..first+count-1 in child processes, a few hundred each, to stay below the
// usual limit of descriptors.
class ManySockets {
  public:
    ManySockets(Transport transport, int first, int count) {
        for (int done = 0; done < count; done += kEach) {
            Start(transport, first + done, std::min(kEach, count - done));
        }
    }
    ~ManySockets() {
        for (const pid_t child : children_) {
            kill(child, SIGKILL);
            waitpid(child, nullptr, 0);
        }
    }
    ManySockets(const ManySockets &) = delete;
    ManySockets &operator=(const ManySockets &) = delete;

  private:
    static constexpr int kEach = 500;

    void Start(Transport transport, int first, int count) {
        int ready[2];
        ASSERT_EQ(pipe(ready), 0);
        const pid_t child = fork();
        if (child == 0) {
            prctl(PR_SET_PDEATHSIG, SIGKILL);
            Hold(transport, first, count, ready[1]);
        }
        children_.push_back(child);
        close(ready[1]);
        char byte;
        EXPECT_EQ(read(ready[0], &byte, 1), 1) << "a child could not open its sockets";
        close(ready[0]);
    }

    [[noreturn]] static void Hold(Transport transport, int first, int count, int ready) {
        std::vector<Socket> sockets;
        try {
            for (int port = first; port < first + count; ++port) {
                const int family = port % 2 == 0 ? AF_INET : AF_INET6;
                sockets.push_back(transport == kTcp ? Listener(family, port)
                                                    : UdpSocket(family, port));
            }
        } catch (const std::system_error &) {
            _exit(1);
        }
        if (write(ready, "", 1) == 1) {
            pause();
        }
        _exit(1);
    }

    std::vector<pid_t> children_;
};

class AgreementOnMany : public testing::TestWithParam<Transport> {};

INSTANTIATE_TEST_SUITE_P(EachTransport, AgreementOnMany, testing::Values(kTcp, kUdp),
                         [](const auto &test) { return test.param == kTcp ? "Tcp" : "Udp"; });

TEST_P(AgreementOnMany, HoldsWithTenThousandSockets) {
    const Transport transport = GetParam();
    const ManySockets sockets(transport, 20000, 10000);
    std::vector<int> expected;
    for (int port = 20000; port < 30000; ++port) {
        expected.push_back(port);
    }
    EXPECT_EQ(FromDiagnostics(transport), expected);
    EXPECT_EQ(FromTables(transport), expected);
    EXPECT_EQ(UsedPorts(transport), expected);
    EXPECT_THAT(FromDiagnostics(transport, {25000, 25001}), testing::ElementsAre(25000, 25001));
}

}  // namespace
}  // namespace tavo::test
