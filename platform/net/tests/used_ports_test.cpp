// Tests which ports count as used, and how they are returned. The network of the appliance is
// private, so all ports belong to the test.
#include "used_ports.h"

#include <fcntl.h>
#include <poll.h>
#include <sys/utsname.h>

#include <chrono>
#include <climits>
#include <cstdio>
#include <fstream>
#include <sstream>
#include <thread>

#include "failing_allocation.h"
#include "sockets.h"

namespace tavo::test {
namespace {

using testing::Each;
using testing::ElementsAre;
using testing::IsEmpty;

// The states of the sockets on a local port, according to the kernel's own table.
std::vector<std::string> StatesInTable(int family, int port) {
    std::ifstream table(family == AF_INET6 ? "/proc/net/tcp6" : "/proc/net/tcp");
    char suffix[16];
    std::snprintf(suffix, sizeof(suffix), ":%04X", static_cast<unsigned int>(port));
    std::vector<std::string> states;
    for (std::string line; std::getline(table, line);) {
        std::istringstream words(line);
        std::string number, local, remote, state;
        words >> number >> local >> remote >> state;
        if (local.ends_with(suffix)) {
            states.push_back(state);
        }
    }
    return states;
}

// Waits until the sockets of the port are in these states: acknowledgements may be delayed.
bool Reach(int family, int port, const std::vector<std::string> &states) {
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(10);
    while (StatesInTable(family, port) != states) {
        if (std::chrono::steady_clock::now() > deadline) {
            return false;
        }
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
    }
    return true;
}

TEST(UsedPortsTest, AreNoneWithoutSockets) {
    EXPECT_THAT(UsedPorts(kTcp), IsEmpty());
    EXPECT_THAT(UsedPorts(kUdp), IsEmpty());
}

TEST(UsedPortsTest, DoNotIncludeSocketsWithoutAPort) {
    const Socket tcp(AF_INET, SOCK_STREAM);
    const Socket udp(AF_INET6, SOCK_DGRAM);
    EXPECT_THAT(UsedPorts(kTcp, 0), IsEmpty());
    EXPECT_THAT(UsedPorts(kUdp, 0), IsEmpty());
}

// Each test runs for IPv4 and for IPv6.
class UsedPortsOver : public testing::TestWithParam<int> {
  protected:
    const int family_ = GetParam();
};

INSTANTIATE_TEST_SUITE_P(EachFamily, UsedPortsOver, testing::Values(AF_INET, AF_INET6),
                         [](const auto &test) { return test.param == AF_INET ? "IPv4" : "IPv6"; });

TEST_P(UsedPortsOver, CountAListener) {
    const Socket listener = Listener(family_, 8080);
    EXPECT_THAT(UsedPorts(kTcp), ElementsAre(8080));
    EXPECT_THAT(UsedPorts(kUdp), IsEmpty());
}

TEST_P(UsedPortsOver, CountAUdpSocket) {
    const Socket socket = UdpSocket(family_, 5353);
    EXPECT_THAT(UsedPorts(kUdp), ElementsAre(5353));
    EXPECT_THAT(UsedPorts(kTcp), IsEmpty());
}

TEST_P(UsedPortsOver, CountAUdpSocketThatIsConnected) {
    Socket socket = UdpSocket(family_, 5353);
    socket.Connect(53);
    EXPECT_THAT(UsedPorts(kUdp), ElementsAre(5353));
}

// Linux 6.8 and later report these sockets.
TEST_P(UsedPortsOver, CountATcpSocketThatIsBoundOnly) {
    utsname system;
    int major = 0;
    int minor = 0;
    ASSERT_EQ(uname(&system), 0);
    ASSERT_EQ(std::sscanf(system.release, "%d.%d", &major, &minor), 2);
    if (std::pair(major, minor) < std::pair(6, 8)) {
        GTEST_SKIP() << "the kernel does not report sockets that are only bound";
    }
    Socket socket(family_, SOCK_STREAM);
    socket.Bind(8080);
    EXPECT_THAT(UsedPorts(kTcp), ElementsAre(8080));
}

TEST_P(UsedPortsOver, CountBothEndsOfAConnection) {
    const Connection connection(family_, 8080, 40000);
    EXPECT_THAT(UsedPorts(kTcp), ElementsAre(8080, 40000));
}

TEST_P(UsedPortsOver, CountAConnectionRequest) {
    const Socket listener = Listener(family_, 8080);
    listen(listener.Get(), 0);  // a backlog of one connection, which is never accepted
    Socket accepted(family_, SOCK_STREAM);
    accepted.Bind(40000).Connect(8080);
    pollfd queue = {listener.Get(), POLLIN, 0};
    ASSERT_EQ(poll(&queue, 1, 10'000), 1) << "the backlog is full";
    Socket waiting(family_, SOCK_STREAM);
    fcntl(waiting.Get(), F_SETFL, O_NONBLOCK);
    EXPECT_THROW(waiting.Bind(40003).Connect(8080), std::system_error);
    ASSERT_TRUE(Reach(family_, 40003, {"02"})) << "SYN_SENT";
    EXPECT_THAT(UsedPorts(kTcp), ElementsAre(8080, 40000, 40003));
}

TEST_P(UsedPortsOver, CountAConnectionThatIsHalfClosed) {
    const Connection connection(family_, 8080, 40000);
    connection.client.ShutdownWriting();
    connection.server.ReadToEnd();
    ASSERT_TRUE(Reach(family_, 40000, {"05"})) << "FIN_WAIT2";
    ASSERT_TRUE(Reach(family_, 8080, {"08"})) << "CLOSE_WAIT";
    EXPECT_THAT(UsedPorts(kTcp), ElementsAre(8080, 40000));
}

TEST_P(UsedPortsOver, CountAClosedSocketWhosePeerIsOpen) {
    Connection connection(family_, 8080, 40000);
    connection.client.Close();
    connection.server.ReadToEnd();
    ASSERT_TRUE(Reach(family_, 40000, {"05"})) << "FIN_WAIT2";
    EXPECT_THAT(UsedPorts(kTcp), ElementsAre(8080, 40000));
}

TEST_P(UsedPortsOver, LeaveOutTimeWait) {
    Connection connection(family_, 8081, 40001);
    connection.client.Close();
    connection.server.ReadToEnd();
    connection.server.Close();
    ASSERT_TRUE(Reach(family_, 40001, {"06"})) << "TIME_WAIT";
    ASSERT_TRUE(Reach(family_, 8081, {}));
    EXPECT_THAT(UsedPorts(kTcp), IsEmpty());
}

TEST_P(UsedPortsOver, CountAPortInTimeWaitThatIsHeldAgain) {
    Connection connection(family_, 8082, 40002);
    connection.server.Close();
    connection.client.ReadToEnd();
    connection.client.Close();
    const Socket listener = Listener(family_, 8082);
    ASSERT_TRUE(Reach(family_, 8082, {"0A", "06"}));
    ASSERT_TRUE(Reach(family_, 40002, {}));
    EXPECT_THAT(UsedPorts(kTcp), ElementsAre(8082));
}

TEST_P(UsedPortsOver, CountSocketsThatShareAPortOnce) {
    std::vector<Socket> sockets;
    for (const int type : {SOCK_STREAM, SOCK_STREAM, SOCK_DGRAM, SOCK_DGRAM}) {
        sockets.emplace_back(family_, type).Set(SOL_SOCKET, SO_REUSEPORT, 1).Bind(8080);
        if (type == SOCK_STREAM) {
            sockets.back().Listen();
        }
    }
    EXPECT_THAT(UsedPorts(kTcp), ElementsAre(8080));
    EXPECT_THAT(UsedPorts(kUdp), ElementsAre(8080));
}

TEST(UsedPortsTest, CountOneForBothFamilies) {
    const Socket over_ipv4 = Listener(AF_INET, 8080);
    const Socket over_ipv6 = Listener(AF_INET6, 8080);
    EXPECT_THAT(UsedPorts(kTcp), ElementsAre(8080));
}

TEST(UsedPortsTest, CountADualStackSocketAndItsIpv4Connections) {
    Socket listener(AF_INET6, SOCK_STREAM);
    listener.OverBoth().Bind(8080).Listen();
    Socket client(AF_INET, SOCK_STREAM);
    client.Bind(40000).Connect(8080);
    const Socket server = listener.Accept();
    EXPECT_THAT(UsedPorts(kTcp), ElementsAre(8080, 40000));
    listener.Close();
    EXPECT_THAT(UsedPorts(kTcp), ElementsAre(8080, 40000));
}

TEST(UsedPortsTest, AscendInWhateverOrderTheyWereTaken) {
    const Socket sockets[] = {UdpSocket(AF_INET, 9), UdpSocket(AF_INET6, 65535),
                              UdpSocket(AF_INET6, 1), UdpSocket(AF_INET, 700)};
    EXPECT_THAT(UsedPorts(kUdp), ElementsAre(1, 9, 700, 65535));
}

TEST(UsedPortsTest, AreFreeAgainWhenTheSocketIsClosed) {
    Socket listener = Listener(AF_INET, 8080);
    listener.Close();
    EXPECT_THAT(UsedPorts(kTcp), IsEmpty());
}

TEST(UsedPortsTest, AnyFlagButZeroMeansTcp) {
    const Socket listener = Listener(AF_INET, 8080);
    int slot = 0;
    int count = 0;
    EXPECT_EQ(TAVONetGetPortUsedInRange(&slot, &count, 8080, 8080, INT_MIN), 0);
    EXPECT_EQ(count, 1);
}

// Three ports in use, queried in ranges.
class UsedPortsInRange : public testing::Test {
  protected:
    const Socket sockets_[3] = {UdpSocket(AF_INET, 100), UdpSocket(AF_INET6, 200),
                                UdpSocket(AF_INET, 300)};

    // The slots and the count after a call with `count` slots.
    struct Handed {
        int count;
        std::vector<int> slots;
    };
    static Handed Ask(int count, int low, int high) {
        Handed handed = {count, std::vector<int>(5, -7)};
        EXPECT_EQ(TAVONetGetPortUsedInRange(handed.slots.data(), &handed.count, low, high, kUdp),
                  0);
        return handed;
    }
};

TEST_F(UsedPortsInRange, TheEndsAreIncluded) {
    EXPECT_THAT(UsedPorts(kUdp, 100, 300), ElementsAre(100, 200, 300));
    EXPECT_THAT(UsedPorts(kUdp, 101, 299), ElementsAre(200));
    EXPECT_THAT(UsedPorts(kUdp, 99, 301), ElementsAre(100, 200, 300));
}

TEST_F(UsedPortsInRange, OnePortIsARange) {
    EXPECT_THAT(UsedPorts(kUdp, 200, 200), ElementsAre(200));
    EXPECT_THAT(UsedPorts(kUdp, 201, 201), IsEmpty());
}

TEST_F(UsedPortsInRange, EndsMayBeBeyondTheValidPorts) {
    for (const auto &[low, high] : {std::pair{INT_MIN, INT_MAX},
                                    {1, INT_MAX},
                                    {-1, 65536},
                                    {0, 65535},
                                    {INT_MIN, 300},
                                    {100, 70000}}) {
        const Handed handed = Ask(0, low, high);
        EXPECT_EQ(handed.count, 3) << low << ".." << high;
        EXPECT_THAT(handed.slots, ElementsAre(100, 200, 300, -7, -7)) << low << ".." << high;
    }
}

TEST_F(UsedPortsInRange, ARangeWithoutPortsIsEmpty) {
    for (const auto &[low, high] : {std::pair{INT_MIN, 0},
                                    {-100, -1},
                                    {0, 0},
                                    {65536, INT_MAX},
                                    {INT_MAX, INT_MAX},
                                    {INT_MIN, INT_MIN}}) {
        const Handed handed = Ask(4, low, high);
        EXPECT_EQ(handed.count, 0) << low << ".." << high;
        EXPECT_THAT(handed.slots, Each(-7)) << low << ".." << high;
    }
}

TEST_F(UsedPortsInRange, PortsThatDoNotFitTheSlotsAreLeftOut) {
    const Handed two = Ask(2, 1, 65535);
    EXPECT_EQ(two.count, 2);
    EXPECT_THAT(two.slots, ElementsAre(100, 200, -7, -7, -7));
    const Handed one = Ask(1, 101, 65535);
    EXPECT_EQ(one.count, 1);
    EXPECT_THAT(one.slots, ElementsAre(200, -7, -7, -7, -7));
}

TEST_F(UsedPortsInRange, UnusedSlotsAreUnchanged) {
    for (const int slots : {3, 4, 65535, INT_MAX}) {
        const Handed handed = Ask(slots, 1, 65535);
        EXPECT_EQ(handed.count, 3) << slots;
        EXPECT_THAT(handed.slots, ElementsAre(100, 200, 300, -7, -7)) << slots;
    }
}

TEST_F(UsedPortsInRange, NoNumberOfSlotsMeansOneForEachPort) {
    for (const int slots : {0, -1, INT_MIN}) {
        const Handed handed = Ask(slots, 1, 65535);
        EXPECT_EQ(handed.count, 3) << slots;
        EXPECT_THAT(handed.slots, ElementsAre(100, 200, 300, -7, -7)) << slots;
    }
}

TEST_F(UsedPortsInRange, InvalidArgumentsAreRejected) {
    int slots[] = {-7, -7};
    int count = -8;
    const auto expect_refused = [&](int *slots_or_null, int *count_or_null, int low, int high) {
        TLIBCErrSetEx(0, nullptr, 0);
        EXPECT_EQ(TAVONetGetPortUsedInRange(slots_or_null, count_or_null, low, high, kUdp), -1);
        EXPECT_EQ(RecordedError(), "0xD00 used_ports.cpp");
        EXPECT_GT(TLIBCErrorGetLine(), 0);
        EXPECT_THAT(slots, ElementsAre(-7, -7));
        EXPECT_EQ(count, -8);
    };
    expect_refused(nullptr, &count, 1, 65535);
    expect_refused(slots, nullptr, 1, 65535);
    expect_refused(slots, &count, 200, 199);
    expect_refused(slots, &count, INT_MAX, INT_MIN);
}

TEST_F(UsedPortsInRange, SuccessKeepsAnEarlierError) {
    TLIBCErrSetEx(0x700, "earlier.cpp", 1);
    EXPECT_THAT(UsedPorts(kUdp, 100, 100), ElementsAre(100));
    EXPECT_EQ(RecordedError(), "0x700 earlier.cpp");
}

TEST_F(UsedPortsInRange, NeedNoMemory) {
    int slots[4];
    int count = 4;
    EXPECT_EQ(
        WithoutMemory([&] { return TAVONetGetPortUsedInRange(slots, &count, 1, 65535, kUdp); }), 0);
    EXPECT_EQ(count, 3);
}

TEST_F(UsedPortsInRange, LeaveNoDescriptorOpen) {
    const auto before = OpenDescriptors();
    UsedPorts(kUdp);
    UsedPorts(kTcp);
    UsedPorts(kUdp, 0, 0);
    EXPECT_EQ(OpenDescriptors(), before);
}

TEST_F(UsedPortsInRange, MayBeQueriedInManyThreadsAtOnce) {
    std::vector<std::thread> threads;
    for (int thread = 0; thread < 4; ++thread) {
        threads.emplace_back([] {
            for (int turn = 0; turn < 50; ++turn) {
                EXPECT_THAT(UsedPorts(kUdp, 100, 300), ElementsAre(100, 200, 300));
            }
        });
    }
    for (std::thread &thread : threads) {
        thread.join();
    }
}

}  // namespace
}  // namespace tavo::test
