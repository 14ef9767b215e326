// Fixtures and helpers for the tests of the configuration check.
#ifndef TAVO_TESTS_CHECK_CONF_CHECK_TEST_H
#define TAVO_TESTS_CHECK_CONF_CHECK_TEST_H

#include <filesystem>
#include <string>
#include <vector>

#include "catalogue_test.h"
#include "check_test.h"
#include "offered_services.h"
#include "stand_ins.h"

namespace tavo::test {

using Lines = std::vector<std::string>;
using Result = TAVO_CONF_PORT_CONFLICT_RESULT;

constexpr char kCheckFailed[] = "Failed to TAVOConfPortConflictCheck";
constexpr char kNoRecord[] = "Failed to alloc pResult, Out of memory.[0x0200]";
constexpr char kFetchFailed[] = "Failed to ServiceConfListFetch";
constexpr char kNoPorts[] = "pPortList is undefined";

// The log lines of a check if the settings cannot be read.
inline Lines UnreadableSettingsLines() {
    Lines lines;
    for (const std::string key : {"syslogport", "smsport", "syslogport"}) {
        lines.push_back("Failed to get " + key + " from /etc/tavoinfo.conf, errno=0x900");
        lines.emplace_back("Failed on parse port: ");
    }
    lines.emplace_back("Failed to SysConfListFetch");
    lines.emplace_back(kFetchFailed);
    return lines;
}

inline Strings PortList(const Lines &ports) {
    TLIBCSzList *list = TLIBCSzListAlloc(1);
    for (const std::string &port : ports) {
        TLIBCSzListPush(&list, port.c_str());
    }
    return Strings(list);
}

inline Elements NewResults() {
    return Elements(TAVOConfPortConflictResultListAlloc());
}

// A result list as a check may return it. Records with a declarer have a service name.
inline Elements Findings(const std::vector<Result> &findings) {
    Elements results = NewResults();
    for (const Result &finding : findings) {
        TLIBCDListAppend(results.get(), &finding);
    }
    return results;
}

// Settings with port 514 for syslog and port 5000 for the administration pages.
class DeclaredPortsTest : public CatalogueTest {
  protected:
    DeclaredPortsTest() {
        std::filesystem::remove_all(kSettings);
        Settings("syslogport=\"514\"\nsmsport=\"5000\"\n");
    }

    static void Settings(const std::string &contents) { WriteFile(kSettings, contents); }
};

// Adds services of which two declare 80/tcp and two declare port 443.
class ConfCheckTest : public DeclaredPortsTest {
  protected:
    ~ConfCheckTest() override { EXPECT_EQ(offered_.Lent(), 0); }

    const OfferedServices offered_{{{"web", TAVO_PROTO_TCP, {"80", "443"}},
                                    {"proxy", TAVO_PROTO_TCP, {"80", "8000-8002"}},
                                    {"names", TAVO_PROTO_BOTH, {"53"}},
                                    {"web3", TAVO_PROTO_UDP, {"443"}}}};
};

}  // namespace tavo::test

#endif
