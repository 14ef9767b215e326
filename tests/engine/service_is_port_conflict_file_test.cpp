// Checks a whole service file against all other declarations on the appliance.
#include <gmock/gmock.h>

#include <sys/resource.h>

#include "conflict_test.h"
#include "failing_allocation.h"
#include "held_socket.h"
#include "open_counter.h"

namespace tavo::test {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

class ConfPortConflict : public ConflictTest {
  protected:
    int AskFile(const std::string &contents) {
        return TLIBIsConfPortConflict(folder_.Write("new.sc", contents).c_str(), &conflicts_);
    }

    TemporaryFolder folder_;
};

TEST_F(ConfPortConflict, FindsNoneWhereNoneIs) {
    EXPECT_EQ(AskFile("[web]\ndst.ports=\"8080/tcp\"\n"), 0);
    EXPECT_EQ(conflicts_, nullptr);
    EXPECT_THAT(Messages(), IsEmpty());
}

TEST_F(ConfPortConflict, ReportsTheFirstSectionThatCollides) {
    EXPECT_EQ(AskFile("[a]\ndst.ports=\"8080/tcp\"\n[b]\ndst.ports=\" 22:30 / TCP \"\n"
                      "[c]\ndst.ports=\"515\"\n"),
              1);
    EXPECT_THAT(Conflicts(), ElementsAre("src 22:23 protocol 0"))
        << "ssh and telnet, as the settings joined them";
    EXPECT_THAT(Messages(), ElementsAre("szTmpString= 22:30 / TCP  conflict"));
}

TEST_F(ConfPortConflict, LooksAtServicesSettingsAndSockets) {
    Settings("syslogport=\"7514\"\n");
    const HeldSocket held(AF_INET, SOCK_STREAM, 7000);
    EXPECT_EQ(AskFile("[a]\ndst.ports=\"23/tcp\"\n"), 1);
    EXPECT_EQ(AskFile("[a]\ndst.ports=\"7514/tcp\"\n"), 1);
    TAVOServiceConfPortsFree(std::exchange(conflicts_, nullptr));
    EXPECT_EQ(AskFile("[a]\ndst.ports=\"7000/tcp\"\n"), 1);
}

TEST_F(ConfPortConflict, DoesNotLookAtForwardingRules) {
    Rules(Rule("8080", "8080"));
    EXPECT_EQ(AskFile("[a]\ndst.ports=\"8080/tcp\"\n"), 0);
}

TEST_F(ConfPortConflict, LetsASectionSkipItself) {
    Service("web", "8080/tcp");
    const HeldSocket held(AF_INET, SOCK_STREAM, 8080);
    EXPECT_EQ(AskFile("[web]\ndst.ports=\"8080/tcp\"\n"), 0);
    EXPECT_EQ(AskFile("[other]\ndst.ports=\"8080/tcp\"\n"), 1);
}

TEST_F(ConfPortConflict, TakesPortsWithoutAProtocol) {
    const HeldSocket held(AF_INET, SOCK_STREAM, 7000);
    EXPECT_EQ(AskFile("[a]\ndst.ports=\"7000\"\n"), 0) << "no protocol is none to the sockets";
    EXPECT_EQ(AskFile("[a]\ndst.ports=\"161\"\n"), 1) << "and both to the services";
}

TEST_F(ConfPortConflict, PassesOverASectionWhoseCheckFails) {
    EXPECT_EQ(AskFile("[a]\ndst.ports=\"80 443 / tcp\"\n[b]\ndst.ports=\"9/tcp\"\n"), 0);
    EXPECT_EQ(Messages().back(),
              "TLIBIsPortConflict FAILED=-1, port=80 443, protocol=tcp tavoerr=[0x0D00 "
              "service_conf_ports_get.cpp:N]");
    EXPECT_EQ(AskFile("[a]\ndst.ports=\"x\"\n[b]\ndst.ports=\"23/tcp\"\n"), 1)
        << "the next section is looked at";
}

TEST_F(ConfPortConflict, CountsWhatAFailedCheckHasLeftForTheNextSection) {
    EXPECT_EQ(AskFile("[a]\ndst.ports=\"23,0/tcp\"\n[b]\ndst.ports=\"9/tcp\"\n"), 1);
    EXPECT_EQ(Messages().back(), "szTmpString=9/tcp conflict");
}

TEST_F(ConfPortConflict, CountsWhatTheCallerHandedOver) {
    HandOver(80, 0);
    EXPECT_EQ(AskFile("[a]\ndst.ports=\"9/tcp\"\n"), 1);
}

TEST_F(ConfPortConflict, NeedsPortsInEverySection) {
    EXPECT_EQ(AskFile("[a]\ndst.ports=\"9/tcp\"\n[global]\nversion=\"1\"\n"), -1);
    EXPECT_THAT(Messages(), ElementsAre("szTmpString is NULL[0x0D00 "
                                        "service_is_port_conflict.cpp:N]"));
    EXPECT_EQ(AskFile("[a]\ndst.ports=\"23/tcp\"\n[global]\nversion=\"1\"\n"), 1)
        << "earlier conflicts are reported";
}

TEST_F(ConfPortConflict, TakesAnEmptyPortsKey) {
    EXPECT_EQ(AskFile("[a]\ndst.ports=\n"), 0);
}

TEST_F(ConfPortConflict, RefusesAnEmptySection) {
    EXPECT_EQ(AskFile("[a]\ndst.ports=\"9/tcp\"\n[b]\n"), -1);
    EXPECT_THAT(Messages(),
                ElementsAre("Failed to TLIBCFileGetSection, file: " + folder_ / "new.sc" +
                            ", section name: b, nHashRecords: 0, tavoerr=[0x0D00 "
                            "service_is_port_conflict.cpp:N]"));
    EXPECT_EQ(ErrorState(), "0xD00 service_is_port_conflict.cpp");
}

TEST_F(ConfPortConflict, FindsNoneInNoFile) {
    EXPECT_EQ(AskFile(""), 0);
    EXPECT_EQ(TLIBIsConfPortConflict((folder_ / "absent.sc").c_str(), &conflicts_), 0);
    EXPECT_EQ(TLIBIsConfPortConflict(nullptr, &conflicts_), 0);
    EXPECT_EQ(TLIBIsConfPortConflict(folder_.Path().c_str(), &conflicts_), 0);
    EXPECT_THAT(Messages(), IsEmpty());
}

TEST_F(ConfPortConflict, PassesOverEverySectionWithoutAList) {
    const std::string file = folder_.Write("new.sc", "[a]\ndst.ports=\"23/tcp\"\n");
    EXPECT_EQ(TLIBIsConfPortConflict(file.c_str(), nullptr), 0);
    EXPECT_THAT(Messages(), ElementsAre("Invalid Argument!!",
                                        "TLIBIsPortConflict FAILED=-1, port=23, protocol=tcp "
                                        "tavoerr=[0x0D00 service_is_port_conflict.cpp:N]"));
}

std::string Sections(int count) {
    std::string text;
    for (int i = 0; i < count; ++i) {
        text +=
            "[s" + std::to_string(i) + "]\ndst.ports=\"" + std::to_string(10000 + i) + "/tcp\"\n";
    }
    return text;
}

TEST_F(ConfPortConflict, ReadsTheFileAndTheCatalogueOnceForAllSections) {
    Service("web", "8080/tcp");
    const std::string file = folder_.Write("new.sc", Sections(50));
    const auto ask = [&] { EXPECT_EQ(TLIBIsConfPortConflict(file.c_str(), &conflicts_), 0); };
    EXPECT_EQ(CountOpens("/usr/local/etc/services.d/web.sc", ask), 1);
    EXPECT_EQ(CountOpens(file.c_str(), ask), 1);
}

// Each enumeration logs what it omits.
TEST_F(ConfPortConflict, ReadsACatalogueThatLogsForEachSectionTwice) {
    Service("web", "8080/tcp");
    WriteFile("/usr/local/etc/services.d/bad.sc", "[bad]\ntitle=T\n");
    const std::string file = folder_.Write("new.sc", Sections(3));
    const auto ask = [&] { EXPECT_EQ(TLIBIsConfPortConflict(file.c_str(), &conflicts_), 0); };
    EXPECT_EQ(CountOpens("/usr/local/etc/services.d/web.sc", ask), 6);
    EXPECT_EQ(Messages().size(), 12U);
}

TEST_F(ConfPortConflict, FindsTheOneSectionOfManyThatCollides) {
    Service("web", "8080/tcp");
    WriteFile("/usr/local/etc/services.d/many.sc", [] {
        std::string text;
        for (int i = 0; i < 200; ++i) {
            text += "[s" + std::to_string(i) + "]\ntitle=T\ndesc=D\ndst.ports=\"" +
                    std::to_string(10000 + i) + "/tcp\"\n";
        }
        return text;
    }());
    EXPECT_EQ(AskFile(Sections(200)), 0) << "each skips itself";
    EXPECT_EQ(AskFile(Sections(200) + "[t]\ndst.ports=\"10100/udp\"\n"), 0);
    EXPECT_EQ(AskFile(Sections(200) + "[t]\ndst.ports=\"10100/tcp\"\n"), 1);
    EXPECT_THAT(Messages(), ElementsAre("szTmpString=10100/tcp conflict"));
}

// Each range overlaps each other one, which would give four million pairs.
TEST_F(ConfPortConflict, TakesNoMemoryForPairsThatAreMerged) {
    constexpr int kRanges = 2000;
    std::string ranges = "1000:60000";
    for (int i = 1; i < kRanges; ++i) {
        ranges += "," + std::to_string(1000 + i) + ":60000";
    }
    Service("web", ranges + "/tcp");
    rusage before;
    rusage after;
    ASSERT_EQ(getrusage(RUSAGE_SELF, &before), 0);
    EXPECT_EQ(AskFile("[other]\ndst.ports=\"" + ranges + "/tcp\"\n"), 1);
    ASSERT_EQ(getrusage(RUSAGE_SELF, &after), 0);
    EXPECT_THAT(Conflicts(), ElementsAre("src 1000:60000 protocol 0"));
    EXPECT_LT(after.ru_maxrss - before.ru_maxrss, 32 * 1024) << "in KiB";
}

TEST_F(ConfPortConflict, NamesTheContainerThatCannotBeMade) {
    const std::string file = folder_.Write("new.sc", "[a]\ndst.ports=\"9/tcp\"\n");
    std::vector<std::string> said;
    const int allocations = ForEachFailingAllocation([&](FailingAllocation &fail) {
        log_.Clear();
        TAVO_SERVICE_CONF_PORT *conflicts = nullptr;
        const int result =
            fail.During([&] { return TLIBIsConfPortConflict(file.c_str(), &conflicts); });
        EXPECT_TRUE(result == 0 || (result == -1 && fail.Hit())) << result;
        if (result == -1) {
            said.push_back(Messages().back());
        }
        TAVOServiceConfPortsFree(conflicts);
    });
    EXPECT_GT(allocations, 20);
    EXPECT_THAT(
        said, testing::IsSupersetOf<std::string>(
                  {"Failed to TLIBCSzListAlloc, tavoerr=[0x0200 sz_list.cpp:N]",
                   "Failed to TLIBCSzHashAlloc, tavoerr=[0x0200 sz_hash.cpp:N]",
                   "Failed to keep the ports of section a of " + file + "[0x0200 sz_list.cpp:N]"}));
}

}  // namespace
}  // namespace tavo::test
