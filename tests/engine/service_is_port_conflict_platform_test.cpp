// Tests the engine with libraries that fail or return invalid results. The functions below replace
// the real ones for the whole program.
#include <gmock/gmock.h>

#include <dlfcn.h>
#include <sys/stat.h>

#include <cerrno>
#include <functional>
#include <string>

#include "conflict_test.h"
#include "failing_allocation.h"
#include "stand_in_catalogue.h"
#include "tavoftp.h"
#include "tavonet.h"

namespace {

std::function<int()> g_ftp_high_port;
std::function<int(int *slots, int *count, int low, int high, int tcp)> g_used_ports;
std::function<int(TAVO_FW_SERVICE **)> g_services;

// The number of trimmed texts; each compared text is trimmed.
int g_trims = 0;

// The path that stat fails for, and the errno.
std::string g_unknown_path;
int g_stat_error = 0;

}  // namespace

extern "C" {

__attribute__((visibility("default"))) int TAVOFTPHighPortGet(void) {
    return g_ftp_high_port();
}

__attribute__((visibility("default"))) int TAVONetGetPortUsedInRange(int *slots, int *count,
                                                                     int low, int high, int tcp) {
    return g_used_ports(slots, count, low, high, tcp);
}

__attribute__((visibility("default"))) int TLIBCStrTrimSpace(char *text) {
    static const auto next =
        reinterpret_cast<int (*)(char *)>(dlsym(RTLD_NEXT, "TLIBCStrTrimSpace"));
    ++g_trims;
    return next(text);
}

__attribute__((visibility("default"))) int stat(const char *path, struct stat *status) noexcept {
    static const auto next =
        reinterpret_cast<int (*)(const char *, struct stat *)>(dlsym(RTLD_NEXT, "stat"));
    if (path == g_unknown_path) {
        errno = g_stat_error;
        return -1;
    }
    return next(path, status);
}

}  // extern "C"

tavo::ServiceCatalogue tavo::StandInCatalogue() {
    return CatalogueOf(g_services);
}

namespace tavo::test {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

class EngineOnBadGround : public ConflictTest {
  protected:
    EngineOnBadGround() {
        g_ftp_high_port = [] { return 50031; };
        g_used_ports = [](int *, int *count, int, int, int) { return *count = 0; };
        g_services = [](TAVO_FW_SERVICE **services) {
            *services = static_cast<TAVO_FW_SERVICE *>(calloc(1, sizeof(TAVO_FW_SERVICE)));
            return 1;
        };
    }
};

TEST_F(EngineOnBadGround, ReportsWhichOfTheTwoQuestionsForThePassivePortFailed) {
    int questions = 0;
    g_ftp_high_port = [&] { return ++questions == 2 ? -1 : 50031; };
    EXPECT_EQ(Ask("80", "tcp", TAVO_PORT_CHECK_SYS_KEY), -1);
    EXPECT_EQ(Messages().front(), "failed to get ftp high port");
    log_.Clear();
    g_ftp_high_port = [] { return -1; };
    EXPECT_EQ(Ask("80", "tcp", TAVO_PORT_CHECK_SYS_KEY), -1);
    EXPECT_THAT(Messages(), ElementsAre("failed to get ftp low port",
                                        "Failed to GetServicePort(), service = [ftplowport]",
                                        "Failed to GetAllNonSkipServicePort()"));
}

TEST_F(EngineOnBadGround, AsksForThePassivePortTwice) {
    int questions = 0;
    g_ftp_high_port = [&] {
        ++questions;
        return 50031;
    };
    EXPECT_EQ(Ask("50031", "tcp", TAVO_PORT_CHECK_SYS_KEY), 0);
    EXPECT_EQ(questions, 2);
}

TEST_F(EngineOnBadGround, CannotTellWithoutTheServices) {
    g_services = [](TAVO_FW_SERVICE **) {
        TLIBCErrSetEx(0x123, "catalogue", 1);
        return -1;
    };
    EXPECT_EQ(Ask("80", "tcp", TAVO_PORT_CHECK_FW_SERVICE), -1);
    EXPECT_THAT(Messages(), ElementsAre("Failed to enumerate services[0x0123 catalogue:N]"));
    log_.Clear();
    EXPECT_EQ(Ask("80", "tcp", TAVO_PORT_CHECK_RUNTIME), -1);
    EXPECT_EQ(ErrorState(), "0x9900 service_is_port_conflict.cpp");
    EXPECT_THAT(Messages(), ElementsAre("Failed to enumerate services[0x9900 "
                                        "service_is_port_conflict.cpp:N]"));
}

TEST_F(EngineOnBadGround, WithoutAnyServiceHasNoConflictWithServices) {
    g_services = [](TAVO_FW_SERVICE **services) {
        *services = nullptr;
        return 0;
    };
    EXPECT_EQ(Ask("80", "sctp", TAVO_PORT_CHECK_FW_SERVICE), 0);
    EXPECT_THAT(Messages(), IsEmpty()) << "the protocols are not looked at";
}

TEST_F(EngineOnBadGround, WithoutAnyServiceCannotTellOfSockets) {
    g_services = [](TAVO_FW_SERVICE **services) {
        *services = nullptr;
        return 0;
    };
    EXPECT_EQ(Ask("80", "tcp", TAVO_PORT_CHECK_RUNTIME), -1);
    EXPECT_EQ(ErrorState(), "0xD00 service_is_port_conflict.cpp");
    EXPECT_THAT(Messages(), ElementsAre("Invalid Argument!![0x0D00 "
                                        "service_is_port_conflict.cpp:N]"));
    EXPECT_EQ(Ask("80", "", TAVO_PORT_CHECK_RUNTIME), 0) << "nobody looks for the list";
}

TEST_F(EngineOnBadGround, AsksForTheRangeOfEachTokenAndProtocol) {
    std::vector<std::string> questions;
    g_used_ports = [&](int *, int *count, int low, int high, int tcp) {
        questions.push_back(std::to_string(low) + ".." + std::to_string(high) +
                            (tcp != 0 ? " tcp, " : " udp, ") + std::to_string(*count) + " slots");
        return *count = 0;
    };
    EXPECT_EQ(Ask("80,9:7", "udp tcp", TAVO_PORT_CHECK_RUNTIME), 0);
    EXPECT_THAT(questions, ElementsAre("80..80 tcp, 1 slots", "80..80 udp, 1 slots",
                                       "7..9 tcp, 3 slots", "7..9 udp, 3 slots"));
}

TEST_F(EngineOnBadGround, TakesAFailedQuestionForNoPorts) {
    g_used_ports = [](int *slots, int *count, int, int, int) {
        slots[0] = 80;
        *count = 1;
        return -1;
    };
    EXPECT_EQ(Ask("80", "tcp", TAVO_PORT_CHECK_RUNTIME), 0);
}

TEST_F(EngineOnBadGround, AsksOnceMoreWhenAQuestionFails) {
    int questions = 0;
    g_used_ports = [&](int *slots, int *count, int, int, int) {
        if (++questions == 1) {
            *count = 0;
            return -1;
        }
        slots[0] = 80;
        return *count == 1 ? 0 : -1;
    };
    EXPECT_EQ(Ask("80", "tcp", TAVO_PORT_CHECK_RUNTIME), 1);
    EXPECT_EQ(questions, 2);
}

TEST_F(EngineOnBadGround, CannotTellWithoutKnowingWhetherThereAreRules) {
    Rules(Rule("7000", "7001"));
    g_unknown_path = kRules;
    for (const int error : {EIO, EACCES, ENOMEM, EINTR}) {
        g_stat_error = error;
        log_.Clear();
        EXPECT_EQ(Ask("7000", "tcp", TAVO_PORT_CHECK_PORT_FORWARD), -1) << error;
        EXPECT_EQ(ErrorState(), "0x900 service_is_port_conflict.cpp");
        EXPECT_THAT(Messages(), ElementsAre("Failed to look for " + std::string(kRules) +
                                            "[0x0900 service_is_port_conflict.cpp:N]"));
    }
    for (const int error : {ENOENT, ENOTDIR, ELOOP}) {
        g_stat_error = error;
        EXPECT_EQ(Ask("7000", "tcp", TAVO_PORT_CHECK_PORT_FORWARD), 0) << error;
    }
    g_unknown_path.clear();
    EXPECT_EQ(Ask("7000", "tcp", TAVO_PORT_CHECK_PORT_FORWARD), 1);
}

TEST_F(EngineOnBadGround, DoesNotReadBeyondItsSlots) {
    g_used_ports = [](int *, int *count, int, int, int) {
        *count = 1 << 20;
        return 0;
    };
    EXPECT_EQ(Ask("80:89", "tcp", TAVO_PORT_CHECK_RUNTIME), 0);
    g_used_ports = [](int *slots, int *count, int, int, int) {
        slots[0] = 80;
        *count = -1;
        return 0;
    };
    EXPECT_EQ(Ask("80:89", "tcp", TAVO_PORT_CHECK_RUNTIME), 0);
}

TEST_F(EngineOnBadGround, PassesOverEmptySlots) {
    g_used_ports = [](int *slots, int *count, int, int, int) {
        slots[0] = 0;
        slots[1] = 81;
        *count = 2;
        return 0;
    };
    EXPECT_EQ(Ask("80:89", "tcp", TAVO_PORT_CHECK_RUNTIME), 1);
}

// A service with the destination ports `ports`, as the catalogue returns it.
TAVO_FW_SERVICE *ServiceWithPorts(const char *ports) {
    auto *service = static_cast<TAVO_FW_SERVICE *>(calloc(1, sizeof(TAVO_FW_SERVICE)));
    snprintf(service->szName, sizeof(service->szName), "web");
    service->nDstProtocol = TAVO_PROTO_BOTH;
    service->pDstPortList = TLIBCSzListAlloc(1);
    TLIBCSzListPush(&service->pDstPortList, ports);
    return service;
}

TEST_F(EngineOnBadGround, ReadsThePortsOfASkippedServiceAsNumbers) {
    static constexpr struct {
        const char *ports;
        int expected;
    } kCases[] = {
        {"80", 0},      {"80-80", 0},   {"79-81", 0},       {"81-79", 0}, {"81", 1},
        {"82-90", 1},   {"", 1},        {"x", 1},           {"80x", 0},   {"-5-70000", 0},
        {"0-70000", 0}, {"70000", 1},   {"65536-70000", 1}, {"80-", 0},   {"1-79,80", 1},
        {"-10--5", 1},  {"0-65535", 0}, {"80-65535", 0},    {"0-80", 0},
    };
    g_used_ports = [](int *slots, int *count, int, int, int) {
        slots[0] = 80;
        *count = 1;
        return 0;
    };
    for (const auto &[ports, expected] : kCases) {
        g_services = [ports = ports](TAVO_FW_SERVICE **services) {
            *services = ServiceWithPorts(ports);
            return 1;
        };
        EXPECT_EQ(Ask("80", "tcp", TAVO_PORT_CHECK_RUNTIME, "web"), expected) << ports;
    }
}

// A service with invalid ports is an error for each section that is compared with it, and a query
// may be written in a form that packages rarely use. Neither may cause each section to be compared
// with all services.
TEST_F(EngineOnBadGround, ComparesAFileWithManyServicesInLinearTime) {
    constexpr int kCount = 300;
    g_services = [](TAVO_FW_SERVICE **services) {
        *services = ServiceWithPorts("x");
        for (int i = 0; i < kCount; ++i) {
            TAVO_FW_SERVICE *service = ServiceWithPorts(std::to_string(20000 + i).c_str());
            snprintf(service->szName, sizeof(service->szName), "s%d", i);
            service->pNext = *services;
            *services = service;
        }
        return kCount + 1;
    };
    for (const char *more : {"", ",,", ",\t9", ",4294967305"}) {
        std::string file;
        for (int i = 0; i < kCount; ++i) {
            file += "[n" + std::to_string(i) + "]\ndst.ports=\"" + std::to_string(30000 + i) +
                    more + "/tcp\"\n";
        }
        const TemporaryFolder folder;
        log_.Clear();
        g_trims = 0;
        EXPECT_EQ(TLIBIsConfPortConflict(folder.Write("new.sc", file).c_str(), &conflicts_), 0);
        EXPECT_LT(g_trims, 60 * kCount) << more;
        const auto messages = Messages();
        EXPECT_EQ(messages.size(), 2U * kCount) << "every section comes to the bad service";
        EXPECT_EQ(messages.front(),
                  "illegal ports number, port=x, tavoerr=[0x0D00 service_conf_ports_get.cpp:N]");
    }
}

TEST_F(EngineOnBadGround, SaysThatTheSlotsDoNotFitIntoMemory) {
    std::vector<std::string> said;
    ForEachFailingAllocation([&](FailingAllocation &fail) {
        log_.Clear();
        TLIBCErrSetEx(0, nullptr, 0);
        const int result =
            fail.During([this] { return Ask("80", "tcp", TAVO_PORT_CHECK_RUNTIME); });
        const std::vector<std::string> messages = Messages();
        if (result == -1 && !messages.empty() && TLIBCErrGet() == 0x200) {
            said.push_back(messages.back());
        }
    });
    EXPECT_THAT(said, testing::Contains("out of memory!!"));
}

TEST_F(EngineOnBadGround, FailsOnAServiceWhosePortsAreNone) {
    g_services = [](TAVO_FW_SERVICE **services) {
        *services = ServiceWithPorts("1000:2000");
        return 1;
    };
    EXPECT_EQ(Ask("80", "tcp", TAVO_PORT_CHECK_FW_SERVICE), -1);
    EXPECT_EQ(Ask("80", "tcp", TAVO_PORT_CHECK_FW_SERVICE, "web"), 0);
}

}  // namespace
}  // namespace tavo::test
