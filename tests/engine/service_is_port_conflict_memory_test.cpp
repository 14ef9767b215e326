// Checks a port that is taken by each source in turn while memory runs out at each place. The
// answer must be that it is taken or that this is unknown, never that it is free.
#include <gmock/gmock.h>

#include <utility>

#include "conflict_test.h"
#include "failing_allocation.h"
#include "held_socket.h"

namespace tavo::test {
namespace {

using testing::ElementsAre;

struct Source {
    const char *name;
    int flags;
    const char *port;
};

void PrintTo(const Source &source, std::ostream *out) {
    *out << source.name;
}

class PortWithoutMemory : public ConflictTest, public testing::WithParamInterface<Source> {
  protected:
    PortWithoutMemory() {
        Rules(Rule("7001", "7002"));
        Settings("ftpport=7021\nftplowport=7050\nftphighport=7060\nsyslogport=7514\n");
        WriteFile("/etc/ssh/sshd_config", "Port 7022\n");
        WriteFile("/etc/nfs/tavo_nfs_conf",
                  "nfs_custom_port_enable=yes\nstatd_port=7111\nnlm_port=7112\n");
        WriteFile("/usr/tavo/etc/services.d/a.sc",
                  "[global]\nversion=1\n[a]\ntitle=T\ndesc=D\ndst.ports=7080/tcp\n");
        Service("b", "7081,7090:7099/tcp");
    }

    HeldSocket held_{AF_INET, SOCK_STREAM, 7999};
};

TEST_P(PortWithoutMemory, NeverReadsFree) {
    for (const char *skipped : {"", "other another"}) {
        const int allocations = ForEachFailingAllocation([&](FailingAllocation &fail) {
            TAVO_SERVICE_CONF_PORT *conflicts = nullptr;
            TLIBCErrSetEx(0, nullptr, 0);
            const int answer = fail.During([&] {
                return TLIBIsPortConflict(skipped, GetParam().port, "tcp", GetParam().flags,
                                          &conflicts);
            });
            EXPECT_TRUE(answer == 1 || (answer == -1 && fail.Hit())) << answer;
            if (answer == -1) {
                EXPECT_EQ(TLIBCErrGet(), 0x200U);
            }
            TAVOServiceConfPortsFree(conflicts);
        });
        EXPECT_GT(allocations, 5);
    }
}

// If one source is unknown, the port cannot be reported as free, whatever the others say.
TEST_P(PortWithoutMemory, NeverReadsFreeAmongAllSources) {
    ForEachFailingAllocation([&](FailingAllocation &fail) {
        TAVO_SERVICE_CONF_PORT *conflicts = nullptr;
        const int answer = fail.During(
            [&] { return TLIBIsPortConflict("", GetParam().port, "tcp", 31, &conflicts); });
        EXPECT_TRUE(answer == 1 || (answer == -1 && fail.Hit())) << answer;
        TAVOServiceConfPortsFree(conflicts);
    });
}

INSTANTIATE_TEST_SUITE_P(Sources, PortWithoutMemory,
                         testing::Values(Source{"rule", TAVO_PORT_CHECK_PORT_FORWARD, "7002"},
                                         Source{"fixed", TAVO_PORT_CHECK_FW_SERVICE, "23"},
                                         Source{"nfs", TAVO_PORT_CHECK_FW_SERVICE, "7112"},
                                         Source{"ssh", TAVO_PORT_CHECK_FW_SERVICE, "7022"},
                                         Source{"ftp", TAVO_PORT_CHECK_FW_SERVICE, "7055"},
                                         Source{"system", TAVO_PORT_CHECK_FW_SERVICE, "7080"},
                                         Source{"package", TAVO_PORT_CHECK_FW_SERVICE, "7095"},
                                         Source{"setting", TAVO_PORT_CHECK_SYS_KEY, "7514"},
                                         Source{"socket", TAVO_PORT_CHECK_RUNTIME, "7999"}),
                         [](const auto &source) { return std::string(source.param.name); });

class ConflictsWithoutMemory : public ConflictTest {};

TEST_F(ConflictsWithoutMemory, ReportsThatTheServicesCannotBeIndexed) {
    std::vector<std::string> last;
    ForEachFailingAllocation([&](FailingAllocation &fail) {
        log_.Clear();
        const int answer = fail.During([&] { return Ask("9", "tcp", TAVO_PORT_CHECK_FW_SERVICE); });
        if (answer == -1 && !Messages().empty()) {
            last.push_back(Messages().back());
        }
    });
    EXPECT_THAT(last, testing::Contains("Failed to allocate for services[0x0200 "
                                        "service_is_port_conflict.cpp:N]"));
}

// The settings merge the conflicts of the services with their own, and then with the entries of the
// caller's list. After a failure in between, all of them are in the list as single entries.
TEST_F(ConflictsWithoutMemory, KeepsThoseThatWereFoundBefore) {
    Settings("syslogport=7021\n");
    Service("b", "7005,7007/tcp");
    int failures = 0;
    for (int nth = 1;; ++nth) {
        FailingAllocation fail(nth, FailingAllocation::Mode::kOnlyNth);
        TAVOServiceConfPortsFree(std::exchange(conflicts_, nullptr));
        HandOver(7030, 0);
        log_.Clear();
        const int answer = fail.During([&] { return Ask("7000:7025", "tcp", 12); });
        if (!fail.Hit()) {
            EXPECT_EQ(answer, 1);
            EXPECT_THAT(Conflicts(), ElementsAre("src 7005 with end 7005 protocol 0",
                                                 "src 7007 with end 7007 protocol 0",
                                                 "src 7021 with end 7021 protocol 0",
                                                 "src 7030 with end 7030 protocol 0"));
            break;
        }
        const auto messages = Messages();
        if (!messages.empty() && messages.back().find("TLIBPortRange") != std::string::npos) {
            EXPECT_EQ(answer, -1);
            EXPECT_THAT(Conflicts(), ElementsAre("src 7005 protocol 3", "src 7007 protocol 3",
                                                 "dst 7030 protocol 1"))
                << messages.back();
            ++failures;
        }
    }
    EXPECT_GT(failures, 5);
}

}  // namespace
}  // namespace tavo::test
