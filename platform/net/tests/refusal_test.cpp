// Tests the result if the kernel refuses the library's system calls. A refusal lasts until the
// process ends, so each case runs in a child process.
#include "refusal.h"

#include <fcntl.h>
#include <sys/mman.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <sys/wait.h>

#include <functional>

#include "child_process.h"
#include "failing_allocation.h"
#include "sockets.h"
#include "temporary_folder.h"
#include "used_ports.h"

namespace tavo::test {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

constexpr int kSlots = 8;
constexpr int kUntouched = -7;

struct Answer {
    int result = kUntouched;
    unsigned int error = 0;
    char source[32] = "";
    int count = kSlots;
    int slots[kSlots];

    std::vector<int> Ports() const { return {slots, slots + count}; }
};

void Ask(Transport transport, Answer &answer) {
    std::fill_n(answer.slots, kSlots, kUntouched);
    TLIBCErrSetEx(0, nullptr, 0);
    answer.result = TAVONetGetPortUsedInRange(answer.slots, &answer.count, 1, 65535, transport);
    answer.error = TLIBCErrGet();
    std::snprintf(answer.source, sizeof(answer.source), "%s", TLIBCErrorGetFile());
}

// The number of open descriptors, counted without system calls that a test refuses.
int CountDescriptors() {
    int open = 0;
    for (int fd = 0; fd < 256; ++fd) {
        open += fcntl(fd, F_GETFD) >= 0 ? 1 : 0;
    }
    return open;
}

// The result of the library in a child process after `refuse`. It must leave no descriptor open.
Answer AskAfter(const std::function<void()> &refuse, Transport transport = kTcp) {
    void *shared =
        mmap(nullptr, sizeof(Answer), PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0);
    auto *answer = new (shared) Answer;
    const int status = StatusInChild([&] {
        const int before = CountDescriptors();
        refuse();
        Ask(transport, *answer);
        return CountDescriptors() == before ? 0 : 1;
    });
    EXPECT_EQ(status, 0) << "a descriptor stays open, or nothing was refused";
    const Answer copy = *answer;
    munmap(shared, sizeof(Answer));
    return copy;
}

void RefuseNetlink() {
    RefuseWhere(SYS_socket, EPERM, 0, ~0u, AF_NETLINK);
}

void ExpectUnreadable(const Answer &answer) {
    EXPECT_EQ(answer.result, -1);
    EXPECT_EQ(answer.error, 0x900u);
    EXPECT_STREQ(answer.source, "used_ports.cpp");
    EXPECT_EQ(answer.count, kSlots);
    EXPECT_THAT(answer.slots, testing::Each(kUntouched));
}

class RefusalTest : public testing::Test {
  protected:
    const Socket sockets_[4] = {Listener(AF_INET, 80), Listener(AF_INET6, 443),
                                UdpSocket(AF_INET, 53), UdpSocket(AF_INET6, 123)};

    static void ExpectAll(const std::function<void()> &refuse) {
        for (const Transport transport : {kTcp, kUdp}) {
            const Answer answer = AskAfter(refuse, transport);
            EXPECT_EQ(answer.result, 0);
            EXPECT_EQ(answer.error, 0u);
            if (transport == kTcp) {
                EXPECT_THAT(answer.Ports(), ElementsAre(80, 443));
            } else {
                EXPECT_THAT(answer.Ports(), ElementsAre(53, 123));
            }
        }
    }
};

TEST_F(RefusalTest, TablesAreUsedIfTheDiagnosticsSocketIsRefused) {
    for (const int error : {EPERM, EACCES, EPROTONOSUPPORT, EAFNOSUPPORT, EMFILE}) {
        ExpectAll([&] { RefuseWhere(SYS_socket, error, 0, ~0u, AF_NETLINK); });
    }
}

TEST_F(RefusalTest, TablesAreUsedIfALaterStepIsRefused) {
    for (const long call : {SYS_setsockopt, SYS_sendto, SYS_recvfrom}) {
        ExpectAll([&] { Refuse(call, ENOBUFS); });
    }
}

// Programs that other threads start must not inherit descriptors.
TEST_F(RefusalTest, EveryDescriptorIsClosedOnExec) {
    ExpectAll([] {
        RefuseWhere(SYS_socket, EPERM, 1, SOCK_CLOEXEC, 0);
        Refuse(SYS_openat, EACCES);
    });
    ExpectAll([] {
        RefuseNetlink();
        RefuseWhere(SYS_openat, EACCES, 2, O_CLOEXEC, 0);
    });
}

TEST_F(RefusalTest, DiagnosticsNeedNoTables) {
    ExpectAll([] { Refuse(SYS_openat, EACCES); });
}

TEST_F(RefusalTest, FailsIfTheTablesCannotBeOpenedEither) {
    for (const int error : {EACCES, ENOENT, EMFILE}) {
        ExpectUnreadable(AskAfter([&] {
            RefuseNetlink();
            Refuse(SYS_openat, error);
        }));
    }
}

// A socket without a receive timeout could block the caller forever.
TEST_F(RefusalTest, ASocketWithoutATimeoutIsNotUsed) {
    ExpectUnreadable(AskAfter([] {
        Refuse(SYS_setsockopt, EPERM);
        Refuse(SYS_openat, EACCES);
    }));
}

TEST_F(RefusalTest, FailsIfTheTablesCannotBeReadEither) {
    ExpectUnreadable(AskAfter([] {
        RefuseNetlink();
        Refuse(SYS_read, EIO);
    }));
}

TEST_F(RefusalTest, FailsWithoutAFreeDescriptor) {
    ExpectUnreadable(AskAfter([] {
        rlimit limit;
        getrlimit(RLIMIT_NOFILE, &limit);
        limit.rlim_cur = 3;
        setrlimit(RLIMIT_NOFILE, &limit);
    }));
}

TEST_F(RefusalTest, TheTablesNeedNoMemory) {
    const Answer answer = AskAfter([] {
        RefuseNetlink();
        Answer ignored;
        FailingAllocation all(1, FailingAllocation::Mode::kFromNthOn);
        all.During([&] { Ask(kTcp, ignored); });
        if (all.Hit()) {
            _exit(2);
        }
    });
    EXPECT_EQ(answer.result, 0);
}

// A root folder that contains only tables, with ports of another machine.
class ForeignTables : public RefusalTest {
  protected:
    ForeignTables() {
        mkdir((root_ / "proc").c_str(), 0755);
        mkdir((root_ / "proc/net").c_str(), 0755);
    }

    void Write(const std::string &name, const std::string &port) const {
        root_.Write("proc/net/" + name,
                    "  sl  local_address rem_address   st\n"
                    "   0: 0100007F:" +
                        port + " 00000000:0000 07 00000000:00000000\n");
    }

    Answer AskInside(Transport transport) const {
        return AskAfter(
            [&] {
                RefuseNetlink();
                if (chroot(root_.Path().c_str()) != 0) {
                    _exit(2);
                }
            },
            transport);
    }

    const TemporaryFolder root_;
};

TEST_F(ForeignTables, AreThoseOfTheTransport) {
    Write("tcp", "0001");
    Write("tcp6", "0002");
    Write("udp", "0003");
    Write("udp6", "0004");
    EXPECT_THAT(AskInside(kTcp).Ports(), ElementsAre(1, 2));
    EXPECT_THAT(AskInside(kUdp).Ports(), ElementsAre(3, 4));
}

TEST_F(ForeignTables, AreOneOnAHostWithoutIpv6) {
    Write("tcp", "0001");
    const Answer answer = AskInside(kTcp);
    EXPECT_EQ(answer.result, 0);
    EXPECT_EQ(answer.error, 0u);
    EXPECT_THAT(answer.Ports(), ElementsAre(1));
    ExpectUnreadable(AskInside(kUdp));
}

TEST_F(ForeignTables, PortZeroIsIgnored) {
    Write("udp", "0000");
    const Answer answer = AskInside(kUdp);
    EXPECT_EQ(answer.result, 0);
    EXPECT_THAT(answer.Ports(), IsEmpty());
}

}  // namespace
}  // namespace tavo::test
