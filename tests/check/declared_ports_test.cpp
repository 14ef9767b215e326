// The configuration check with many and wide ranges, and with sources that cannot be read.
#include <gmock/gmock.h>
#include <sys/resource.h>
#include <unistd.h>

#include <algorithm>
#include <fstream>
#include <functional>
#include <utility>

#include "child_process.h"
#include "conf_check_test.h"
#include "failing_allocation.h"

namespace tavo::test {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

// ---- Many and wide ranges ----

class WideRanges : public DeclaredPortsTest {
  protected:
    // Returns the result of `ask` in a child process that may allocate at most `bytes` more memory.
    static int WithMemory(std::size_t bytes, const std::function<int()> &ask) {
        return StatusInChild([&] {
            std::size_t pages = 0;
            std::ifstream("/proc/self/statm") >> pages;
            const rlim_t limit = pages * static_cast<std::size_t>(getpagesize()) + bytes;
            const rlimit none_above = {limit, limit};
            setrlimit(RLIMIT_AS, &none_above);
            return ask();
        });
    }

    // The number of services that declare the port over TCP; 255 on failure.
    static int Declarers(const char *port) {
        const Strings ports = PortList({port});
        const Elements results = NewResults();
        if (TAVOConfPortConflictCheck(ports.get(), TAVO_PROTO_TCP, results.get()) != 0) {
            return 255;
        }
        const Lines found = Describe<Result>(results.get());
        return static_cast<int>(
            std::count(found.begin(), found.end(), port + std::string(" tcp web")));
    }
};

constexpr std::size_t kMegabyte = 1 << 20;

TEST_F(WideRanges, TakeNoMemoryForPortsThatNobodyAsksFor) {
    std::string ports = "1:65535";
    for (int i = 1; i < 100; ++i) {
        ports += ",1:65535";
    }
    WriteFile(std::string(kPackageServices) + "/web.sc",
              "[web]\ntitle=T\ndesc=D\ndst.ports=\"" + ports + "/tcp\"\n");
    EXPECT_EQ(WithMemory(8 * kMegabyte, [] { return Declarers("4711"); }), 100);
}

TEST_F(WideRanges, TakeLessThan64BytesEach) {
    constexpr std::size_t kRanges = 500000;
    const OfferedServices offered({{"web", TAVO_PROTO_TCP, Lines(kRanges, "1-65534")}});
    EXPECT_EQ(WithMemory(64 * kRanges, [] { return Declarers("65535"); }), 0);
}

TEST_F(WideRanges, AreAllReportedForEachPortThatIsAskedFor) {
    const OfferedServices offered({{"a", TAVO_PROTO_TCP, {"1-65535", "2-3"}},
                                   {"b", TAVO_PROTO_UDP, {"0-65535"}},
                                   {"c", TAVO_PROTO_TCP, {"3-65535"}}});
    const Elements results = NewResults();
    EXPECT_EQ(TAVOConfPortConflictCheck(PortList({"65535", "2", "3", "2"}).get(), TAVO_PROTO_BOTH,
                                        results.get()),
              0);
    EXPECT_THAT(
        Describe<Result>(results.get()),
        ElementsAre("65535 tcp a", "65535 tcp c", "65535 udp b", "2 tcp a", "2 tcp a", "2 udp b",
                    "3 tcp a", "3 tcp a", "3 tcp c", "3 udp b", "2 tcp a", "2 tcp a", "2 udp b"));
}

// ---- Unknown declarations are never reported as free ----

class UnknownDeclarations : public DeclaredPortsTest {
  protected:
    // True if a record reports a conflict.
    static bool IsTaken(const TLIBCDList *results) {
        bool taken = false;
        for (const auto *node = TLIBCDListFirst(results); node; node = TLIBCDListNext(node)) {
            taken = taken || static_cast<Result *>(TLIBCDListElement(node))->blConflict == 1;
        }
        return taken;
    }
};

// One port of each source: a setting, a fixed system port, built-in services, and the service files
// of the system and of packages.
TEST_F(UnknownDeclarations, NeverReadAsFreeWithoutMemory) {
    for (const auto &[folder, ports] :
         {std::pair{kSystemServices, "7001/tcp"}, {kPackageServices, "7000:7002/tcp"}}) {
        WriteFile(std::string(folder) + "/web.sc",
                  std::string("[web]\ntitle=T\ndesc=D\ndst.ports=\"") + ports + "\"\n");
    }
    for (const std::string port : {"514", "5005", "22", "2049", "548", "7000", "7001"}) {
        const Strings ports = PortList({port});
        int failures = 0;
        const int allocations = ForEachFailingAllocation([&](FailingAllocation &fail) {
            TLIBCErrSetEx(0, nullptr, 0);
            log_.Clear();
            const Elements results = NewResults();
            const int result = fail.During([&] {
                return TAVOConfPortConflictCheck(ports.get(), TAVO_PROTO_BOTH, results.get());
            });
            if (result == -1) {
                EXPECT_EQ(TLIBCErrGet(), 0x200U);
                EXPECT_THAT(Messages(), testing::Not(IsEmpty()));
                ++failures;
                return;
            }
            EXPECT_EQ(result, 0);
            EXPECT_TRUE(IsTaken(results.get())) << port;
        });
        EXPECT_GT(allocations, 100);
        EXPECT_GT(failures, 100);
    }
}

}  // namespace
}  // namespace tavo::test
