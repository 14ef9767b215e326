// The holders of ports, with real sockets and processes. The results are compared with those of a
// simple implementation that reads the kernel's tables and links.
#include <glob.h>
#include <linux/capability.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <algorithm>
#include <fstream>
#include <map>
#include <random>

#include "child_process.h"
#include "plain_sockets.h"
#include "runtime_test.h"
#include "temporary_folder.h"

namespace tavo::test {
namespace {

using testing::Contains;
using testing::ElementsAre;
using testing::EndsWith;
using testing::IsEmpty;
using testing::SizeIs;
using testing::StartsWith;

namespace fs = std::filesystem;

// ---- The simple implementation ----

std::vector<std::string> Glob(const std::string &pattern) {
    glob_t found = {};
    glob(pattern.c_str(), 0, nullptr, &found);
    std::vector<std::string> paths(found.gl_pathv, found.gl_pathv + found.gl_pathc);
    globfree(&found);
    return paths;
}

std::string LinkTarget(const std::string &path) {
    char target[1024] = "";
    return readlink(path.c_str(), target, sizeof(target) - 1) < 0 ? "" : target;
}

using PlainTable = std::map<std::string, std::string>;

PlainTable ReadTablePlainly() {
    PlainTable table;
    for (const std::string &path : Glob("/proc/*")) {
        int pid = 0;
        if (sscanf(path.c_str(), "/proc/%d", &pid) != 1) {
            break;
        }
        for (const std::string &link : Glob("/proc/" + std::to_string(pid) + "/fd/*")) {
            unsigned long inode = 0;
            const std::string target = LinkTarget(link);
            if (sscanf(target.c_str(), "socket:[%lu]", &inode) == 1 ||
                sscanf(target.c_str(), "[0000]:%lu", &inode) == 1) {
                std::string &value = table[std::to_string(inode)];
                value = std::to_string(pid) + "," + value;
            }
        }
    }
    return table;
}

std::vector<RawSocketInfo> ReadSocketsPlainly() {
    std::vector<RawSocketInfo> sockets;
    for (const std::string name : {"tcp", "tcp6", "udp", "udp6"}) {
        std::ifstream table("/proc/net/" + name);
        AddSocketsPlainly(table, name[0] == 't' ? TAVO_PROTO_TCP : TAVO_PROTO_UDP, sockets);
    }
    return sockets;
}

// The records in the form that Results returns. A process has one program, so equal texts are equal
// records.
std::vector<std::string> ReadHeldPlainly() {
    PlainTable table = ReadTablePlainly();
    std::vector<std::string> held;
    for (const RawSocketInfo &socket : ReadSocketsPlainly()) {
        std::string pids = table[std::to_string(socket.ulInode)];
        for (std::size_t end; (end = pids.find(',')) != std::string::npos; pids.erase(0, end + 1)) {
            const std::string pid = pids.substr(0, end);
            const std::string program = LinkTarget("/proc/" + pid + "/exe");
            const std::string text = PortAndProtocol(socket.uPort, socket.uProtocol) + " " + pid +
                                     " in state " + std::to_string(socket.uState) +
                                     (program.empty() ? "" : " " + program);
            if (std::find(held.begin(), held.end(), text) == held.end()) {
                held.push_back(text);
            }
        }
    }
    return held;
}

// ---- The library ----

class LiveTest : public RuntimeTest {
  protected:
    LiveTest() { RequireAppliance(); }

    static std::vector<std::string> Held() {
        const Elements held(RuntimeServiceListFetch());
        EXPECT_NE(held, nullptr);
        return Results(held.get());
    }

    // The holders of this port, as "tcp 812 in state 10 PROGRAM".
    static std::vector<std::string> HeldOf(const std::string &port) {
        std::vector<std::string> matches;
        for (const std::string &text : Held()) {
            if (text.starts_with(port + " ")) {
                matches.push_back(text.substr(port.size() + 1));
            }
        }
        return matches;
    }

    static std::string Holder(const std::string &pid, const std::string &state) {
        return pid + " in state " + state + " " + LinkTarget("/proc/self/exe");
    }

    void ExpectAsReadPlainly() {
        const Elements sockets(RawSocketInfoListFetch(TAVO_PROTO_BOTH));
        std::vector<std::string> plain;
        for (const RawSocketInfo &socket : ReadSocketsPlainly()) {
            plain.push_back(Describe(socket));
        }
        EXPECT_EQ(Sockets(sockets.get()), plain);
        std::vector<std::string> expected;
        for (const auto &[key, value] : ReadTablePlainly()) {
            expected.push_back(key + "=" + value);
        }
        std::sort(expected.begin(), expected.end());
        EXPECT_EQ(Entries(Own(InodeToPidsTableFetch()).get()), expected);
        EXPECT_EQ(Held(), ReadHeldPlainly());
        EXPECT_THAT(Messages(), IsEmpty());
    }

    const std::string self_ = std::to_string(getpid());
};

class LiveSockets : public LiveTest {};

TEST_F(LiveSockets, AreHeldOverEachFamilyAndProtocol) {
    const HeldSocket tcp(AF_INET, SOCK_STREAM, 7000);
    const HeldSocket tcp6(AF_INET6, SOCK_STREAM, 7001);
    const HeldSocket udp(AF_INET, SOCK_DGRAM, 7000);
    const HeldSocket udp6(AF_INET6, SOCK_DGRAM, 7003);
    EXPECT_THAT(HeldOf("7000"),
                ElementsAre("tcp " + Holder(self_, "10"), "udp " + Holder(self_, "7")));
    EXPECT_THAT(HeldOf("7001"), ElementsAre("tcp " + Holder(self_, "10")));
    EXPECT_THAT(HeldOf("7003"), ElementsAre("udp " + Holder(self_, "7")));
    ExpectAsReadPlainly();
}

TEST_F(LiveSockets, OfBothFamiliesCountOnce) {
    const HeldSocket v4(AF_INET, SOCK_STREAM, 7000);
    const HeldSocket v6(AF_INET6, SOCK_STREAM, 7000);
    EXPECT_THAT(HeldOf("7000"), ElementsAre("tcp " + Holder(self_, "10")));
}

TEST_F(LiveSockets, CountAtBothEndsOfAConnection) {
    const HeldSocket listener(AF_INET, SOCK_STREAM, 7000);
    const Connection connection(listener);
    EXPECT_THAT(HeldOf("7000"), testing::UnorderedElementsAre("tcp " + Holder(self_, "10"),
                                                              "tcp " + Holder(self_, "1")));
    EXPECT_THAT(HeldOf(connection.ClientPort()), ElementsAre("tcp " + Holder(self_, "1")));
    ExpectAsReadPlainly();
}

TEST_F(LiveSockets, ThatWaitForStragglersAreHeldByNobody) {
    std::string port;
    {
        const HeldSocket listener(AF_INET, SOCK_STREAM, 7000);
        const Connection connection(listener);  // its client closes first
        port = connection.ClientPort();
    }
    EXPECT_THAT(Sockets(Elements(RawSocketInfoListFetch(TAVO_PROTO_TCP)).get()),
                Contains(port + " tcp state 6 inode 0"));
    EXPECT_THAT(HeldOf(port), IsEmpty());
    ExpectAsReadPlainly();
}

TEST_F(LiveSockets, ThatProcessesShareAreHeldByEach) {
    const HeldSocket listener(AF_INET, SOCK_STREAM, 7000);
    const Process child;
    EXPECT_THAT(HeldOf("7000"), testing::UnorderedElementsAre("tcp " + Holder(self_, "10"),
                                                              "tcp " + Holder(child.Pid(), "10")));
    ExpectAsReadPlainly();
}

TEST_F(LiveSockets, HeldThroughTwoDescriptorsCountOnce) {
    const HeldSocket listener(AF_INET, SOCK_STREAM, 7000);
    const int second = dup(listener.Descriptor());
    EXPECT_THAT(Entries(Own(InodeToPidsTableFetch()).get()),
                Contains(EndsWith("=" + self_ + "," + self_ + ",")));
    EXPECT_THAT(HeldOf("7000"), ElementsAre("tcp " + Holder(self_, "10")));
    close(second);
}

TEST_F(LiveSockets, OfHundredsOfProcessesAreHeldByEach) {
    const HeldSocket listener(AF_INET, SOCK_STREAM, 7000);
    std::vector<std::unique_ptr<Process>> children;
    for (int i = 0; i < 300; ++i) {
        children.push_back(std::make_unique<Process>());
    }
    EXPECT_THAT(HeldOf("7000"), SizeIs(301));
    ExpectAsReadPlainly();
}

TEST_F(LiveSockets, AreReadAsInThePlainWayWhateverTheyAre) {
    std::mt19937 random(815);
    const auto below = [&](int end) { return static_cast<int>(random() % unsigned(end)); };
    for (int round = 0; round < 5; ++round) {
        std::vector<std::unique_ptr<HeldSocket>> sockets;
        std::vector<std::unique_ptr<Connection>> connections;
        std::vector<int> descriptors;
        const auto hold = [&](int family, int type, int port) {
            sockets.push_back(std::make_unique<HeldSocket>(family, type, port));
            descriptors.push_back(sockets.back()->Descriptor());
            if (type == SOCK_STREAM && below(3) == 0) {
                connections.push_back(std::make_unique<Connection>(*sockets.back()));
                descriptors.push_back(connections.back()->client);
                descriptors.push_back(connections.back()->server);
            }
        };
        for (int port = 20000 + 40 * round; port < 20040 + 40 * round; ++port) {
            const int type = below(2) == 0 ? SOCK_STREAM : SOCK_DGRAM;
            const int families = 1 + below(3);
            if (families != 2) {
                hold(AF_INET, type, port);
            }
            if (families != 1) {
                hold(AF_INET6, type, port);
            }
        }
        std::vector<std::unique_ptr<Process>> children;
        for (int i = 0; i < 12; ++i) {
            children.push_back(std::make_unique<Process>([&] {
                for (const int descriptor : descriptors) {
                    const int choice = below(4);
                    if (choice == 0) {
                        dup(descriptor);
                    } else if (choice < 3) {
                        close(descriptor);
                    }
                }
            }));
            below(2);  // so that the next child makes other choices
        }
        ExpectAsReadPlainly();
    }
}

TEST_F(LiveSockets, NeverReadAsFreeWithoutMemory) {
    const HeldSocket tcp(AF_INET, SOCK_STREAM, 7000);
    const HeldSocket tcp6(AF_INET6, SOCK_STREAM, 7001);
    const HeldSocket udp(AF_INET, SOCK_DGRAM, 7002);
    const HeldSocket udp6(AF_INET6, SOCK_DGRAM, 7003);
    const OwnedStrings ports = Ports({"7000", "7001", "7002", "7003"});
    int failures = 0;
    ForEachFailingAllocation([&](FailingAllocation &fail) {
        TLIBCErrSetEx(0, nullptr, 0);
        const Elements results(TAVORuntimePortConflictResultListAlloc());
        const int result = fail.During([&] {
            return TAVORuntimePortConflictCheck(ports.get(), TAVO_PROTO_BOTH, results.get());
        });
        if (result == -1) {
            EXPECT_EQ(TLIBCErrGet(), 0x200u);
            ++failures;
            return;
        }
        EXPECT_THAT(Results(results.get()),
                    ElementsAre(StartsWith("7000 tcp " + self_ + " in state 10"), "7000 udp free",
                                StartsWith("7001 tcp " + self_ + " in state 10"), "7001 udp free",
                                "7002 tcp free", StartsWith("7002 udp " + self_ + " in state 7"),
                                "7003 tcp free", StartsWith("7003 udp " + self_ + " in state 7")));
    });
    EXPECT_GT(failures, 50);
}

class LiveProcesses : public LiveTest {
  protected:
    // A copy of /usr/bin/sleep under another name.
    std::string Program(const std::string &name) const {
        const std::string path = folder_ / name;
        fs::copy_file("/usr/bin/sleep", path);
        return path;
    }

    // Executes the program so that it inherits the socket.
    static auto Holding(const HeldSocket &socket, const std::string &program) {
        return [&socket, program] {
            fcntl(socket.Descriptor(), F_SETFD, 0);
            execl(program.c_str(), program.c_str(), "1000", nullptr);
        };
    }

    TemporaryFolder folder_;
};

TEST_F(LiveProcesses, AreNamedAsTheirLinkReads) {
    for (const char *name : {"program", "my (odd) program)", "tab\t and \n newline", "(deleted)",
                             "program (deleted)", "80 tcp \xff"}) {
        const HeldSocket listener(AF_INET, SOCK_STREAM, 7000);
        const std::string program = Program(name);
        const Process process(Holding(listener, program));
        const std::string expected = "tcp " + process.Pid() + " in state 10 " + program;
        EXPECT_THAT(HeldOf("7000"), Contains(expected));
        fs::remove(program);
        EXPECT_THAT(HeldOf("7000"), Contains(expected + " (deleted)"));
        ExpectAsReadPlainly();
    }
}

TEST_F(LiveProcesses, MayComeAndGoDuringALook) {
    const HeldSocket listener(AF_INET, SOCK_STREAM, 7000);
    const std::string mine = "tcp " + Holder(self_, "10");
    prctl(PR_SET_CHILD_SUBREAPER, 1);
    const pid_t breeder = fork();
    if (breeder == 0) {
        close(listener.Descriptor());
        prctl(PR_SET_PDEATHSIG, SIGKILL);
        for (;;) {
            const pid_t child = fork();
            if (child == 0) {
                socket(AF_INET, SOCK_STREAM, 0);
                _exit(0);
            }
            waitpid(child, nullptr, 0);
        }
    }
    for (int i = 0; i < 1000; ++i) {
        const OwnedHash table = Own(InodeToPidsTableFetch());
        EXPECT_THAT(Entries(table.get()), Contains(testing::ContainsRegex("[=,]" + self_ + ",")));
        if (i % 10 == 0) {
            EXPECT_THAT(HeldOf("7000"), Contains(mine));
        }
    }
    kill(breeder, SIGKILL);
    while (wait(nullptr) > 0) {
        // Wait for the breeder and its last child, which holds a socket until it ends.
    }
    prctl(PR_SET_CHILD_SUBREAPER, 0);
    EXPECT_THAT(Messages(), IsEmpty());
    EXPECT_EQ(ErrorState(), "0x0 ");
}

// Drops all capabilities of root.
void DropCapabilities() {
    __user_cap_header_struct header = {_LINUX_CAPABILITY_VERSION_3, 0};
    __user_cap_data_struct none[2] = {};
    Check(syscall(SYS_capset, &header, none) == 0, "capset");
}

// Returns the result of `look` in a child process without capabilities.
int WithoutRights(const std::function<int()> &look) {
    return StatusInChild([&] {
        DropCapabilities();
        return look();
    });
}

TEST_F(LiveProcesses, ThatMayNotBeLookedAtHoldNothing) {
    std::unique_ptr<HeldSocket> listener = std::make_unique<HeldSocket>(AF_INET, SOCK_STREAM, 7000);
    // A process that is not dumpable can be read by root only.
    const Process secret([] { prctl(PR_SET_DUMPABLE, 0); });
    listener.reset();
    EXPECT_THAT(HeldOf("7000"), ElementsAre(StartsWith("tcp " + secret.Pid())));
    EXPECT_EQ(WithoutRights([] { return static_cast<int>(HeldOf("7000").size()); }), 0);
    const auto pid = static_cast<uint32_t>(std::stoul(secret.Pid()));
    EXPECT_EQ(WithoutRights([&] { return ProgramCommandFetch(pid) == nullptr ? 7 : 8; }), 7);
    EXPECT_THAT(Messages(), IsEmpty());
}

TEST_F(LiveProcesses, AreNotLookedAtWithoutAFreeDescriptor) {
    const HeldSocket listener(AF_INET, SOCK_STREAM, 7000);
    rlimit limit = {};
    getrlimit(RLIMIT_NOFILE, &limit);
    const rlimit none = {.rlim_cur = 0, .rlim_max = limit.rlim_max};
    setrlimit(RLIMIT_NOFILE, &none);
    const OwnedHash table = Own(InodeToPidsTableFetch());
    const OwnedStrings pids = Own(FetchPidList());
    const Elements held(RuntimeServiceListFetch());
    setrlimit(RLIMIT_NOFILE, &limit);
    EXPECT_EQ(table, nullptr);
    ASSERT_NE(pids, nullptr);
    EXPECT_THAT(Texts(pids.get()), IsEmpty());
    EXPECT_EQ(held, nullptr);
    EXPECT_EQ(TLIBCErrGet(), 0x900u);
    EXPECT_THAT(Messages(),
                ElementsAre("Failed to list /proc.[0x0900]", "Failed to list /proc.[0x0900]",
                            "Failed to InodeToPidsTableFetch"));
}

// The kernel cannot return the link target of such a file.
TEST_F(LiveProcesses, MayHaveAFileWhosePathIsLongerThanAPage) {
    std::unique_ptr<HeldSocket> listener = std::make_unique<HeldSocket>(AF_INET, SOCK_STREAM, 7000);
    const Process process([this] {
        const std::string name(200, 'x');
        const std::string base = folder_ / "";
        Check(chdir(base.c_str()) == 0, "chdir");
        for (int i = 0; i < 30; ++i) {
            Check(mkdir(name.c_str(), 0700) == 0 && chdir(name.c_str()) == 0, "mkdir");
        }
        Check(open("file", O_CREAT | O_RDONLY, 0600) >= 0, "open");
    });
    listener.reset();
    char target[8];
    bool too_long = false;
    for (const std::string &link : Glob("/proc/" + process.Pid() + "/fd/*")) {
        too_long = too_long ||
                   (readlink(link.c_str(), target, sizeof(target)) < 0 && errno == ENAMETOOLONG);
    }
    EXPECT_TRUE(too_long);
    EXPECT_THAT(HeldOf("7000"), ElementsAre("tcp " + Holder(process.Pid(), "10")));
    EXPECT_THAT(Messages(), IsEmpty());
}

}  // namespace
}  // namespace tavo::test
