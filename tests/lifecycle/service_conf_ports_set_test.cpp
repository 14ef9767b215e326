#include <unistd.h>

#include <set>

#include "failing_allocation.h"
#include "set_test.h"

namespace tavo::test {
namespace {

using testing::Contains;
using testing::ElementsAre;
using testing::IsEmpty;

class PortsSet : public SetTest {
  protected:
    PortsSet() {
        WriteFile(kFile, std::string(kHead) + "dst.ports=\"81/tcp\"\n" + kTail);
        SetPorts("8080/tcp");
    }

    void SetPorts(const std::string &ports, uint32_t direction = TAVO_PORT_DIRECTION_DST) {
        ports_ = MakePorts(ports, direction);
    }

    int Set() override { return TLIBServiceConfPortsSet(&param_, ports_.get()); }

    // Expects a successful call without log lines and returns the file.
    std::string Written() {
        EXPECT_EQ(Set(), 0);
        EXPECT_THAT(Messages(), IsEmpty());
        EXPECT_EQ(TLIBCErrGet(), 0U);
        return ReadFile(kFile);
    }

    static constexpr char kHead[] = "# ours\n[web]\ntitle=\"Web\"\ndesc=\"D\"\n";
    static constexpr char kTail[] =
        "desc_extra=more\n\n[other]\ntitle=T\ndesc=D\ndst.ports=82/tcp\n";

    Ports ports_;
};

// ---- Invalid arguments ----

TEST_F(PortsSet, RefusesEachFieldOutOfRange) {
    const FileState before = StateOf(kFile);
    Programs programs;
    for (const auto &[what, param] : RefusedParams(param_)) {
        TLIBCErrSetEx(0, nullptr, 0);
        EXPECT_EQ(TLIBServiceConfPortsSet(&param, ports_.get()), -1) << what;
        EXPECT_EQ(ErrorState(), "0xD00 service_conf_ports_set.cpp") << what;
    }
    for (const bool has_param : {false, true}) {
        TLIBCErrSetEx(0, nullptr, 0);
        EXPECT_EQ(TLIBServiceConfPortsSet(has_param ? &param_ : nullptr,
                                          has_param ? nullptr : ports_.get()),
                  -1);
        EXPECT_EQ(ErrorState(), "0xD00 service_conf_ports_set.cpp");
    }
    EXPECT_EQ(StateOf(kFile), before);
    EXPECT_THAT(programs.Run(), IsEmpty());
    EXPECT_THAT(Messages(), IsEmpty());
}

TEST_F(PortsSet, RefusesPortsOfDifferentProtocols) {
    ports_->pNext = MakePorts("81/udp").release();
    ExpectUnchanged(
        {"Different protocol in port linked list"
         "[0x0D00 service_conf_ports_to_str.cpp:N]"});
}

TEST_F(PortsSet, AsksForThePortsWhateverTheirDirection) {
    SetPorts("8080,9000:9010/tcp,udp", TAVO_PORT_DIRECTION_SRC);
    param_.nCheckFlags = 31;
    const Failing failing("TLIBIsPortConflict", "web 8080,9000:9010 tcp,udp 31");
    ExpectUnchanged({});
}

TEST_F(PortsSet, RefusesAConflictBeforeAnyFileIsTouched) {
    param_.nCheckFlags = TAVO_PORT_CHECK_FW_SERVICE | TAVO_PORT_CHECK_PORT_FORWARD;
    param_.nRestartMode = TAVO_RESTART_MODE_RESTART;
    Programs programs;
    for (const uint32_t direction : {0U, 1U}) {
        log_.Clear();
        SetPorts("23,8080/tcp", direction);
        ExpectUnchanged({"Port conflict with existing ports! (port: 23,8080/tcp)[0x0000 :N]"});
    }
    EXPECT_THAT(programs.Run(), IsEmpty());
}

TEST_F(PortsSet, IsInNoConflictWithItself) {
    SetPorts("81/tcp");
    EXPECT_EQ(Written(), std::string(kHead) + "dst.ports=81/tcp\n" + kTail);
    SetPorts("82/tcp");
    log_.Clear();
    ExpectUnchanged({"Port conflict with existing ports! (port: 82/tcp)[0x0000 :N]"});
}

// ---- Written values ----

TEST_F(PortsSet, TakesTheQuotesOffEqualPorts) {
    SetPorts("81/tcp");
    EXPECT_EQ(Written(), std::string(kHead) + "dst.ports=81/tcp\n" + kTail);
    const FileState before = StateOf(kFile);
    EXPECT_EQ(Set(), 0);
    EXPECT_EQ(StateOf(kFile), before);
}

TEST_F(PortsSet, SetsTheOneKeyWithoutQuotes) {
    ASSERT_EQ(chmod(kFile, 0640), 0);
    SetPorts("9010:9000,8080/tcp,udp");
    EXPECT_EQ(Written(), std::string(kHead) + "dst.ports=9000:9010,8080/tcp,udp\n" + kTail);
    EXPECT_EQ(StateOf(kFile).mode, mode_t{S_IFREG | 0640});
    EXPECT_THAT(Calls(), IsEmpty());
}

TEST_F(PortsSet, TakesTheKeyFromTheFirstPort) {
    SetPorts("53/udp", TAVO_PORT_DIRECTION_SRC);
    ports_->pNext = MakePorts("54/udp").release();
    const std::string declared = std::string(kHead) + "dst.ports=\"81/tcp\"\n";
    std::string tail = kTail;
    tail.replace(tail.find("more\n"), 5, "more\nsrc.ports=53,54/udp\n");
    EXPECT_EQ(Written(), declared + tail);
    SetPorts("8081/tcp");
    ports_->nDirection = 2;
    EXPECT_EQ(Written(), std::string(kHead) + "dst.ports=8081/tcp\n" + tail);
}

TEST_F(PortsSet, WritesIntoTheDirectoryThatTheBitsMean) {
    const std::string before = ReadFile(kFile);
    const std::string written = std::string(kHead) + "dst.ports=8080/tcp\n" + kTail;
    const struct {
        uint32_t location;
        bool system;
    } cases[] = {{1, true}, {2, false}, {3, true}};
    for (const auto &[location, system] : cases) {
        WriteFile(kFile, before);
        WriteFile(kPackageFile, before);
        param_.nLocation = location;
        EXPECT_EQ(Set(), 0) << location;
        EXPECT_EQ(ReadFile(kFile), system ? written : before) << location;
        EXPECT_EQ(ReadFile(kPackageFile), system ? before : written) << location;
    }
}

TEST_F(PortsSet, WritesInEveryWriteMode) {
    for (uint32_t mode = 1; mode <= 3; ++mode) {
        param_.nWriteMode = mode;
        SetPorts(std::to_string(8080 + mode) + "/tcp");
        EXPECT_EQ(Written(), std::string(kHead) + "dst.ports=" + std::to_string(8080 + mode) +
                                 "/tcp\n" + kTail);
    }
}

// ---- Order of the steps ----

TEST_F(PortsSet, MakesEveryStepInItsOrder) {
    ActivateRelayDaemon();
    param_.nCheckFlags = TAVO_PORT_CHECK_FW_SERVICE | TAVO_PORT_CHECK_PORT_FORWARD;
    param_.nRestartMode = TAVO_RESTART_MODE_RESTART;
    const std::string before = ReadFile(kFile);
    Programs programs;
    programs.Before("/bin/cp", [&] { EXPECT_EQ(ReadFile(kFile), before); });
    programs.Before(kRouterTool, [&] {
        EXPECT_EQ(ReadFile(kCopy), before);
        EXPECT_NE(ReadFile(kFile), before);
    });
    programs.Before(kFirewallTool, [&] { EXPECT_EQ(ReadFile(kCopy), before); });
    Written();
    EXPECT_THAT(programs.Run(),
                ElementsAre(kCopied, kRouterTold, "/usr/tavo/bin/tavofirewall --reload",
                            "/bin/systemctl is-active --quiet tavorelayd",
                            "/bin/systemctl reload tavorelayd"));
}

TEST_F(PortsSet, LetsTheCheckFlagsDecideWhichStepsAreMade) {
    param_.nRestartMode = TAVO_RESTART_MODE_RESTART;
    param_.nRestartFlags = 4;
    const std::string before = ReadFile(kFile);
    for (uint32_t flags = 1; flags <= 31; ++flags) {
        WriteFile(kFile, before);
        Programs programs;
        param_.nCheckFlags = flags;
        EXPECT_EQ(Set(), 0) << flags;
        std::vector<std::string> steps;
        if ((flags & TAVO_PORT_CHECK_FW_SERVICE) != 0) {
            steps.emplace_back(kCopied);
            if ((flags & TAVO_PORT_CHECK_PORT_FORWARD) != 0) {
                steps.emplace_back(kRouterTold);
            }
        }
        EXPECT_EQ(programs.Run(), steps) << flags;
        EXPECT_EQ(ReadFile(kFile) != before, !steps.empty()) << flags;
    }
}

TEST_F(PortsSet, RestartsWithoutAFileWhenItOnlyChecksPorts) {
    std::filesystem::remove(kFile);
    param_.nCheckFlags = TAVO_PORT_CHECK_DEFAULT;
    EXPECT_EQ(Set(), 0);
    EXPECT_THAT(Calls(), IsEmpty());
    param_.nRestartMode = TAVO_RESTART_MODE_RESTART;
    param_.nRestartFlags = TAVO_RESTART_RELAY;
    EXPECT_EQ(Set(), 0);
    EXPECT_THAT(Calls(), ElementsAre(kRelayAsked));
    EXPECT_THAT(Messages(), IsEmpty());
    EXPECT_THAT(Entries(kSystemServices), IsEmpty());
}

// ---- Failing steps ----

TEST_F(PortsSet, MakesNoFileThatIsMissing) {
    std::filesystem::remove(kFile);
    TLIBCErrSetEx(0x123, "earlier.cpp", 1);
    Programs programs;
    EXPECT_EQ(Set(), -1);
    EXPECT_THAT(Messages(), ElementsAre("Configure file (/usr/tavo/etc/services.d/web.sc) does not "
                                        "exist![0x0123 earlier.cpp:N]"));
    EXPECT_THAT(Entries(kSystemServices), IsEmpty());
    EXPECT_THAT(programs.Run(), IsEmpty());
}

TEST_F(PortsSet, NeedsASectionWithKeys) {
    Fill(param_.szSectionName, "missing");
    ExpectUnchanged(
        {"Section not found or failed to get section(missing) from "
         "/usr/tavo/etc/services.d/web.sc"});
    std::filesystem::remove(kFile);
    std::filesystem::create_directory(kFile);
    log_.Clear();
    EXPECT_EQ(Set(), -1);
    EXPECT_THAT(Messages(), Contains("Section not found or failed to get section(missing) from "
                                     "/usr/tavo/etc/services.d/web.sc"));
}

TEST_F(PortsSet, LeavesAFileAloneThatCannotBeCopied) {
    param_.nCheckFlags |= TAVO_PORT_CHECK_PORT_FORWARD;
    param_.nRestartMode = TAVO_RESTART_MODE_RESTART;
    {
        Programs programs;
        programs.Answer("/bin/cp", 1);
        ExpectUnchanged({kCopyFailed});
        EXPECT_THAT(programs.Run(), ElementsAre(kCopied));
        EXPECT_EQ(TLIBCErrGet(), 0U);
    }
    log_.Clear();
    std::filesystem::remove("/bin/cp");
    ExpectUnchanged({kCopyFailed});
    EXPECT_EQ(ErrorState(), "0x700 exec.cpp");
}

TEST_F(PortsSet, NeedsTheNameOfTheCopy) {
    ExpectFullFolderInTheWay();
}

TEST_F(PortsSet, TakesNoFileForMissingThatItCannotLookAt) {
    const FileState before = StateOf(kFile);
    ExpectUnknownFile("service_conf_ports_set.cpp");
    EXPECT_EQ(StateOf(kFile), before);
}

TEST_F(PortsSet, TakesTheNameOfTheCopyFromWhatWasPlanted) {
    ExpectPlantsRemoved();
}

TEST_F(PortsSet, LetsNobodyLeadTheCopyElsewhere) {
    constexpr char kVictim[] = "/var/tmp/victim";
    WriteFile(kVictim, "precious");
    ASSERT_EQ(symlink(kVictim, kCopy), 0);
    ExpectOwnCopy();
    ASSERT_EQ(link(kVictim, kCopy), 0);
    ExpectOwnCopy();
    EXPECT_EQ(ReadFile(kVictim), "precious");
}

TEST_F(PortsSet, FailsWithoutALineWhenTheKeyCannotBeSet) {
    param_.nCheckFlags |= TAVO_PORT_CHECK_PORT_FORWARD;
    param_.nRestartMode = TAVO_RESTART_MODE_RESTART;
    const Failing failing("TLIBCFileSetSectionValue", "dst.ports");
    ExpectUnchanged({});
}

TEST_F(PortsSet, IgnoresThatNoListenerCanBeNotified) {
    param_.nCheckFlags |= TAVO_PORT_CHECK_PORT_FORWARD;
    param_.nRestartMode = TAVO_RESTART_MODE_RESTART;
    SetExitStatus("tavoroutertool", "3");
    std::filesystem::remove(kFirewallTool);
    EXPECT_EQ(Set(), 0);
    EXPECT_THAT(Messages(),
                ElementsAre("/usr/tavo/sbin/tavoroutertool --udpate /tmp/web.sc "
                            "/usr/tavo/etc/services.d/web.sc failed![0x0000 :N]",
                            "Failed to execute [/usr/tavo/bin/tavofirewall --reload], ret:-1",
                            "Restart service fail[0x0700 exec.cpp:N]"));
    EXPECT_EQ(ReadFile(kFile), std::string(kHead) + "dst.ports=8080/tcp\n" + kTail);
}

TEST_F(PortsSet, SurvivesEveryFailingAllocation) {
    const std::string before = ReadFile(kFile);
    const std::string written = std::string(kHead) + "dst.ports=8080/tcp\n" + kTail;
    std::set<std::string> messages;
    EXPECT_GT(ForEachFailingAllocation([&](FailingAllocation &fail) {
                  WriteFile(kFile, before);
                  log_.Clear();
                  TLIBCErrSetEx(0, nullptr, 0);
                  const int result = fail.During([&] { return Set(); });
                  if (result != 0) {
                      EXPECT_TRUE(fail.Hit());
                      EXPECT_NE(TLIBCErrGet(), 0U);
                  }
                  EXPECT_EQ(ReadFile(kFile), result == 0 ? written : before);
                  EXPECT_THAT(InTmp(), IsEmpty());
                  for (const std::string &message : Messages()) {
                      messages.insert(message);
                  }
              }),
              0);
    EXPECT_THAT(messages, Contains("Failed to alloc memory"));
}

TEST_F(PortsSet, NamesItsOwnSourceFileInSharedSteps) {
    ExpectLinesToName("service_conf_ports_set.cpp");
    SetPorts("23/tcp");
    EXPECT_EQ(Set(), -1);
    EXPECT_EQ(SourceOf("Port conflict with existing ports!"), "service_conf_ports_set.cpp");
}

}  // namespace
}  // namespace tavo::test
