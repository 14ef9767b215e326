// Removing a section: the resulting service file, and that all stores are unchanged if a step
// fails.
#include <functional>

#include "failing_allocation.h"
#include "service_files_test.h"

namespace tavo::test {
namespace {

using testing::AnyOf;
using testing::ElementsAre;
using testing::IsEmpty;

constexpr char kOther[] = "# the other one\n[other]\ndst.ports = 7003\n";
constexpr char kGlobal[] = "[global]\nversion=1\n";
constexpr char kRecordRemoval[] = "tavofirewall --remove-serv-rec game";

class SectionRemoval : public ServiceFilesTest {
  protected:
    SectionRemoval() {
        WriteFile(kGameFile, std::string(kGame) + kOther);
        WriteFile("/usr/local/etc/services.d/chat.sc", "[chat]\ndst.ports=5222\n");
        std::filesystem::remove_all(kFirewallRules);
        MakeFolder(kFirewallRules);
        WriteFile(kForwardingRules, "rules");
    }

    static int Remove(const SetParam &param) { return TLIBServiceConfSectionRemove(&param); }

    static SetParam Restarting(uint32_t check_flags, uint32_t restart_flags) {
        SetParam param = RemovalParam(check_flags);
        param.nRestartMode = TAVO_RESTART_MODE_RESTART;
        param.nRestartFlags = restart_flags;
        return param;
    }

    // From now on, the firewall tool changes the rules of the firewall and of port forwarding.
    static void LetToolChangeRules() {
        WriteScript(kFirewallTool,
                    "rm -r /usr/tavo/etc/firewall.d/sub\n"
                    "echo changed > /usr/tavo/etc/firewall.d/file\n"
                    "echo changed > /usr/tavo/etc/portforward/rule.conf\n"
                    ". /usr/tavo/lib/stand-ins/record");
    }

    static Lines SideCopies() {
        Lines names;
        for (const char *folder :
             {"/usr/tavo/etc", "/usr/local/etc", "/usr/tavo/etc/portforward"}) {
            for (const std::string &name : Entries(folder)) {
                if (name.find(".tmp.") != std::string::npos) {
                    names.push_back(name);
                }
            }
        }
        return names;
    }
};

// ---- The file ----

TEST_F(SectionRemoval, LeavesTheRestOfTheFile) {
    EXPECT_EQ(Remove(RemovalParam()), 0);
    EXPECT_EQ(ReadFile(kGameFile), kOther);
    EXPECT_THAT(Calls(), IsEmpty());
    EXPECT_THAT(SideCopies(), IsEmpty());
    EXPECT_THAT(Messages(), IsEmpty());
    EXPECT_EQ(TLIBCErrGet(), 0U);
}

TEST_F(SectionRemoval, KeepsAFileThatDeclaresAnotherService) {
    for (const std::string &rest : {kGlobal + std::string(kOther), kOther + std::string(kGlobal)}) {
        WriteFile(kGameFile, rest + kGame);
        EXPECT_EQ(Remove(RemovalParam()), 0);
        EXPECT_EQ(ReadFile(kGameFile), rest);
    }
}

TEST_F(SectionRemoval, OfTheSystemsFilesToo) {
    WriteFile("/usr/tavo/etc/services.d/game.sc", std::string(kGame) + kOther);
    SetParam param = RemovalParam();
    param.nLocation = 1;
    EXPECT_EQ(Remove(param), 0);
    EXPECT_EQ(ReadFile("/usr/tavo/etc/services.d/game.sc"), kOther);
    EXPECT_EQ(ReadFile(kGameFile), std::string(kGame) + kOther);
    EXPECT_THAT(SideCopies(), IsEmpty());
}

TEST_F(SectionRemoval, DeletesAFileThatDeclaresNothingAnyMore) {
    for (const std::string &contents :
         {std::string(kGame), kGlobal + std::string(kGame), kGame + std::string(kGlobal)}) {
        WriteFile(kGameFile, contents);
        EXPECT_EQ(Remove(RemovalParam()), 0);
        EXPECT_FALSE(std::filesystem::exists(kGameFile)) << contents;
    }
    EXPECT_THAT(Entries(kPackageServices), ElementsAre("chat.sc"));
    EXPECT_THAT(Messages(), IsEmpty());
    WriteFile(kGameFile, std::string("[Global]\nversion=1\n") + kGame);
    EXPECT_EQ(Remove(RemovalParam()), 0);
    EXPECT_EQ(ReadFile(kGameFile), "[Global]\nversion=1\n") << "a service of that name";
}

TEST_F(SectionRemoval, TakesWhatIsNotThereForRemoved) {
    const struct {
        const char *before;
        bool stays;
    } cases[] = {{kOther, true},     {"[game]\n[other]\ndst.ports=7003\n", true},
                 {"[game]\n", true}, {kGlobal, false},
                 {"", false},        {"# nothing\n", false}};
    for (const auto &[before, stays] : cases) {
        StartAnew();
        WriteFile(kGameFile, before);
        EXPECT_EQ(Remove(RemovalParam()), 0);
        EXPECT_THAT(Messages(), ElementsAre("Section (game) not found![0x0000 :N]"));
        EXPECT_EQ(std::filesystem::exists(kGameFile), stays) << before;
        if (stays) {
            EXPECT_EQ(ReadFile(kGameFile), before);
        }
    }
    StartAnew();
    std::filesystem::remove(kGameFile);
    EXPECT_EQ(Remove(RemovalParam()), 0);
    EXPECT_THAT(Messages(), ElementsAre(std::string("Configure file (") + kGameFile +
                                        ") does not exist![0x0000 :N]"));
    EXPECT_THAT(Entries(kPackageServices), ElementsAre("chat.sc"));
}

TEST_F(SectionRemoval, IsKeptWhereTheEmptiedFileCannotBeDeleted) {
    WriteFile(kGameFile, kGame);
    const Failing removal("unlink", kGameFile, EIO);
    EXPECT_EQ(Remove(RemovalParam()), 0);
    EXPECT_THAT(Messages(),
                ElementsAre(std::string("remove file ") + kGameFile + " fail![0x0000 :N]"));
    EXPECT_EQ(ReadFile(kGameFile), "");
}

// ---- Notified listeners ----

TEST_F(SectionRemoval, ReportsWhomTheFlagsName) {
    const struct {
        SetParam param;
        Lines calls;
    } cases[] = {
        {RemovalParam(4), {}},
        {RemovalParam(6), {}},
        {RemovalParam(12), {}},
        {RemovalParam(5), {kRecordRemoval}},
        {RemovalParam(7), {kRecordRemoval}},
        {Restarting(4, 1), {kFirewallReloaded, kRelayAsked}},
        {Restarting(5, 2), {kRecordRemoval, kRelayAsked}},
        {Restarting(4, 4), {}},
    };
    for (const auto &[param, calls] : cases) {
        std::filesystem::remove("/run/calls/all");
        WriteFile(kGameFile, std::string(kGame) + kOther);
        EXPECT_EQ(Remove(param), 0);
        EXPECT_EQ(ReadFile(kGameFile), kOther);
        EXPECT_EQ(Calls(), calls) << param.nCheckFlags << " " << param.nRestartFlags;
    }
    EXPECT_THAT(Messages(), IsEmpty());
}

TEST_F(SectionRemoval, CopiesAllFirstAndForgetsTheCopiesLast) {
    const Programs programs;
    EXPECT_EQ(Remove(Restarting(7, 1)), 0);
    EXPECT_THAT(
        programs.Run(),
        ElementsAre(
            std::string("/bin/cp -rf ") + kPackageServices + " " + SideCopyOf(kPackageServices),
            std::string("/bin/cp -rf ") + kFirewallRules + " " + SideCopyOf(kFirewallRules),
            std::string("/bin/cp -rf ") + kForwardingRules + " " + SideCopyOf(kForwardingRules),
            "/usr/tavo/bin/tavofirewall --remove-serv-rec game",
            "/usr/tavo/bin/tavofirewall --reload", "/bin/systemctl is-active --quiet tavorelayd",
            "/bin/rm -rf " + SideCopyOf(kPackageServices),
            "/bin/rm -rf " + SideCopyOf(kFirewallRules),
            "/bin/rm -rf " + SideCopyOf(kForwardingRules)));
}

TEST_F(SectionRemoval, HasTheFirewallDropItsRecordBeforeTheSectionGoes) {
    WriteScript(kFirewallTool, std::string("cat ") + kGameFile + " > /run/seen-by$1");
    EXPECT_EQ(Remove(Restarting(5, 1)), 0);
    EXPECT_EQ(ReadFile("/run/seen-by--remove-serv-rec"), std::string(kGame) + kOther);
    EXPECT_EQ(ReadFile("/run/seen-by--reload"), kOther);
}

TEST_F(SectionRemoval, KeepsWhatTheToolsChangedAndTakesNoNoticeOfTheirStatus) {
    LetToolChangeRules();
    SetExitStatus("tavofirewall", "1");
    EXPECT_EQ(Remove(Restarting(7, 1)), 0);
    EXPECT_EQ(ReadFile("/usr/tavo/etc/firewall.d/file"), "changed\n");
    EXPECT_EQ(ReadFile(kForwardingRules), "changed\n");
    EXPECT_THAT(SideCopies(), IsEmpty());
    EXPECT_THAT(Messages(), IsEmpty());
}

// ---- Failing steps ----

TEST_F(SectionRemoval, RefusesARecordThatIsNotForIt) {
    const Lines before = AllStores();
    const Programs programs;
    const auto refuses = [&](const std::function<void(SetParam &)> &change) {
        SetParam param = Restarting(7, 1);
        change(param);
        StartAnew();
        EXPECT_EQ(Remove(param), -1);
        EXPECT_EQ(ErrorState(), "0xD00 service_conf_section_remove.cpp");
        EXPECT_THAT(Messages(), IsEmpty());
    };
    EXPECT_EQ(TLIBServiceConfSectionRemove(nullptr), -1);
    EXPECT_EQ(ErrorState(), "0xD00 service_conf_section_remove.cpp");
    for (const uint32_t mode : {0U, 3U}) {
        refuses([&](SetParam &param) { param.nRestartMode = mode; });
    }
    for (const uint32_t flags : {0U, 16U, 32U}) {
        refuses([&](SetParam &param) { param.nRestartFlags = flags; });
    }
    for (const uint32_t mode : {0U, 1U, 2U, 4U, 7U}) {
        refuses([&](SetParam &param) { param.nWriteMode = mode; });
    }
    for (const uint32_t flags : {0U, 1U, 2U, 3U, 8U, 16U}) {
        refuses([&](SetParam &param) { param.nCheckFlags = flags; });
    }
    for (const uint32_t location : {0U, 3U, 4U, 7U}) {
        refuses([&](SetParam &param) { param.nLocation = location; });
    }
    for (const char *name : {"", "..", "../game.sc"}) {
        refuses([&](SetParam &param) { Fill(param.szFileName, name); });
    }
    refuses([&](SetParam &param) { Fill(param.szSectionName, ""); });
    EXPECT_THAT(programs.Run(), IsEmpty());
    EXPECT_EQ(AllStores(), before);
}

TEST_F(SectionRemoval, TakesNamesThatFillTheirFields) {
    const std::string name(256, 's');
    WriteFile(kGameFile, "[" + name + "]\ndst.ports=7001\n" + kOther);
    SetParam param = RemovalParam(5);
    Fill(param.szFileName, std::string(sizeof(param.szFileName) - 7, '/') + "game.sc");
    Fill(param.szSectionName, name);
    EXPECT_EQ(Remove(param), 0);
    EXPECT_EQ(ReadFile(kGameFile), kOther);
    EXPECT_THAT(Calls(), ElementsAre("tavofirewall --remove-serv-rec " + name));
}

TEST_F(SectionRemoval, DoesNothingWithoutABackup) {
    const Lines before = AllStores();
    std::filesystem::remove("/bin/cp");
    EXPECT_EQ(Remove(Restarting(7, 1)), -1);
    EXPECT_THAT(Messages(),
                ElementsAre(std::string("Failed to cp -rf ") + kPackageServices + " " +
                                SideCopyOf(kPackageServices) + "[0x0700 exec.cpp:N]",
                            "Backup configure fail![0x0D00 service_conf_common.cpp:N]"));
    EXPECT_EQ(AllStores(), before);
    EXPECT_THAT(Calls(), IsEmpty());
}

TEST_F(SectionRemoval, BringsEverythingBackWhereTheFirewallToolCannotBeRun) {
    const Lines before = AllStores();
    Programs programs;
    programs.Before(kFirewallTool, [] {
        MakeFolder("/usr/tavo/etc/firewall.d/new");
        WriteFile("/usr/tavo/etc/firewall.d/file", "changed");
        WriteFile(kForwardingRules, "changed");
    });
    programs.Answer(kFirewallTool, -1);
    EXPECT_EQ(Remove(Restarting(7, 1)), -1);
    EXPECT_EQ(AllStores(), before);
    EXPECT_THAT(Messages(), ElementsAre("Failed to execute [/usr/tavo/bin/tavofirewall "
                                        "--remove-serv-rec game], ret:-1",
                                        "Remove service record in firewall rule fail![0x0000 :N]"));
    EXPECT_EQ(programs.Run().back(),
              "/bin/mv -f " + SideCopyOf(kForwardingRules) + " " + kForwardingRules)
        << "no restart";
}

TEST_F(SectionRemoval, NeedsTheFirewallToolOnlyToNotifyIt) {
    std::filesystem::remove(kFirewallTool);
    const Lines before = AllStores();
    EXPECT_EQ(Remove(RemovalParam(5)), -1);
    EXPECT_EQ(AllStores(), before);
    EXPECT_EQ(Remove(RemovalParam(6)), 0);
    EXPECT_EQ(ReadFile(kGameFile), kOther);
}

class FailingSectionRemoval : public SectionRemoval {
  protected:
    FailingSectionRemoval() {
        WriteFile(kGameFile, kGame);
        LetToolChangeRules();
        before_ = AllStores();
    }

    // Expects that the step fails with this log line and that all stores are unchanged.
    void ExpectRollback(const std::string &line) {
        StartAnew();
        std::filesystem::remove("/run/calls/all");
        TLIBCErrSetEx(0x123, "before.cpp", 1);
        EXPECT_EQ(Remove(Restarting(7, 1)), -1);
        EXPECT_THAT(
            Messages(),
            ElementsAre(line, "Remove service configure section fail![0x0123 before.cpp:N]"));
        EXPECT_EQ(AllStores(), before_);
        EXPECT_THAT(Calls(), ElementsAre(kRecordRemoval)) << "no restart";
    }

    Lines before_;
};

TEST_F(FailingSectionRemoval, BringsEverythingBack) {
    {
        const Failing step("TLIBCSzHashAlloc");
        ExpectRollback("Failed to alloc memory");
    }
    {
        const Failing step("TLIBCSzListAlloc");
        ExpectRollback("Failed to TLIBCSzListAlloc[0x0123 before.cpp:N]");
    }
    {
        const Failing step("TLIBCFileRemoveSection", "game");
        ExpectRollback("Remove section (game) fail![0x0123 before.cpp:N]");
    }
    {
        const Failing step("TLIBCFileEnumSection", kGameFile);
        ExpectRollback("Failed to TLIBCFileEnumSection[0x0123 before.cpp:N]");
    }
}

TEST_F(FailingSectionRemoval, BringsAFolderInPlaceOfTheFileBack) {
    std::filesystem::remove(kGameFile);
    MakeFolder(kGameFile);
    before_ = AllStores();
    EXPECT_EQ(Remove(Restarting(7, 1)), -1);
    EXPECT_EQ(Messages().front(),
              std::string("Failed to get section(game) from file(") + kGameFile + ")");
    EXPECT_EQ(Messages().size(), 2U);
    EXPECT_EQ(AllStores(), before_);
}

TEST_F(FailingSectionRemoval, TakesNoFileForMissingThatItCannotLookAt) {
    {
        const Failing look("stat", kGameFile, EIO);
        EXPECT_EQ(Remove(Restarting(7, 1)), -1);
    }
    EXPECT_EQ(ErrorState(), "0x900 service_conf_section_remove.cpp");
    EXPECT_THAT(
        Messages(),
        ElementsAre(
            std::string("Failed to look at ") + kGameFile +
                ": Input/output error[0x0900 service_conf_section_remove.cpp:N]",
            "Remove service configure section fail![0x0900 service_conf_section_remove.cpp:N]"));
    EXPECT_EQ(AllStores(), before_);
}

TEST_F(FailingSectionRemoval, SaysThatNothingCouldBeBroughtBack) {
    std::filesystem::remove("/bin/rm");
    const Failing step("TLIBCFileRemoveSection", "game");
    EXPECT_EQ(Remove(Restarting(4, 1)), -1);
    EXPECT_THAT(Messages(),
                ElementsAre("Remove section (game) fail![0x0000 :N]",
                            "Remove service configure section fail![0x0000 :N]",
                            "Failed to rm -rf /usr/local/etc/services.d[0x0700 exec.cpp:N]",
                            "Failed to rm -rf /usr/local/etc/services.d[0x0700 exec.cpp:N]",
                            "Restore configure fail![0x0700 exec.cpp:N]"));
    EXPECT_THAT(Calls(), IsEmpty());
}

TEST_F(SectionRemoval, RestartsOnceMoreOnWhatItBroughtBack) {
    const Lines before = AllStores();
    Programs programs;
    programs.Answer(kFirewallTool, -1);
    Lines seen;
    programs.Before(kFirewallTool, [&] { seen.push_back(ReadFile(kGameFile)); });
    EXPECT_EQ(Remove(Restarting(6, 3)), -1);
    EXPECT_EQ(AllStores(), before);
    EXPECT_THAT(seen, ElementsAre(kOther, std::string(kGame) + kOther));
    const char kReload[] = "Failed to execute [/usr/tavo/bin/tavofirewall --reload], ret:-1";
    EXPECT_THAT(Messages(), ElementsAre(kReload, "Restart service fail[0x0000 :N]", kReload,
                                        "Restart service fail[0x0000 :N]"));
    EXPECT_EQ(programs.Run().back(), "/usr/tavo/bin/tavofirewall --reload");
}

TEST_F(SectionRemoval, FailsThoughTheSecondRestartSucceeds) {
    Programs programs;
    programs.Answer(kFirewallTool, -1);
    programs.Before("/bin/mv", [&] { programs.Answer(kFirewallTool, 0); });
    EXPECT_EQ(Remove(Restarting(4, 1)), -1);
    EXPECT_THAT(Messages(),
                ElementsAre("Failed to execute [/usr/tavo/bin/tavofirewall --reload], ret:-1",
                            "Restart service fail[0x0000 :N]"));
}

TEST_F(SectionRemoval, RestartsOnceMoreThoughNothingCouldBeBroughtBack) {
    std::filesystem::remove("/bin/rm");
    std::filesystem::remove(kFirewallTool);
    EXPECT_EQ(Remove(Restarting(4, 1)), -1);
    const char kReload[] = "Failed to execute [/usr/tavo/bin/tavofirewall --reload], ret:-1";
    const char kStore[] = "Failed to rm -rf /usr/local/etc/services.d[0x0700 exec.cpp:N]";
    EXPECT_THAT(Messages(), ElementsAre(kReload, "Restart service fail[0x0700 exec.cpp:N]", kStore,
                                        kStore, "Restore configure fail![0x0700 exec.cpp:N]",
                                        kReload, "Restart service fail[0x0700 exec.cpp:N]"));
}

// A restart accepts fewer flags than a removal.
TEST_F(SectionRemoval, FailsWithFlagsThatNoRestartTakes) {
    const Lines before = AllStores();
    EXPECT_EQ(Remove(Restarting(4, 33)), -1);
    EXPECT_EQ(AllStores(), before);
    EXPECT_EQ(ErrorState(), "0xD00 service_conf_serv_restart.cpp");
    const char kLine[] = "Restart service fail[0x0D00 service_conf_serv_restart.cpp:N]";
    EXPECT_THAT(Messages(), ElementsAre(kLine, kLine));
}

// The removal checks the low bits of the location, the backup checks all of them.
TEST_F(SectionRemoval, HasNoWayBackFromALocationThatIsNotExact) {
    SetParam param = Restarting(4, 33);
    param.nLocation = 6;
    const Programs programs;
    EXPECT_EQ(Remove(param), -1);
    EXPECT_EQ(ReadFile(kGameFile), kOther);
    EXPECT_THAT(programs.Run(), IsEmpty());
}

TEST_F(SectionRemoval, IsKeptWhereTheCopiesCannotBeDeleted) {
    std::filesystem::remove("/bin/rm");
    EXPECT_EQ(Remove(RemovalParam(6)), 0);
    EXPECT_EQ(ReadFile(kGameFile), kOther);
    EXPECT_THAT(
        Messages(),
        ElementsAre("Failed to rm -rf " + SideCopyOf(kPackageServices) + "[0x0700 exec.cpp:N]",
                    "Failed to rm -rf " + SideCopyOf(kForwardingRules) + "[0x0700 exec.cpp:N]",
                    "Delete tmp configure fail![0x0700 exec.cpp:N]"));
}

TEST_F(SectionRemoval, CanBeUndoneWheneverMemoryRanOut) {
    const Lines before = AllStores();
    const SetParam param = Restarting(7, 1);
    const int allocations = ForEachFailingAllocation([&](FailingAllocation &fail) {
        const int result = fail.During([&] { return TLIBServiceConfSectionRemove(&param); });
        EXPECT_THAT(result, AnyOf(0, -1));
        if (result == 0) {
            EXPECT_EQ(ReadFile(kGameFile), kOther);
            EXPECT_EQ(TLIBServiceBackupConfDelete(&param), 0);
            WriteFile(kGameFile, std::string(kGame) + kOther);
        } else {
            EXPECT_THAT(Messages(), testing::Not(IsEmpty()));
            EXPECT_EQ(TLIBServiceConfRestore(&param), 0) << "as far as it was not restored yet";
        }
        EXPECT_EQ(AllStores(), before);
        log_.Clear();
    });
    EXPECT_GT(allocations, 10);
}

}  // namespace
}  // namespace tavo::test
