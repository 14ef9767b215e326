#include <set>

#include "failing_allocation.h"
#include "lifecycle_test.h"
#include "stand_ins.h"

namespace tavo::test {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

class SectionPortSet : public LifecycleTest {
  protected:
    SectionPortSet() {
        for (const char *file : {kFile, kPackageFile}) {
            WriteFile(file, Declaring("dst.ports=\"81/tcp\"\n"));
        }
        SetPorts("80,100:110/tcp");
    }

    // A file whose section has these keys.
    static std::string Declaring(const std::string &keys) {
        return "# ours\n[web]\ntitle=\"Web\"\n" + keys + "\n[other]\na=1\n";
    }

    void SetPorts(const std::string &ports, uint32_t direction = TAVO_PORT_DIRECTION_DST) {
        ports_ = MakePorts(ports, direction);
    }

    int Set(int location = 1, const char *file = "web.sc", const char *section = "web") {
        return TAVOServiceConfSectionPortSet(location, file, section, ports_.get());
    }

    // Expects a successful call and returns the system's file.
    std::string Written() {
        EXPECT_EQ(Set(), 0);
        return ReadFile(kFile);
    }

    // Expects a failure with this error state, without log lines, changes or notifications.
    void ExpectUnchanged(const std::string &error) {
        const FileState before = StateOf(kFile);
        TLIBCErrSetEx(0, nullptr, 0);
        EXPECT_EQ(Set(), -1);
        EXPECT_EQ(StateOf(kFile), before);
        EXPECT_EQ(ErrorState(), error);
        EXPECT_THAT(Messages(), IsEmpty());
        EXPECT_THAT(Calls(), IsEmpty());
    }

    static constexpr char kFile[] = "/usr/tavo/etc/services.d/web.sc";
    static constexpr char kPackageFile[] = "/usr/local/etc/services.d/web.sc";
    static constexpr char kFoundThere[] = "0xC000 service_conf_file_verify.cpp";

    Ports ports_;
};

TEST_F(SectionPortSet, TakesTheQuotesOffEqualPorts) {
    WriteFile(kFile, Declaring("dst.ports = \"8100/tcp\"\n"));
    SetPorts("8100/tcp");
    EXPECT_EQ(Written(), Declaring("dst.ports=8100/tcp\n"));
}

TEST_F(SectionPortSet, SetsTheOneKeyWithoutQuotesAndReloadsTheFirewall) {
    ActivateRelayDaemon();
    ASSERT_EQ(chmod(kFile, 0640), 0);
    Programs programs;
    programs.Before(kFirewallTool,
                    [] { EXPECT_EQ(ReadFile(kFile), Declaring("dst.ports=80,100:110/tcp\n")); });
    EXPECT_EQ(Written(), Declaring("dst.ports=80,100:110/tcp\n"));
    EXPECT_EQ(StateOf(kFile).mode, mode_t{S_IFREG | 0640});
    EXPECT_THAT(programs.Run(), ElementsAre("/usr/tavo/bin/tavofirewall --reload"));
    EXPECT_THAT(Messages(), IsEmpty());
}

// The file is found by an error of its verification, which sets the error state.
TEST_F(SectionPortSet, LeavesTheErrorOfLookingForTheFile) {
    EXPECT_EQ(Set(), 0);
    EXPECT_EQ(ErrorState(), kFoundThere);
}

TEST_F(SectionPortSet, RefusesWhatIsMissingOrLeadsAway) {
    const auto expect_refused = [](const char *file, const char *section,
                                   const TAVO_SERVICE_CONF_PORT *ports) {
        TLIBCErrSetEx(0, nullptr, 0);
        EXPECT_EQ(TAVOServiceConfSectionPortSet(1, file, section, ports), -1);
        EXPECT_EQ(ErrorState(), "0xD00 service_conf_section_port_set.cpp");
    };
    expect_refused(nullptr, "web", ports_.get());
    expect_refused("web.sc", nullptr, ports_.get());
    expect_refused("web.sc", "web", nullptr);
    expect_refused("..", "web", ports_.get());
    expect_refused("../services.d/web.sc", "web", ports_.get());
    EXPECT_THAT(Messages(), IsEmpty());
    EXPECT_THAT(Calls(), IsEmpty());
}

TEST_F(SectionPortSet, TakesTheSystemForOneOnly) {
    const std::string before = ReadFile(kFile);
    for (const int location : {0, 2, 3, -1, 5}) {
        WriteFile(kPackageFile, before);
        EXPECT_EQ(Set(location), 0) << location;
        EXPECT_EQ(ReadFile(kFile), before) << location;
        EXPECT_EQ(ReadFile(kPackageFile), Declaring("dst.ports=80,100:110/tcp\n")) << location;
    }
    WriteFile(kPackageFile, before);
    EXPECT_EQ(Set(1), 0);
    EXPECT_EQ(ReadFile(kPackageFile), before);
}

TEST_F(SectionPortSet, TakesTheKeyFromTheFirstPort) {
    SetPorts("53/udp", TAVO_PORT_DIRECTION_SRC);
    ports_->pNext = MakePorts("54/udp").release();
    EXPECT_EQ(Written(), Declaring("dst.ports=\"81/tcp\"\nsrc.ports=53,54/udp\n"));
    SetPorts("80/tcp");
    ports_->nDirection = 2;
    EXPECT_EQ(Written(), Declaring("dst.ports=80/tcp\nsrc.ports=53,54/udp\n"));
}

TEST_F(SectionPortSet, PrintsPortsAsTheyAre) {
    const struct {
        std::vector<TAVO_SERVICE_CONF_PORT> ports; /* type, protocol, start, end */
        const char *value;
    } cases[] = {
        {{{1, 0, 1, 443, 0, nullptr}, {1, 0, 1, 80, 0, nullptr}, {1, 0, 1, 80, 0, nullptr}},
         "443,80,80/tcp"},
        {{{1, 1, 2, 110, 100, nullptr}, {1, 2, 2, 105, 107, nullptr}}, "110:100,105:107/udp"},
        {{{1, 0, 3, 0, 65535, nullptr}, {1, 1, 3, 65535, 0, nullptr}}, "0,65535:0/tcp,udp"},
        // The protocols of the first port apply to all.
        {{{1, 0, 1, 80, 0, nullptr}, {1, 0, 2, 81, 0, nullptr}}, "80,81/tcp"},
        {{{1, 0, 0xFFFFFFFD, 80, 0, nullptr}}, "80/tcp"},
        {{{1, 0, 0, 80, 0, nullptr}, {1, 0, 3, 81, 0, nullptr}}, "80,81"},
        {{{1, 0, 4, 80, 0, nullptr}}, "80"},
        {{{1, 1, 1, 0x7FFFFFFF, 0xFFFFFFFF, nullptr}}, "2147483647:-1/tcp"},
    };
    for (auto [ports, value] : cases) {
        for (std::size_t i = 1; i < ports.size(); ++i) {
            ports[i - 1].pNext = &ports[i];
        }
        EXPECT_EQ(TAVOServiceConfSectionPortSet(1, "web.sc", "web", ports.data()), 0) << value;
        EXPECT_EQ(ReadFile(kFile), Declaring("dst.ports=" + std::string(value) + "\n"));
    }
}

TEST_F(SectionPortSet, ChecksForNoConflict) {
    SetPorts("23/tcp");
    EXPECT_EQ(Written(), Declaring("dst.ports=23/tcp\n"));
}

// 126 ports of three digits and the commas between them are 503 bytes, "/tcp" is four.
TEST_F(SectionPortSet, HasRoomForAValueOf511Bytes) {
    std::string ports = "100";
    for (int i = 1; i < 126; ++i) {
        ports += "," + std::to_string(100 + i);
    }
    SetPorts(ports + ",999/tcp");
    EXPECT_EQ(Written(), Declaring("dst.ports=" + ports + ",999/tcp\n"));
    EXPECT_EQ((ports + ",999/tcp").size(), 511U);
    ForgetCalls();
    SetPorts(ports + ",9999/tcp");
    ExpectUnchanged("0xBF00 service_conf_section_port_set.cpp");
    // Without protocols, the ports may fill the whole buffer.
    for (const bool fits : {true, false}) {
        SetPorts(ports + (fits ? ",9999,99/tcp" : ",9999,999/tcp"));
        ports_->nProtocol = 0;
        ForgetCalls();
        if (fits) {
            EXPECT_EQ(Written(), Declaring("dst.ports=" + ports + ",9999,99\n"));
        } else {
            ExpectUnchanged("0xBF00 service_conf_section_port_set.cpp");
        }
    }
}

TEST_F(SectionPortSet, SaysThatTheFileIsMissing) {
    for (const int location : {1, 2}) {
        log_.Clear();
        TLIBCErrSetEx(0, nullptr, 0);
        EXPECT_EQ(Set(location, "missing.sc"), -1);
        EXPECT_THAT(Messages(), ElementsAre("Service conf does not exist, tavoerr="
                                            "[0x0700 service_conf_file_verify.cpp:N]"));
        EXPECT_EQ(ErrorState(), "0x700 service_conf_file_verify.cpp");
    }
    EXPECT_THAT(Calls(), IsEmpty());
    EXPECT_THAT(Entries(kSystemServices), ElementsAre("web.sc"));
}

// An earlier error state must not affect the check for the file.
TEST_F(SectionPortSet, LooksForTheFileItself) {
    TLIBCErrSetEx(0xC000, "earlier.cpp", 1);
    EXPECT_EQ(Set(1, "missing.sc"), -1);
    EXPECT_EQ(ErrorState(), "0x700 service_conf_file_verify.cpp");
}

TEST_F(SectionPortSet, CutsAPathThatIsTooLong) {
    EXPECT_EQ(Set(1, std::string(1 << 16, 'a').c_str()), -1);
    EXPECT_THAT(Messages(), ElementsAre("Service conf does not exist, tavoerr="
                                        "[0x0700 service_conf_file_verify.cpp:N]"));
}

TEST_F(SectionPortSet, LeavesAMissingSectionToTheCoreLibrary) {
    const FileState before = StateOf(kFile);
    EXPECT_EQ(Set(1, "web.sc", "missing"), -1);
    EXPECT_EQ(StateOf(kFile), before);
    EXPECT_EQ(TLIBCErrGet(), 0xD00U);
    EXPECT_THAT(Messages(), IsEmpty());
    EXPECT_THAT(Calls(), IsEmpty());
}

TEST_F(SectionPortSet, FailsSilentlyAtEachStepBeforeTheReload) {
    for (const char *function : {"TLIBCStrCat", "TLIBServiceProtoIndexGet",
                                 "TLIBServiceProtoStrGet", "TLIBCFileSetSectionValue"}) {
        const Failing failing(function);
        ExpectUnchanged(kFoundThere);
    }
    for (const char *piece : {"80", ",100:110", "/", "tcp"}) {
        const Failing failing("TLIBCStrCat", piece);
        ExpectUnchanged(kFoundThere);
    }
}

TEST_F(SectionPortSet, FailsWhenTheFirewallCannotBeReloadedButKeepsWhatItWrote) {
    std::filesystem::remove(kFirewallTool);
    EXPECT_EQ(Set(), -1);
    EXPECT_THAT(Messages(), ElementsAre("Failed to execute [/usr/tavo/bin/tavofirewall --reload], "
                                        "ret:-1"));
    EXPECT_EQ(ErrorState(), "0x700 exec.cpp");
    EXPECT_EQ(ReadFile(kFile), Declaring("dst.ports=80,100:110/tcp\n"));
}

TEST_F(SectionPortSet, ReportsEveryFailingAllocation) {
    const std::string before = ReadFile(kFile);
    const std::string written = Declaring("dst.ports=80,100:110/tcp\n");
    const int allocations = ForEachFailingAllocation([&](FailingAllocation &fail) {
        WriteFile(kFile, before);
        const int result = fail.During([&] { return Set(); });
        EXPECT_EQ(result, fail.Hit() ? -1 : 0);
        EXPECT_EQ(TLIBCErrGet(), fail.Hit() ? 0x200U : 0xC000U);
        const std::string now = ReadFile(kFile);
        EXPECT_TRUE(now == written || (result != 0 && now == before)) << now;
    });
    EXPECT_GT(allocations, 0);
}

}  // namespace
}  // namespace tavo::test
