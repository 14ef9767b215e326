// A whole service file against everything else that is declared on the appliance.
#include <gmock/gmock.h>

#include "conflict_test.h"
#include "failing_allocation.h"
#include "held_socket.h"

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

TEST_F(ConfPortConflict, TellsTheFirstSectionThatCollides) {
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
        << "what collides before that is told";
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
    EXPECT_THAT(said, testing::IsSupersetOf(
                          {"Failed to TLIBCSzListAlloc, tavoerr=[0x0200 sz_list.cpp:N]",
                           "Failed to TLIBCSzHashAlloc, tavoerr=[0x0200 sz_hash.cpp:N]"}));
}

}  // namespace
}  // namespace tavo::test
