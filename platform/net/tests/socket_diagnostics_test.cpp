// Tests the parsing of dumps with a stand-in for the kernel that sends messages no kernel would.
#include "socket_diagnostics.h"

#include <arpa/inet.h>
#include <gmock/gmock.h>
#include <linux/inet_diag.h>
#include <linux/netlink.h>
#include <linux/sock_diag.h>
#include <netinet/in.h>
#include <signal.h>
#include <sys/socket.h>
#include <sys/time.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cstring>
#include <iostream>
#include <ostream>
#include <random>
#include <string>
#include <thread>
#include <vector>

namespace tavo {
namespace {

using std::chrono::milliseconds;
using std::chrono::seconds;
using std::chrono::steady_clock;
using testing::ElementsAre;
using testing::IsEmpty;

constexpr PortRange kEveryPort = {1, 65535};

template <typename Value>
std::string Bytes(const Value &value) {
    return {reinterpret_cast<const char *>(&value), sizeof(value)};
}

std::string Message(int type, std::uint32_t sequence, const std::string &body, int flags = 0) {
    nlmsghdr header = {};
    header.nlmsg_len = static_cast<std::uint32_t>(sizeof(header) + body.size());
    header.nlmsg_type = static_cast<std::uint16_t>(type);
    header.nlmsg_flags = static_cast<std::uint16_t>(NLM_F_MULTI | flags);
    header.nlmsg_seq = sequence;
    return Bytes(header) + body;
}

std::string SocketBody(int port) {
    inet_diag_msg socket = {};
    socket.id.idiag_sport = htons(static_cast<std::uint16_t>(port));
    return Bytes(socket);
}

std::string SocketAt(int port, std::uint32_t sequence = 1, int flags = 0) {
    return Message(SOCK_DIAG_BY_FAMILY, sequence, SocketBody(port), flags);
}

std::string Done(int result = 0, std::uint32_t sequence = 1, int flags = 0) {
    return Message(NLMSG_DONE, sequence, Bytes(result), flags);
}

// A message of this size without contents.
std::string Filler(std::size_t size) {
    return Message(NLMSG_NOOP, 1, std::string(size - sizeof(nlmsghdr), 'x'));
}

std::string WithLength(std::string message, std::uint32_t length) {
    std::memcpy(message.data(), &length, sizeof(length));
    return message;
}

struct Request {
    nlmsghdr header;
    inet_diag_req_v2 sockets;
};

// Sends the given datagrams and records the requests.
class DiagnosticsTest : public testing::Test {
  protected:
    DiagnosticsTest() {
        EXPECT_EQ(socketpair(AF_UNIX, SOCK_SEQPACKET, 0, ends_), 0);
        // Larger than any datagram of the tests.
        const int room = 1 << 20;
        EXPECT_EQ(setsockopt(ends_[kKernel], SOL_SOCKET, SO_SNDBUF, &room, sizeof(room)), 0);
        Patience(milliseconds(20));
    }
    ~DiagnosticsTest() override {
        close(ends_[kLibrary]);
        HangUp();
    }

    void Patience(milliseconds time) {
        const timeval limit = {0, time.count() * 1000};
        EXPECT_EQ(setsockopt(ends_[kLibrary], SOL_SOCKET, SO_RCVTIMEO, &limit, sizeof(limit)), 0);
    }

    void Answer(const std::string &datagram) {
        EXPECT_EQ(send(ends_[kKernel], datagram.data(), datagram.size(), 0),
                  static_cast<ssize_t>(datagram.size()));
    }

    void HangUp() {
        if (ends_[kKernel] >= 0) {
            close(ends_[kKernel]);
            ends_[kKernel] = -1;
        }
    }

    bool Ask() { return AskForSockets(ends_[kLibrary], AF_INET6, IPPROTO_TCP, kEveryPort, ports_); }

    std::vector<Request> Asked() {
        std::vector<Request> requests;
        Request request;
        while (recv(ends_[kKernel], &request, sizeof(request), MSG_DONTWAIT) > 0) {
            requests.push_back(request);
        }
        return requests;
    }

    std::vector<int> Ports() const {
        std::vector<int> ports;
        for (std::size_t port = 0; port < ports_.size(); ++port) {
            if (ports_[port]) {
                ports.push_back(static_cast<int>(port));
            }
        }
        return ports;
    }

    enum { kLibrary, kKernel };
    int ends_[2] = {-1, -1};
    PortSet ports_;
};

TEST_F(DiagnosticsTest, AskForADumpOfEveryStateButTimeWait) {
    Answer(Done());
    ASSERT_TRUE(Ask());
    const std::vector<Request> asked = Asked();
    ASSERT_EQ(asked.size(), 1u);
    EXPECT_EQ(asked[0].header.nlmsg_type, SOCK_DIAG_BY_FAMILY);
    EXPECT_EQ(asked[0].header.nlmsg_flags, NLM_F_REQUEST | NLM_F_DUMP);
    EXPECT_EQ(asked[0].sockets.sdiag_family, AF_INET6);
    EXPECT_EQ(asked[0].sockets.sdiag_protocol, IPPROTO_TCP);
    EXPECT_EQ(asked[0].sockets.idiag_states, 0xFFFFFFFFu - 64u);
}

TEST_F(DiagnosticsTest, MarkThePortOfEveryMessage) {
    Answer(SocketAt(80) + SocketAt(443));
    Answer(SocketAt(65535));
    Answer(SocketAt(80) + Done());
    EXPECT_TRUE(Ask());
    EXPECT_THAT(Ports(), ElementsAre(80, 443, 65535));
}

TEST_F(DiagnosticsTest, SkipTheAttributesOfAMessage) {
    Answer(Message(SOCK_DIAG_BY_FAMILY, 1, SocketBody(80) + std::string(52, 'x')) + SocketAt(443) +
           Done());
    EXPECT_TRUE(Ask());
    EXPECT_THAT(Ports(), ElementsAre(80, 443));
}

TEST_F(DiagnosticsTest, IgnoreMessagesOfAnotherRequest) {
    Answer(SocketAt(80, 7) + Done(-ENOENT, 7) + Message(NLMSG_ERROR, 7, ""));
    Answer(SocketAt(443) + Message(NLMSG_NOOP, 1, "") + Done());
    EXPECT_TRUE(Ask());
    EXPECT_THAT(Ports(), ElementsAre(443));
}

TEST_F(DiagnosticsTest, AcceptADatagramOfTheLargestSize) {
    Answer(Filler(32768 - SocketAt(80).size()) + SocketAt(80));
    Answer(Done());
    EXPECT_TRUE(Ask());
    EXPECT_THAT(Ports(), ElementsAre(80));
}

struct Broken {
    const char *name;
    std::string datagram;
};

void PrintTo(const Broken &broken, std::ostream *out) {
    *out << broken.name;
}

// A dump that contains one such datagram fails.
class BrokenDump : public DiagnosticsTest, public testing::WithParamInterface<Broken> {};

TEST_P(BrokenDump, IsRejected) {
    Answer(SocketAt(80));
    Answer(GetParam().datagram);
    Answer(Done());
    EXPECT_FALSE(Ask());
    EXPECT_EQ(Asked().size(), 1u) << "asking again cannot help";
}

INSTANTIATE_TEST_SUITE_P(
    Diagnostics, BrokenDump,
    testing::Values(
        Broken{"Refused", Message(NLMSG_ERROR, 1, Bytes(-EPERM))},
        Broken{"Acknowledged", Message(NLMSG_ERROR, 1, Bytes(0))},
        Broken{"NoModuleForTheProtocol", Done(-ENOENT)},
        Broken{"MessagesLost", Message(NLMSG_OVERRUN, 1, "")},
        Broken{"MessageOfAnotherKind", Message(SOCK_DIAG_BY_FAMILY + 1, 1, SocketBody(80))},
        Broken{"NoSocketInIt", Message(SOCK_DIAG_BY_FAMILY, 1, "")},
        Broken{"LessThanASocket", Message(SOCK_DIAG_BY_FAMILY, 1, SocketBody(80).substr(1))},
        Broken{"LengthZero", WithLength(SocketAt(80), 0)},
        Broken{"ShorterThanItsHeader", WithLength(SocketAt(80), sizeof(nlmsghdr) - 1)},
        Broken{"LongerThanTheDatagram", WithLength(SocketAt(80), 89)},
        Broken{"LongerThanAnything", WithLength(SocketAt(80), 0xFFFFFFFF)},
        Broken{"HalfAHeader", SocketAt(80).substr(0, sizeof(nlmsghdr) - 1)},
        Broken{"BytesAfterTheLast", SocketAt(80) + "x"},
        Broken{"CutToFitTheBuffer", Filler(32768) + SocketAt(80)}),
    [](const auto &test) { return test.param.name; });

TEST_F(DiagnosticsTest, EndWithoutAResultAsWithOne) {
    Answer(SocketAt(80) + Message(NLMSG_DONE, 1, ""));
    EXPECT_TRUE(Ask());
    EXPECT_THAT(Ports(), ElementsAre(80));
}

TEST_F(DiagnosticsTest, AskAgainIfTheDumpWasInconsistent) {
    Answer(SocketAt(80) + SocketAt(81, 1, NLM_F_DUMP_INTR) + SocketAt(82) + Done());
    Answer(SocketAt(80, 2) + SocketAt(443, 2) + Done(0, 2));
    EXPECT_TRUE(Ask());
    EXPECT_THAT(Ports(), testing::IsSupersetOf({80, 443}));
    const std::vector<Request> asked = Asked();
    ASSERT_EQ(asked.size(), 2u);
    EXPECT_EQ(asked[0].header.nlmsg_seq, 1u);
    EXPECT_EQ(asked[1].header.nlmsg_seq, 2u);
}

TEST_F(DiagnosticsTest, AskThreeTimesAtMost) {
    for (const std::uint32_t sequence : {1u, 2u, 3u, 4u}) {
        Answer(SocketAt(80, sequence) + Done(0, sequence, NLM_F_DUMP_INTR));
    }
    EXPECT_FALSE(Ask());
    EXPECT_EQ(Asked().size(), 3u);
}

TEST_F(DiagnosticsTest, GiveUpOnASilentKernel) {
    Answer(SocketAt(80));
    EXPECT_FALSE(Ask());
}

TEST_F(DiagnosticsTest, GiveUpOnAKernelThatHangsUp) {
    Answer(SocketAt(80));
    ASSERT_EQ(shutdown(ends_[kKernel], SHUT_WR), 0);
    EXPECT_FALSE(Ask());
}

TEST_F(DiagnosticsTest, SurviveAKernelThatDoesNotListen) {
    HangUp();
    EXPECT_FALSE(Ask());
    EXPECT_THAT(Ports(), IsEmpty());
}

// A signal every few milliseconds that interrupts system calls.
class FastTimer {
  public:
    FastTimer() {
        struct sigaction action = {};
        action.sa_handler = [](int) {};
        sigaction(SIGALRM, &action, &before_);
        Every(5000);
    }
    ~FastTimer() {
        Every(0);
        sigaction(SIGALRM, &before_, nullptr);
    }
    FastTimer(const FastTimer &) = delete;
    FastTimer &operator=(const FastTimer &) = delete;

  private:
    static void Every(int microseconds) {
        const itimerval interval = {{0, microseconds}, {0, microseconds}};
        setitimer(ITIMER_REAL, &interval, nullptr);
    }

    struct sigaction before_;
};

TEST_F(DiagnosticsTest, KeepWaitingAfterASignal) {
    Patience(milliseconds(900));
    std::thread kernel([&] {
        sigset_t timer;
        sigemptyset(&timer);
        sigaddset(&timer, SIGALRM);
        pthread_sigmask(SIG_BLOCK, &timer, nullptr);
        std::this_thread::sleep_for(milliseconds(100));
        Answer(SocketAt(80) + Done());
    });
    {
        const FastTimer timer;
        EXPECT_TRUE(Ask());
    }
    kernel.join();
    EXPECT_THAT(Ports(), ElementsAre(80));
}

TEST_F(DiagnosticsTest, GiveUpOnASilentKernelDespiteSignals) {
    Patience(milliseconds(900));
    const steady_clock::time_point start = steady_clock::now();
    const FastTimer timer;
    EXPECT_FALSE(Ask());
    EXPECT_LT(steady_clock::now() - start, seconds(20));
}

TEST_F(DiagnosticsTest, SurviveAnyBytes) {
    const unsigned int seed = std::random_device()();
    std::cout << "seed " << seed << '\n';
    std::mt19937 random(seed);
    const auto below = [&](std::size_t bound) { return random() % bound; };
    for (int turn = 0; turn < 5000; ++turn) {
        std::string datagram;
        for (std::size_t message = below(4) + 1; message > 0; --message) {
            datagram += below(3) == 0 ? Done() : SocketAt(80);
        }
        for (std::size_t change = below(4); change > 0; --change) {
            // Usually in the fields of a header, where it matters.
            const std::size_t at = below(2) == 0 ? below(8) : below(datagram.size());
            datagram[at] = static_cast<char>(below(2) == 0 ? below(256) : below(4));
        }
        datagram.resize(std::max<std::size_t>(below(datagram.size() * 2) + 1, 4), '\0');
        Answer(datagram);
        Answer(Message(NLMSG_ERROR, 1, ""));
        Ask();
        char rest[65536];
        while (recv(ends_[kLibrary], rest, sizeof(rest), MSG_DONTWAIT) > 0) {
        }
        Asked();
    }
}

}  // namespace
}  // namespace tavo
