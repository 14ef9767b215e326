// Compares the engine with a simple one that creates all pairs of ranges and joins them one by one.
// On random appliances both must give the same answers, lists, log lines and error codes.
#include <gmock/gmock.h>

#include <memory>
#include <random>
#include <utility>

#include "conflict_test.h"
#include "failing_allocation.h"
#include "held_socket.h"
#include "plain_comparison.h"
#include "support/failure.h"
#include "tavopf.h"

namespace tavo::test {
namespace {

struct Question {
    std::string skip;
    std::string ports;
    std::string protocols;
    int flags = 0;
};

struct FreeSet {
    void operator()(TAVO_PORT_RANGE *set) const { TLIBPortRangeDestory(set); }
};
using RangeSet = std::unique_ptr<TAVO_PORT_RANGE, FreeSet>;

bool IsSkipped(const Question &question, const std::string &name) {
    return (" " + question.skip + " ").find(" " + name + " ") != std::string::npos;
}

// ---- The simple engine: all sources in their order, except the sockets ----

int PlainRules(const Question &question, TAVO_SERVICE_CONF_PORT **conflicts) {
    const char *path = TAVOPFRuleConfPathGet();
    TLIBCSzList *names = TLIBCSzListAlloc(1);
    TLIBCSzHash *rule = TLIBCSzHashAlloc(1);
    int answer = 0;
    TLIBCFileEnumSection(path, &names);
    for (int i = 0; i < TLIBCSzListCount(names) && answer >= 0; ++i) {
        TLIBCFileGetSection(path, TLIBCSzListGet(names, i), &rule);
        const char *service = TLIBCSzHashGetValue(rule, "service_id");
        if (service != nullptr && IsSkipped(question, service)) {
            continue;
        }
        for (const char *key : {"s_port", "r_port"}) {
            const int one =
                PlainCompare(question.ports.c_str(), TLIBCSzHashGetValue(rule, key), conflicts);
            answer = one < 0 ? -1 : answer | one;
            if (answer < 0) {
                break;
            }
        }
    }
    TLIBCSzHashFree(rule);
    TLIBCSzListFree(names);
    return answer;
}

int PlainServices(const Question &question, TAVO_SERVICE_CONF_PORT **conflicts) {
    TAVO_FW_SERVICE *services = nullptr;
    TAVOFwServiceEnum(&services);
    std::string protocols = question.protocols;
    const uint32_t wanted = TAVOProtocolMapping(TLIBServiceConfProtocolParse(protocols.data()));
    int answer = 0;
    for (const auto *service = services; service != nullptr && answer >= 0;
         service = service->pNext) {
        if ((service->nDstProtocol & wanted) == 0 || IsSkipped(question, service->szName)) {
            continue;
        }
        for (int i = 0; i < TLIBCSzListCount(service->pDstPortList) && answer >= 0; ++i) {
            const int one = PlainCompare(question.ports.c_str(),
                                         TLIBCSzListGet(service->pDstPortList, i), conflicts);
            answer = one < 0 ? -1 : answer | one;
        }
    }
    TAVOFwServiceFree(services);
    return answer;
}

int PlainSettings(const Question &question, TAVO_SERVICE_CONF_PORT **conflicts) {
    static constexpr std::pair<const char *, const char *> kKeys[] = {
        {"ftp", "ftpport"},
        {"webdav_http", "WebDavPort"},
        {"webdavs_https", "secure_WebDavPort"},
        {"syslog_server", "syslogport"}};
    const RangeSet settings(TLIBPortRangeCreate());
    for (const auto &[service, key] : kKeys) {
        char value[1024] = "";
        if (IsSkipped(question, service) ||
            TLIBCFileGetKeyValue("/etc/tavoinfo.conf", key, value, sizeof(value)) != 1 ||
            *value == '\0') {
            continue;
        }
        if (TAVOServiceConfPortsCheck(value) != 1) {
            TAVO_LOG("Failed to GetServicePort(), service = [%s]", key);
            return TAVO_LOG("Failed to GetAllNonSkipServicePort()");
        }
        TAVO_SERVICE_CONF_PORT port = {};
        port.nPortStart = static_cast<uint32_t>(atoi(value));
        TLIBPortRangeAdd(settings.get(), &port);
    }
    const RangeSet asked(TLIBPortRangeCreate());
    const RangeSet overlap(TLIBPortRangeCreate());
    TLIBPortRangeImport(asked.get(), question.ports.c_str());
    TLIBPortRangeOverlap(asked.get(), settings.get(), overlap.get());
    const RangeSet former(TLIBPortRangeCreate());
    former->pRanges = *conflicts;
    TLIBPortRangeJoin(overlap.get(), former.get());
    *conflicts = std::exchange(overlap->pRanges, nullptr);
    return overlap->nCount != 0 ? 1 : 0;
}

int PlainAnswer(const Question &question, TAVO_SERVICE_CONF_PORT **conflicts) {
    static constexpr std::pair<int, int (*)(const Question &, TAVO_SERVICE_CONF_PORT **)>
        kSources[] = {{TAVO_PORT_CHECK_PORT_FORWARD, PlainRules},
                      {TAVO_PORT_CHECK_FW_SERVICE, PlainServices},
                      {TAVO_PORT_CHECK_SYS_KEY, PlainSettings}};
    int answer = 0;
    for (const auto &[flag, ask] : kSources) {
        const int one = (question.flags & flag) != 0 ? ask(question, conflicts) : 0;
        if (one < 0) {
            return -1;
        }
        answer |= one;
    }
    return answer;
}

// ---- Random appliances ----

class PlainEngine : public ConflictTest {
  protected:
    PlainEngine() {
        seed_ = std::random_device{}();
        random_.seed(seed_);
    }

    unsigned int Below(unsigned int limit) { return static_cast<unsigned int>(random_() % limit); }
    bool OneIn(unsigned int chance) { return Below(chance) == 0; }

    // Up to `most` ports and ranges close together, so that they overlap, touch and repeat.
    std::string Ranges(char separator, unsigned int most, bool backwards) {
        std::string text;
        for (unsigned int i = 0, count = 1 + Below(most); i < count; ++i) {
            // Sometimes close to the settings, which are adjacent.
            const unsigned int low = 7000 + Below(OneIn(4) ? 6 : 60);
            const unsigned int high = low + Below(OneIn(4) ? 2 : 12);
            const bool turned = backwards && OneIn(4);
            text += i == 0 ? "" : ",";
            text += OneIn(8) ? " " : "";
            text += std::to_string(turned ? high : low);
            text += OneIn(2) ? "" : separator + std::to_string(turned ? low : high);
        }
        text += backwards && OneIn(5) ? std::string(",7003") + separator + "7000" : "";
        return OneIn(60) ? text + ",x" : text;
    }

    void MakeAppliance() {
        static constexpr const char *kProtocols[] = {"/tcp", "/udp", ""};
        std::string settings =
            OneIn(3) ? "ftpport=7000\nWebDavPort=7001\nsecure_WebDavPort=7002\nsyslogport=7003\n"
                     : "";
        for (const char *key : {"ftpport", "WebDavPort", "secure_WebDavPort", "syslogport"}) {
            settings +=
                OneIn(2) ? std::string(key) + "=" + std::to_string(7000 + Below(6)) + "\n" : "";
        }
        Settings(OneIn(40) ? settings + "syslogport=x\n" : settings);
        for (int i = 0; i < 4; ++i) {
            Service("s" + std::to_string(i), Ranges(':', 12, true) + kProtocols[Below(3)]);
        }
        // The ports of NFS are used as written and compared before those of the table.
        WriteFile("/etc/nfs/tavo_nfs_conf",
                  OneIn(12) ? "nfs_custom_port_enable=yes\nstatd_port=x\nnlm_port=7001\n" : "");
        Rules(OneIn(3) ? "" : Rule(Ranges('-', 5, true), Ranges('-', 5, true), "service_id=s1\n"));
    }

    Question RandomQuestion() {
        static constexpr const char *kSkips[] = {
            "", "s0", "s1 s2", "web s3 telnet", "ftp", "a b c d e f g h s0 s1 i j"};
        static constexpr const char *kProtocols[] = {"tcp", "udp", "tcp,udp", "", "sctp"};
        return {kSkips[Below(6)], Ranges(':', OneIn(2) ? 3 : 30, OneIn(3)), kProtocols[Below(5)],
                static_cast<int>(1 + Below(15))};
    }

    // Fills the caller's list before the call.
    void HandOverSome() {
        for (unsigned int i = 0, count = OneIn(2) ? 0 : Below(6); i < count; ++i) {
            const unsigned int low = 7000 + Below(60);
            HandOver(low, OneIn(2) ? 0 : low + Below(9));
        }
        // With a range that has its end before its start, the order in which conflicts are joined
        // matters.
        for (auto *port = conflicts_; port != nullptr && OneIn(2); port = port->pNext) {
            port->nPortType = TAVO_PORT_TYPE_RANGE;
            port->nPortEnd = port->nPortStart - 1 - Below(9);
        }
    }

    TAVO_SERVICE_CONF_PORT *CopyOfConflicts() const {
        TAVO_SERVICE_CONF_PORT *copy = nullptr;
        TAVO_SERVICE_CONF_PORT **end = &copy;
        for (const auto *port = conflicts_; port != nullptr; port = port->pNext) {
            *end = static_cast<TAVO_SERVICE_CONF_PORT *>(malloc(sizeof(**end)));
            **end = *port;
            (*end)->pNext = nullptr;
            end = &(*end)->pNext;
        }
        return copy;
    }

    unsigned int seed_;
    std::mt19937 random_;
};

TEST_F(PlainEngine, AgreesOnRandomAppliances) {
    SCOPED_TRACE("seed " + std::to_string(seed_));
    int taken = 0;
    int failed = 0;
    for (int round = 0; round < 1500 && !HasFailure(); ++round) {
        if (round % 5 == 0) {
            MakeAppliance();
        }
        const Question question = RandomQuestion();
        SCOPED_TRACE(question.ports + " / " + question.protocols + ", flags " +
                     std::to_string(question.flags) + ", skipped " + question.skip);
        TAVOServiceConfPortsFree(std::exchange(conflicts_, nullptr));
        HandOverSome();
        TAVO_SERVICE_CONF_PORT *plain_conflicts = CopyOfConflicts();

        log_.Clear();
        TLIBCErrSetEx(0, nullptr, 0);
        const int plain = PlainAnswer(question, &plain_conflicts);
        const std::vector<std::string> plain_messages = Messages();
        const unsigned int plain_code = TLIBCErrGet();

        log_.Clear();
        TLIBCErrSetEx(0, nullptr, 0);
        const int answer =
            TLIBIsPortConflict(question.skip.c_str(), question.ports.c_str(),
                               question.protocols.c_str(), question.flags, &conflicts_);
        EXPECT_EQ(answer, plain);
        EXPECT_EQ(Conflicts(), Describe(plain_conflicts));
        EXPECT_EQ(Messages(), plain_messages);
        EXPECT_EQ(TLIBCErrGet(), plain_code);
        TAVOServiceConfPortsFree(plain_conflicts);
        taken += answer > 0 ? 1 : 0;
        failed += answer < 0 ? 1 : 0;
    }
    EXPECT_GT(taken, 100);
    EXPECT_GT(failed, 20);
}

// A query that names adjacent settings in reverse order leaves a range with its end before its
// start in the set that the conflicts are joined with. The result then depends on their order.
TEST_F(PlainEngine, AgreesWhereTheOrderOfConflictsShows) {
    Settings("ftpport=7000\nWebDavPort=7001\nsecure_WebDavPort=7002\nsyslogport=7003\n");
    std::vector<std::vector<std::string>> lists;
    for (const char *ports : {"7001,7002", "7002,7001"}) {
        Service("s", ports);
        TAVO_SERVICE_CONF_PORT *plain_conflicts = nullptr;
        const Question question = {"", "7003:7000", "tcp", 12};
        EXPECT_EQ(PlainAnswer(question, &plain_conflicts), 1);
        EXPECT_EQ(Ask(question.ports, question.protocols, question.flags), 1);
        EXPECT_EQ(Conflicts(), Describe(plain_conflicts));
        lists.push_back(Conflicts());
        TAVOServiceConfPortsFree(plain_conflicts);
        TAVOServiceConfPortsFree(std::exchange(conflicts_, nullptr));
    }
    EXPECT_NE(lists[0], lists[1]);
}

// Sections without a conflict, up to the first one with a conflict: the result must be the same as
// with a separate question for each.
TEST_F(PlainEngine, AgreesOnEverySectionOfAFile) {
    SCOPED_TRACE("seed " + std::to_string(seed_));
    const HeldSocket held(AF_INET, SOCK_STREAM, 7300);
    for (int round = 0; round < 200 && !HasFailure(); ++round) {
        MakeAppliance();
        std::string file;
        int expected = 0;
        std::vector<std::string> expected_conflicts;
        TAVO_SERVICE_CONF_PORT *conflicts = nullptr;
        for (int i = 0; i < 30; ++i) {
            const std::string name = OneIn(2) ? "s" + std::to_string(Below(4)) : "n";
            const std::string section = name + (OneIn(3) ? "" : std::to_string(i));
            const unsigned int low = 7060 + Below(260);
            static constexpr const char *kForms[] = {"x",           ",7301",      ",,7301",
                                                     ", 7301,",     ",7301:7299", ",\t7301",
                                                     ",4294974597", ",07301"};
            const std::string ports =
                OneIn(30) ? "x" : std::to_string(low) + (OneIn(4) ? kForms[Below(8)] : "");
            if (file.find("[" + section + "]") != std::string::npos) {
                continue;
            }
            file += "[" + section + "]\ndst.ports=\"" + ports + "/tcp\"\n";
            if (expected == 0) {
                expected =
                    TLIBIsPortConflict(section.c_str(), ports.c_str(), "tcp", 28, &conflicts) > 0
                        ? 1
                        : 0;
            }
        }
        const TemporaryFolder folder;
        const std::string path = folder.Write("new.sc", file);
        EXPECT_EQ(TLIBIsConfPortConflict(path.c_str(), &conflicts_), expected) << file;
        EXPECT_EQ(Conflicts(), Describe(conflicts));
        TAVOServiceConfPortsFree(conflicts);
        TAVOServiceConfPortsFree(std::exchange(conflicts_, nullptr));
    }
}

}  // namespace
}  // namespace tavo::test
