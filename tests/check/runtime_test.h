// Shared by the tests of the runtime check: processes that hold sockets, a staged /proc, and texts
// for records.
#ifndef TAVO_TESTS_CHECK_RUNTIME_TEST_H
#define TAVO_TESTS_CHECK_RUNTIME_TEST_H

#include <fcntl.h>
#include <gmock/gmock.h>
#include <signal.h>
#include <sys/mount.h>
#include <sys/prctl.h>
#include <sys/wait.h>

#include <algorithm>
#include <cerrno>
#include <filesystem>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <system_error>
#include <vector>

#include "check_test.h"
#include "failing_allocation.h"
#include "held_socket.h"
#include "library_test.h"
#include "require_appliance.h"
#include "temporary_folder.h"

namespace tavo::test {

// Throws if a system call failed.
inline void Check(bool done, const char *what) {
    if (!done) {
        throw std::system_error(errno, std::generic_category(), what);
    }
}

// A process that calls `run`, which may execute a program, and then waits. The destructor kills it.
class Process {
  public:
    explicit Process(const std::function<void()> &run = [] {}) {
        int ready[2];
        Check(pipe2(ready, O_CLOEXEC) == 0, "pipe2");
        pid_ = fork();
        if (pid_ == 0) {
            prctl(PR_SET_PDEATHSIG, SIGKILL);
            close(ready[0]);
            run();
            close(ready[1]);
            for (;;) {
                pause();
            }
        }
        close(ready[1]);
        char nothing = 0;
        Check(pid_ > 0 && read(ready[0], &nothing, 1) == 0, "fork");
        close(ready[0]);
    }
    ~Process() {
        kill(pid_, SIGKILL);
        waitpid(pid_, nullptr, 0);
    }
    Process(const Process &) = delete;
    Process &operator=(const Process &) = delete;

    std::string Pid() const { return std::to_string(pid_); }

  private:
    pid_t pid_;
};

// Both ends of a loopback connection to `listener`.
struct Connection {
    int client = -1;
    int server = -1;

    explicit Connection(const HeldSocket &listener) {
        sockaddr_in6 address = {};
        socklen_t size = sizeof(address);
        auto *any = reinterpret_cast<sockaddr *>(&address);
        Check(getsockname(listener.Descriptor(), any, &size) == 0, "getsockname");
        client = socket(any->sa_family, SOCK_STREAM | SOCK_CLOEXEC, 0);
        Check(connect(client, any, size) == 0, "connect");
        server = accept4(listener.Descriptor(), nullptr, nullptr, SOCK_CLOEXEC);
        Check(server >= 0, "accept4");
    }
    ~Connection() {
        close(client);
        close(server);
    }
    Connection(const Connection &) = delete;
    Connection &operator=(const Connection &) = delete;

    std::string ClientPort() const {
        sockaddr_in address = {};
        socklen_t size = sizeof(address);
        Check(getsockname(client, reinterpret_cast<sockaddr *>(&address), &size) == 0,
              "getsockname");
        return std::to_string(ntohs(address.sin_port));
    }
};

// A line of a socket table, with the kernel's field widths.
inline std::string SocketLine(unsigned port, unsigned state, unsigned long inode) {
    char line[256];
    snprintf(line, sizeof(line),
             "   0: 0100007F:%04X 00000000:0000 %02X 00000000:00000000 00:00000000 00000000     0"
             "        0 %lu 1 0000000000000000 100 0 0 10 0\n",
             port, state, inode);
    return line;
}

constexpr char kTableHeader[] =
    "  sl  local_address rem_address   st tx_queue rx_queue tr tm->when retrnsmt   uid  timeout "
    "inode\n";

// A staged /proc during the lifetime of this object, with four empty socket tables and no process.
class StagedProc {
  public:
    StagedProc() {
        RequireAppliance();
        Check(mount("tmpfs", "/proc", "tmpfs", 0, "") == 0, "mount");
        std::filesystem::create_directory("/proc/net");
        for (const char *table : {"tcp", "tcp6", "udp", "udp6"}) {
            Table(table, "");
        }
    }
    ~StagedProc() { umount2("/proc", MNT_DETACH); }
    StagedProc(const StagedProc &) = delete;
    StagedProc &operator=(const StagedProc &) = delete;

    static void Table(const std::string &name, const std::string &lines) {
        WriteFile("/proc/net/" + name, kTableHeader + lines);
    }

    // Adds a process whose descriptors, numbered from 0, are links to `targets`.
    static void AddProcess(const std::string &pid, const std::vector<std::string> &targets,
                           const std::string &program = "/bin/program") {
        const std::filesystem::path folder = "/proc/" + pid;
        std::filesystem::create_directories(folder / "fd");
        for (std::size_t i = 0; i < targets.size(); ++i) {
            std::filesystem::create_symlink(targets[i], folder / "fd" / std::to_string(i));
        }
        if (!program.empty()) {
            std::filesystem::create_symlink(program, folder / "exe");
        }
    }
};

using OwnedStrings = std::unique_ptr<TLIBCSzList, decltype(&TLIBCSzListFree)>;
using OwnedHash = std::unique_ptr<TLIBCSzHash, decltype(&TLIBCSzHashFree)>;

inline OwnedStrings Own(TLIBCSzList *pList) {
    return {pList, TLIBCSzListFree};
}
inline OwnedHash Own(TLIBCSzHash *pHash) {
    return {pHash, TLIBCSzHashFree};
}

inline OwnedStrings Ports(const std::vector<std::string> &ports) {
    TLIBCSzList *pList = TLIBCSzListAlloc(0);
    for (const std::string &port : ports) {
        TLIBCSzListPush(&pList, port.c_str());
    }
    return Own(pList);
}

inline std::vector<std::string> Texts(const TLIBCSzList *pList) {
    std::vector<std::string> strings;
    for (int i = 0; i < TLIBCSzListCount(pList); ++i) {
        strings.emplace_back(TLIBCSzListGet(pList, i));
    }
    return strings;
}

// The entries of a table as "KEY=VALUE", sorted.
inline std::vector<std::string> Entries(const TLIBCSzHash *pHash) {
    std::vector<std::string> entries;
    const char *szKey = nullptr;
    const char *szValue = nullptr;
    for (int i = 0; TLIBCSzHashEnum(pHash, i, &szKey, &szValue) == 0; ++i) {
        entries.push_back(szKey + std::string("=") + szValue);
    }
    std::sort(entries.begin(), entries.end());
    return entries;
}

// A record as text, such as "80 tcp state 10 inode 8123".
inline std::string Describe(const RawSocketInfo &info) {
    return PortAndProtocol(info.uPort, info.uProtocol) + " state " + std::to_string(info.uState) +
           " inode " + std::to_string(info.ulInode);
}

// The records of a list of sockets, in list order.
inline std::vector<std::string> Sockets(const TLIBCDList *pList) {
    std::vector<std::string> texts;
    for (auto *pNode = TLIBCDListFirst(pList); pNode != nullptr; pNode = TLIBCDListNext(pNode)) {
        texts.push_back(Describe(*static_cast<const RawSocketInfo *>(TLIBCDListElement(pNode))));
    }
    return texts;
}

// The records of a list of held ports.
inline std::vector<std::string> Results(const TLIBCDList *pList) {
    return Describe<TAVO_RUNTIME_PORT_CONFLICT_RESULT>(pList);
}

// Matches a record with or without its program. If only the program cannot be allocated, this is
// not reported as an error.
inline auto MayLackProgram(const std::string &text) {
    return testing::AnyOf(text, text.substr(0, text.find(" /")));
}

// Checks that no test leaves a descriptor open.
class RuntimeTest : public LibraryTest {
  protected:
    void TearDown() override { EXPECT_EQ(OpenDescriptors(), open_); }

    // The descriptors are found without /proc, because tests replace it.
    static std::vector<int> Descriptors(const std::function<bool(int)> &that) {
        std::vector<int> descriptors;
        for (int fd = 0; fd < 1024; ++fd) {
            const int flags = fcntl(fd, F_GETFD);
            if (flags >= 0 && that(flags)) {
                descriptors.push_back(fd);
            }
        }
        return descriptors;
    }
    static std::vector<int> OpenDescriptors() {
        return Descriptors([](int) { return true; });
    }
    // The descriptors that a program would inherit if it were started now.
    static std::vector<int> InheritedDescriptors() {
        return Descriptors([](int flags) { return (flags & FD_CLOEXEC) == 0; });
    }

  private:
    std::vector<int> open_ = OpenDescriptors();
};

// Runs with a staged /proc.
class StagedTest : public RuntimeTest {
  protected:
    static std::vector<std::string> Pids() { return Texts(Own(FetchPidList()).get()); }
    static std::vector<std::string> Table() { return Entries(Own(InodeToPidsTableFetch()).get()); }
    static std::vector<std::string> Held() {
        return Results(Elements(RuntimeServiceListFetch()).get());
    }

    // Calls `call` with each allocation failing in turn and passes its result to `look`. Each
    // failure must set the error state, unless `look` returns true because it had no effect.
    // Returns all log messages.
    template <typename Call, typename Look>
    std::vector<std::string> WithoutMemory(Call call, Look look) {
        std::vector<std::string> messages;
        EXPECT_GT(ForEachFailingAllocation([&](FailingAllocation &fail) {
                      TLIBCErrSetEx(0, nullptr, 0);
                      log_.Clear();
                      const auto result = fail.During(call);
                      const bool harmless = look(result);
                      EXPECT_TRUE(harmless || (fail.Hit() && TLIBCErrGet() == 0x200));
                      const std::vector<std::string> more = Messages();
                      messages.insert(messages.end(), more.begin(), more.end());
                  }),
                  0);
        return messages;
    }

    StagedProc proc_;
};

}  // namespace tavo::test

#endif
