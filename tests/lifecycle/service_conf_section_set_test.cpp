#include <unistd.h>

#include <set>

#include "failing_allocation.h"
#include "set_test.h"

namespace tavo::test {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;
using testing::IsSupersetOf;

class SectionSet : public SetTest {
  protected:
    SectionSet() {
        Fill(section_.szName, "web");
        Fill(section_.strTitle.szText, "Web");
        Fill(section_.strDesc.szText, "Web pages");
        SetDstPorts("8080/tcp");
    }

    void SetDstPorts(const std::string &ports) {
        dst_ports_ = MakePorts(ports);
        section_.pDstPorts = dst_ports_.get();
    }

    void SetSrcPorts(const std::string &ports) {
        src_ports_ = MakePorts(ports, TAVO_PORT_DIRECTION_SRC);
        section_.pSrcPorts = src_ports_.get();
    }

    int Set() override { return TLIBServiceConfSectionSet(&param_, &section_); }

    // Expects a successful call without log lines and returns the file.
    std::string Written() {
        EXPECT_EQ(Set(), 0);
        EXPECT_THAT(Messages(), IsEmpty());
        return ReadFile(kFile);
    }

    // Expects a failure, after which the new file is removed.
    void ExpectNotMade(const std::vector<std::string> &messages) {
        EXPECT_EQ(Set(), -1);
        EXPECT_EQ(Messages(), messages);
        EXPECT_THAT(Entries(kSystemServices), IsEmpty());
        EXPECT_THAT(Calls(), IsEmpty());
        log_.Clear();
    }

    static constexpr char kWritten[] =
        "[web]\nport_forward=\"no\"\ndesc=\"Web pages\"\ntitle=\"Web\"\ndst.ports=\"8080/tcp\"\n";

    // The section of an earlier version, its keys, and the same keys after the change.
    static constexpr char kOld[] = "[web]\ntitle=T\ndesc=D\ndst.ports=81/tcp\n";
    static constexpr char kOldKeys[] = "title=T\ndesc=D\ndst.ports=81/tcp\n";
    static constexpr char kNewKeys[] =
        "title=\"Web\"\ndesc=\"Web pages\"\ndst.ports=\"8080/tcp\"\n";

    TAVO_SERVICE_CONF_SECTION section_ = {};
    Ports dst_ports_;
    Ports src_ports_;
};

// ---- Invalid arguments ----

TEST_F(SectionSet, RefusesEachFieldOutOfRange) {
    std::filesystem::remove(kSystemServices);
    Programs programs;
    for (const auto &[what, param] : RefusedParams(param_)) {
        TLIBCErrSetEx(0, nullptr, 0);
        EXPECT_EQ(TLIBServiceConfSectionSet(&param, &section_), -1) << what;
        EXPECT_EQ(ErrorState(), "0xD00 service_conf_section_set.cpp") << what;
    }
    EXPECT_THAT(programs.Run(), IsEmpty());
    EXPECT_THAT(Messages(), IsEmpty());
    EXPECT_FALSE(std::filesystem::exists(kSystemServices));
}

TEST_F(SectionSet, TakesEachFieldAtItsHighestValue) {
    param_.nRestartMode = 2;
    param_.nRestartFlags = 31;
    param_.nWriteMode = 3;
    param_.nCheckFlags = 31;
    param_.nLocation = 3;
    EXPECT_EQ(Set(), 0);
    EXPECT_THAT(Messages(), IsEmpty());
}

TEST_F(SectionSet, TakesDotsThatLeadNowhere) {
    for (const char *name : {"..web.sc", "web..sc", "..."}) {
        Fill(param_.szFileName, name);
        EXPECT_EQ(Set(), 0) << name;
        EXPECT_EQ(ReadFile(kSystemServices + std::string("/") + name), kWritten);
        std::filesystem::remove(kSystemServices + std::string("/") + name);
    }
}

TEST_F(SectionSet, RefusesASectionThatLacksWhatItNeeds) {
    const auto expect_refused = [&](const char *what, const TAVO_SERVICE_CONF_SECTION *section) {
        TLIBCErrSetEx(0, nullptr, 0);
        EXPECT_EQ(TLIBServiceConfSectionSet(&param_, section), -1) << what;
        EXPECT_EQ(ErrorState(), "0xD00 service_conf_section_set.cpp") << what;
    };
    expect_refused("NULL", nullptr);
    TAVO_SERVICE_CONF_SECTION section = section_;
    Fill(section.szName, "");
    expect_refused("szName", &section);
    section = section_;
    section.pDstPorts = nullptr;
    section.pSrcPorts = section_.pDstPorts;
    expect_refused("pDstPorts", &section);
    section = section_;
    Fill(section.strDesc.szText, "");
    expect_refused("strDesc", &section);
    section = section_;
    Fill(section.strTitle.szText, "");
    expect_refused("strTitle", &section);
    TLIBCErrSetEx(0, nullptr, 0);
    EXPECT_EQ(TLIBServiceConfSectionSet(nullptr, &section_), -1);
    EXPECT_EQ(ErrorState(), "0xD00 service_conf_section_set.cpp");
    EXPECT_THAT(Messages(), IsEmpty());
    EXPECT_THAT(Entries(kSystemServices), IsEmpty());
}

TEST_F(SectionSet, RefusesPortsThatMakeNoText) {
    dst_ports_->pNext = MakePorts("81/udp").release();
    EXPECT_EQ(Set(), -1);
    EXPECT_THAT(Messages(),
                ElementsAre("Different protocol in port linked list"
                            "[0x0D00 service_conf_ports_to_str.cpp:N]",
                            "Port to Str fail![0x0D00 service_conf_ports_to_str.cpp:N]"));
    log_.Clear();
    SetDstPorts("8080/tcp");
    SetSrcPorts("80/tcp");
    src_ports_->pNext = MakePorts("81/udp").release();
    EXPECT_EQ(Set(), -1);
    EXPECT_THAT(Messages(), ElementsAre("Different protocol in port linked list"
                                        "[0x0D00 service_conf_ports_to_str.cpp:N]"));
    EXPECT_THAT(Entries(kSystemServices), IsEmpty());
}

// 204 ports of four digits and the commas between them are 1019 bytes. The whole value is
// truncated.
TEST_F(SectionSet, HasRoomFor1023BytesOfPorts) {
    std::string ports = "8000";
    for (int i = 1; i < 204; ++i) {
        ports += "," + std::to_string(8000 + i);
    }
    SetDstPorts(ports + ",999/tcp");
    EXPECT_THAT(Written(), testing::EndsWith(",8203,999\"\n"));
    SetDstPorts(ports + ",9999/tcp");
    EXPECT_EQ(Set(), -1);
    EXPECT_EQ(Messages().back(), "Port to Str fail![0xBF00 service_conf_ports_to_str.cpp:N]");
}

// ---- The check for conflicts ----

TEST_F(SectionSet, AsksForTheDestinationPortsWithTheFlagsAsTheyAre) {
    SetDstPorts("8080,9000:9010/tcp,udp");
    SetSrcPorts("80/tcp");
    param_.nCheckFlags = 31;
    Fill(param_.szSectionName, "old");
    const Failing failing("TLIBIsPortConflict", "old 8080,9000:9010 tcp,udp 31");
    EXPECT_EQ(Set(), -1);
    EXPECT_THAT(Messages(), IsEmpty());
    EXPECT_THAT(Entries(kSystemServices), IsEmpty());
}

TEST_F(SectionSet, AsksForASectionWhoseNameFillsItsField) {
    const std::string name(sizeof(param_.szSectionName), 'n');
    Fill(param_.szSectionName, name);
    const Failing failing("TLIBIsPortConflict", name + " 8080 tcp 4");
    EXPECT_EQ(Set(), -1);
    EXPECT_THAT(Messages(), IsEmpty());
}

TEST_F(SectionSet, RefusesAConflictBeforeAnyFileIsTouched) {
    std::filesystem::remove(kSystemServices);
    SetDstPorts("23,8080/tcp");
    param_.nCheckFlags = TAVO_PORT_CHECK_FW_SERVICE | TAVO_PORT_CHECK_PORT_FORWARD;
    param_.nRestartMode = TAVO_RESTART_MODE_RESTART;
    Programs programs;
    EXPECT_EQ(Set(), -1);
    EXPECT_EQ(
        Messages().back(),
        "Port conflict with existing ports! (port: 23,8080/tcp)[0x2A00 service_conf_enum.cpp:N]");
    EXPECT_THAT(programs.Run(), IsEmpty());
    EXPECT_FALSE(std::filesystem::exists(kSystemServices));
}

TEST_F(SectionSet, IsInNoConflictWithItself) {
    EXPECT_EQ(Written(), kWritten);
    EXPECT_EQ(Written(), kWritten);
    Fill(param_.szSectionName, "other");
    ExpectUnchanged({"Port conflict with existing ports! (port: 8080/tcp)[0x0000 :N]"});
}

TEST_F(SectionSet, NeverChecksSourcePorts) {
    SetSrcPorts("23/tcp");
    EXPECT_THAT(Written(), testing::EndsWith("dst.ports=\"8080/tcp\"\nsrc.ports=\"23/tcp\"\n"));
}

// ---- Order of the steps ----

TEST_F(SectionSet, MakesEveryStepInItsOrder) {
    std::filesystem::remove(kSystemServices);
    ActivateRelayDaemon();
    param_.nCheckFlags = TAVO_PORT_CHECK_FW_SERVICE | TAVO_PORT_CHECK_PORT_FORWARD;
    param_.nRestartMode = TAVO_RESTART_MODE_RESTART;
    Programs programs;
    programs.Before("/bin/mkdir", [] { EXPECT_FALSE(std::filesystem::exists(kFile)); });
    programs.Before("/bin/cp", [] { EXPECT_EQ(ReadFile(kFile), ""); });
    programs.Before(kRouterTool, [] {
        EXPECT_EQ(ReadFile(kCopy), "");
        EXPECT_EQ(ReadFile(kFile), kWritten);
    });
    programs.Before(kFirewallTool, [] { EXPECT_EQ(ReadFile(kCopy), ""); });
    EXPECT_EQ(Written(), kWritten);
    EXPECT_THAT(programs.Run(), ElementsAre("/bin/mkdir -p /usr/tavo/etc/services.d", kCopied,
                                            kRouterTold, "/usr/tavo/bin/tavofirewall --reload",
                                            "/bin/systemctl is-active --quiet tavorelayd",
                                            "/bin/systemctl reload tavorelayd"));
    EXPECT_EQ(StateOf(kFile).mode, mode_t{S_IFREG | 0644});
}

TEST_F(SectionSet, OnlyChecksPortsWithoutTheBitOfFirewallServices) {
    std::filesystem::remove(kSystemServices);
    param_.nRestartMode = TAVO_RESTART_MODE_RESTART;
    for (uint32_t flags = 1; flags <= 31; ++flags) {
        if ((flags & TAVO_PORT_CHECK_FW_SERVICE) != 0) {
            continue;
        }
        Programs programs;
        param_.nCheckFlags = flags;
        EXPECT_EQ(Set(), 0) << flags;
        EXPECT_EQ(programs.Run().front(), "/usr/tavo/bin/tavofirewall --reload") << flags;
    }
    EXPECT_FALSE(std::filesystem::exists(kSystemServices));
    EXPECT_THAT(Messages(), IsEmpty());
}

TEST_F(SectionSet, ReportsTheRouterToolWithTheBitOfPortForwardingOnly) {
    for (uint32_t flags = 1; flags <= 31; ++flags) {
        if ((flags & TAVO_PORT_CHECK_FW_SERVICE) == 0) {
            continue;
        }
        ForgetCalls();
        param_.nCheckFlags = flags;
        EXPECT_EQ(Set(), 0) << flags;
        const std::vector<std::string> told = {
            "tavoroutertool --update /tmp/web.sc /usr/tavo/etc/services.d/web.sc"};
        EXPECT_EQ(Calls(),
                  (flags & TAVO_PORT_CHECK_PORT_FORWARD) != 0 ? told : std::vector<std::string>())
            << flags;
    }
}

TEST_F(SectionSet, MakesAllOtherStepsWhenTheSectionIsNotToBeWritten) {
    param_.nCheckFlags = TAVO_PORT_CHECK_FW_SERVICE | TAVO_PORT_CHECK_PORT_FORWARD;
    param_.nRestartMode = TAVO_RESTART_MODE_RESTART;
    for (const uint32_t mode : {2U, 3U}) {
        std::filesystem::remove_all(kSystemServices);
        Programs programs;
        param_.nWriteMode = mode;
        EXPECT_EQ(Written(), "");
        EXPECT_THAT(programs.Run(), ElementsAre("/bin/mkdir -p /usr/tavo/etc/services.d", kCopied,
                                                kRouterTold, "/usr/tavo/bin/tavofirewall --reload",
                                                "/bin/systemctl is-active --quiet tavorelayd"));
    }
}

TEST_F(SectionSet, WritesIntoTheDirectoryThatTheBitsMean) {
    const struct {
        uint32_t location;
        std::vector<std::string> system;
        std::vector<std::string> packages;
    } cases[] = {{1, {"web.sc"}, {}}, {2, {}, {"web.sc"}}, {3, {"web.sc"}, {}}};
    for (const auto &[location, system, packages] : cases) {
        std::filesystem::remove(kFile);
        std::filesystem::remove(kPackageFile);
        param_.nLocation = location;
        EXPECT_EQ(Set(), 0);
        EXPECT_EQ(Entries(kSystemServices), system) << location;
        EXPECT_EQ(Entries(kPackageServices), packages) << location;
    }
}

TEST_F(SectionSet, HandsTheRestartFlagsOn) {
    ActivateRelayDaemon();
    param_.nRestartFlags = TAVO_RESTART_RELAY;
    EXPECT_EQ(Set(), 0);
    EXPECT_THAT(Calls(), IsEmpty());
    param_.nRestartMode = TAVO_RESTART_MODE_RESTART;
    EXPECT_EQ(Set(), 0);
    EXPECT_THAT(Calls(), ElementsAre(kRelayAsked, kRelayReloaded));
}

// ---- The keys ----

TEST_F(SectionSet, WritesEveryKeyInQuotes) {
    section_.blPortForward = 1;
    Fill(section_.strDesc.szSource, "texts");
    Fill(section_.strDesc.szSection, "web");
    Fill(section_.strDesc.szKey, "desc");
    Fill(section_.strDesc.szExtra, "not written");
    Fill(section_.strTitle.szSource, "texts");
    Fill(section_.strTitle.szSection, "web");
    Fill(section_.strTitle.szKey, "title");
    Fill(section_.strTitle.szExtra, "not written");
    SetDstPorts("9010:9000,8080/tcp,udp");
    SetSrcPorts("1024:65535/udp");
    EXPECT_EQ(Written(),
              "[web]\nport_forward=\"yes\"\ndesc=\"Web pages\"\ndesc_key=\"texts:web:desc\"\n"
              "title=\"Web\"\ntitle_key=\"texts:web:title\"\n"
              "dst.ports=\"9000:9010,8080/tcp,udp\"\nsrc.ports=\"1024:65535/udp\"\n");
}

TEST_F(SectionSet, KeepsTheKeysThatItDoesNotSet) {
    const std::string before = "# ours\n[before]\n" + std::string(kOldKeys) +
                               "\n[web]\ndesc_extra=more\ntitle_key=a:b\ndesc_key=c:d\n"
                               "src.ports=53/udp\n";
    const std::string behind = "# behind\n[behind]\n" + std::string(kOldKeys);
    WriteFile(kFile, before + kOldKeys + behind);
    ASSERT_EQ(chmod(kFile, 0640), 0);
    EXPECT_EQ(Written(), before + kNewKeys + "port_forward=\"no\"\n" + behind);
    EXPECT_EQ(StateOf(kFile).mode, mode_t{S_IFREG | 0640});
}

TEST_F(SectionSet, WritesAReferenceOnlyWhenItIsWhole) {
    constexpr struct {
        const char *source;
        const char *section;
        const char *key;
        const char *written;
    } kCases[] = {
        {"s", "b", "c", "\"s:b:c\""}, {"", "b", "c", "\"b:c\""}, {"s", "", "c", "old"},
        {"s", "b", "", "old"},        {"", "b", "", "old"},      {"", "", "c", "old"},
        {"s", "", "", "old"},         {"", "", "", "old"},
    };
    for (const auto &[source, section, key, written] : kCases) {
        for (TAVO_SERVICE_CONF_STRING *string : {&section_.strTitle, &section_.strDesc}) {
            Fill(string->szSource, source);
            Fill(string->szSection, section);
            Fill(string->szKey, key);
        }
        WriteFile(kFile, std::string("[web]\ntitle_key=old\ndesc_key=old\n") + kOldKeys);
        EXPECT_THAT(Written(), testing::StartsWith("[web]\ntitle_key=" + std::string(written) +
                                                   "\ndesc_key=" + written + "\n"));
    }
}

TEST_F(SectionSet, ForwardsPortsForExactlyOne) {
    for (const uint32_t forward : {0U, 2U, 0xFFFFFFFFU}) {
        section_.blPortForward = forward;
        EXPECT_EQ(Written(), kWritten) << forward;
    }
    section_.blPortForward = 1;
    EXPECT_THAT(Written(), testing::HasSubstr("\nport_forward=\"yes\"\n"));
}

TEST_F(SectionSet, WritesQuotesInTextsAsTheyStand) {
    Fill(section_.strTitle.szText, "say \"web\"");
    EXPECT_THAT(Written(), testing::HasSubstr("\ntitle=\"say \"web\"\"\n"));
}

TEST_F(SectionSet, OnlyLogsThatTheSectionCannotBeWritten) {
    WriteFile(kFile, kOld);
    const FileState before = StateOf(kFile);
    Fill(section_.strTitle.szText, "two\nlines");
    param_.nCheckFlags |= TAVO_PORT_CHECK_PORT_FORWARD;
    EXPECT_EQ(Set(), 0);
    EXPECT_EQ(StateOf(kFile), before);
    EXPECT_THAT(Messages(),
                ElementsAre("Failed to write section (web) to "
                            "/usr/tavo/etc/services.d/web.sc[0x0D00 config_edit.cpp:N]"));
    EXPECT_EQ(ErrorState(), "0xD00 config_edit.cpp");
    EXPECT_EQ(Calls().size(), 1U);
}

TEST_F(SectionSet, ReadsUnderTheNameInTheRecordAndWritesUnderThatOfTheSection) {
    const std::string other = "[old]\n" + std::string(kOldKeys) + "desc_extra=more\n";
    WriteFile(kFile, other + kOld + "desc_extra=less\nb=2\n");
    Fill(param_.szSectionName, "old");
    EXPECT_EQ(Written(), other + "[web]\n" + kNewKeys + "desc_extra=more\nport_forward=\"no\"\n");
}

// If the section named in the record is missing, the keys are added to the other section, which
// keeps its remaining keys.
TEST_F(SectionSet, AddsASectionThatIsMissingUnderTheNameInTheRecord) {
    WriteFile(kFile, std::string(kOld) + "b=2\n");
    Fill(param_.szSectionName, "missing");
    EXPECT_EQ(Written(), "[web]\n" + std::string(kNewKeys) + "b=2\nport_forward=\"no\"\n");
    const std::string other = "[other]\n" + std::string(kOldKeys);
    WriteFile(kFile, other);
    EXPECT_EQ(Written(), other + "\n" + kWritten);
}

TEST_F(SectionSet, TakesTextsThatFillTheirFields) {
    Fill(param_.szSectionName, std::string(256, 'n'));
    Fill(section_.szName, std::string(256, 'n'));
    for (TAVO_SERVICE_CONF_STRING *string : {&section_.strTitle, &section_.strDesc}) {
        Fill(string->szSource, std::string(256, 's'));
        Fill(string->szSection, std::string(64, 'e'));
        Fill(string->szKey, std::string(128, 'k'));
        Fill(string->szText, std::string(128, 't'));
    }
    const std::string reference =
        std::string(256, 's') + ":" + std::string(64, 'e') + ":" + std::string(128, 'k') + "\"\n";
    const std::string text = std::string(128, 't') + "\"\n";
    EXPECT_EQ(Written(), "[" + std::string(256, 'n') + "]\nport_forward=\"no\"\ndesc=\"" + text +
                             "desc_key=\"" + reference + "title=\"" + text + "title_key=\"" +
                             reference + "dst.ports=\"8080/tcp\"\n");
}

// ---- Failing steps ----

TEST_F(SectionSet, FailsWithoutMkdir) {
    std::filesystem::remove_all(kSystemServices);
    std::filesystem::remove("/bin/mkdir");
    ExpectNotMade(
        {"/bin/mkdir -p /usr/tavo/etc/services.d failed.(errno:2/No such file or "
         "directory)"});
    EXPECT_EQ(ErrorState(), "0x700 exec.cpp");
}

TEST_F(SectionSet, SaysHowMkdirFailed) {
    Programs programs;
    programs.Answer("/bin/mkdir", 1, EACCES);
    ExpectNotMade({"/bin/mkdir -p /usr/tavo/etc/services.d failed.(errno:13/Permission denied)"});
    programs.Answer("/bin/mkdir", -1, ENOMEM);
    ExpectNotMade(
        {"/bin/mkdir -p /usr/tavo/etc/services.d failed.(errno:12/Cannot allocate "
         "memory)"});
    EXPECT_EQ(TLIBCErrGet(), 0U);
}

TEST_F(SectionSet, FailsWhenTheFileCannotBeMade) {
    const std::string name(256, 'a');
    Fill(param_.szFileName, name);
    ExpectNotMade({"Failed to touch /usr/tavo/etc/services.d/" + name});
    Fill(param_.szFileName, "web.sc");
    ASSERT_EQ(symlink("nowhere/web.sc", kFile), 0);
    EXPECT_EQ(Set(), -1);
    EXPECT_EQ(Messages().back(), "Failed to touch /usr/tavo/etc/services.d/web.sc");
    EXPECT_TRUE(std::filesystem::is_symlink(kFile));
}

TEST_F(SectionSet, FailsWhenTheFileCannotBeRead) {
    std::filesystem::create_directory(kFile);
    EXPECT_EQ(Set(), -1);
    EXPECT_THAT(Messages(),
                ElementsAre("failed to get section(web) from /usr/tavo/etc/services.d/web.sc"));
    EXPECT_TRUE(std::filesystem::is_directory(kFile));
    std::filesystem::remove(kFile);
    log_.Clear();
    const Failing failing("TLIBCFileGetSection", "web");
    ExpectNotMade({"failed to get section(web) from /usr/tavo/etc/services.d/web.sc"});
}

TEST_F(SectionSet, SaysWhichKeyCannotBeHeld) {
    SetSrcPorts("80/tcp");
    for (TAVO_SERVICE_CONF_STRING *string : {&section_.strTitle, &section_.strDesc}) {
        Fill(string->szSection, "web");
        Fill(string->szKey, "key");
    }
    for (const char *key :
         {"port_forward", "desc", "desc_key", "title", "title_key", "dst.ports", "src.ports"}) {
        const Failing failing("TLIBCSzHashSetValue", key);
        ExpectNotMade({"Failed ot set " + std::string(key) + " into Hash"});
    }
}

// If a key cannot be stored, the operation fails before it copies the file.
TEST_F(SectionSet, HoldsTheKeysBeforeItCopiesTheFile) {
    const Failing failing("TLIBCSzHashSetValue");
    const Programs programs;
    ExpectNotMade({"Failed ot set port_forward into Hash"});
    EXPECT_THAT(programs.Run(), ElementsAre("/bin/mkdir -p /usr/tavo/etc/services.d"));
}

TEST_F(SectionSet, RemovesTheFileItMadeWhenItCannotBeCopied) {
    std::filesystem::remove("/bin/cp");
    ExpectNotMade({kCopyFailed});
    EXPECT_EQ(ErrorState(), "0x700 exec.cpp");
    EXPECT_TRUE(std::filesystem::exists(kSystemServices));
}

TEST_F(SectionSet, LeavesAFileAloneThatCannotBeCopied) {
    WriteFile(kFile, kOld);
    param_.nCheckFlags |= TAVO_PORT_CHECK_PORT_FORWARD;
    param_.nRestartMode = TAVO_RESTART_MODE_RESTART;
    Programs programs;
    programs.Answer("/bin/cp", 1);
    ExpectUnchanged({kCopyFailed});
    EXPECT_THAT(programs.Run(), ElementsAre(kCopied));
    EXPECT_EQ(TLIBCErrGet(), 0U);
}

TEST_F(SectionSet, NeedsTheNameOfTheCopy) {
    WriteFile(kFile, kOld);
    ExpectFullFolderInTheWay();
}

TEST_F(SectionSet, MakesNoFileWhereItCannotLookForIt) {
    WriteFile(kFile, kOld);
    const FileState before = StateOf(kFile);
    ExpectUnknownFile("service_conf_section_set.cpp");
    EXPECT_EQ(StateOf(kFile), before);
    std::filesystem::remove(kFile);
    ExpectUnknownFile("service_conf_section_set.cpp");
    EXPECT_THAT(Entries(kSystemServices), IsEmpty());
}

TEST_F(SectionSet, TakesTheNameOfTheCopyFromWhatWasPlanted) {
    WriteFile(kFile, kOld);
    ExpectPlantsRemoved();
}

TEST_F(SectionSet, LetsNobodyLeadTheCopyElsewhere) {
    constexpr char kVictim[] = "/var/tmp/victim";
    WriteFile(kVictim, "precious");
    WriteFile(kFile, kOld);
    ASSERT_EQ(symlink(kVictim, kCopy), 0);
    ExpectOwnCopy();
    ASSERT_EQ(link(kVictim, kCopy), 0);
    Fill(section_.strTitle.szText, "Again");
    ExpectOwnCopy();
    EXPECT_EQ(ReadFile(kVictim), "precious");
    ASSERT_EQ(symlink("/var/tmp/nothing", kCopy), 0);
    ExpectOwnCopy();
    EXPECT_FALSE(std::filesystem::exists("/var/tmp/nothing"));
}

TEST_F(SectionSet, CopiesToNoOtherFolder) {
    std::filesystem::create_directory(kSystemServices + std::string("/folder"));
    std::filesystem::create_directory("/tmp/folder");
    in_tmp_ = {"folder"};
    Fill(param_.szFileName, "folder/web.sc");
    EXPECT_EQ(Set(), -1);
    EXPECT_THAT(Messages(),
                ElementsAre("FAILED to copy from file=/usr/tavo/etc/services.d/folder/web.sc to "
                            "backup path=/tmp/folder/web.sc"));
    EXPECT_THAT(Entries("/tmp/folder"), IsEmpty());
    EXPECT_THAT(Entries(kSystemServices + std::string("/folder")), IsEmpty());
}

TEST_F(SectionSet, SwallowsThatTheRouterToolFails) {
    param_.nCheckFlags |= TAVO_PORT_CHECK_PORT_FORWARD;
    SetExitStatus("tavoroutertool", "3");
    EXPECT_EQ(Set(), 0);
    EXPECT_THAT(Messages(), ElementsAre("/usr/tavo/sbin/tavoroutertool --udpate /tmp/web.sc "
                                        "/usr/tavo/etc/services.d/web.sc failed![0x0000 :N]"));
    EXPECT_EQ(ReadFile(kFile), kWritten);
    log_.Clear();
    std::filesystem::remove(kRouterTool);
    EXPECT_EQ(Set(), 0);
    EXPECT_THAT(Messages(),
                ElementsAre("/usr/tavo/sbin/tavoroutertool --udpate /tmp/web.sc "
                            "/usr/tavo/etc/services.d/web.sc failed![0x0700 exec.cpp:N]"));
}

TEST_F(SectionSet, SwallowsThatTheRestartFails) {
    param_.nRestartMode = TAVO_RESTART_MODE_RESTART;
    std::filesystem::remove(kFirewallTool);
    EXPECT_EQ(Set(), 0);
    EXPECT_THAT(Messages(),
                ElementsAre("Failed to execute [/usr/tavo/bin/tavofirewall --reload], ret:-1",
                            "Restart service fail[0x0700 exec.cpp:N]"));
    EXPECT_EQ(ReadFile(kFile), kWritten);
}

// ---- Out of memory ----

TEST_F(SectionSet, SurvivesEveryFailingAllocation) {
    SetSrcPorts("80/tcp");
    std::set<std::string> messages;
    for (const bool exists : {false, true}) {
        EXPECT_GT(ForEachFailingAllocation([&](FailingAllocation &fail) {
                      std::filesystem::remove(kFile);
                      if (exists) {
                          WriteFile(kFile, kOld);
                      }
                      log_.Clear();
                      TLIBCErrSetEx(0, nullptr, 0);
                      const int result = fail.During([&] { return Set(); });
                      if (result != 0) {
                          EXPECT_TRUE(fail.Hit());
                          EXPECT_NE(TLIBCErrGet(), 0U);
                      }
                      EXPECT_EQ(std::filesystem::exists(kFile), exists || result == 0);
                      if (result != 0 && exists) {
                          EXPECT_EQ(ReadFile(kFile), kOld);
                      }
                      EXPECT_THAT(InTmp(), IsEmpty());
                      for (const std::string &message : Messages()) {
                          messages.insert(message);
                      }
                  }),
                  0);
    }
    EXPECT_THAT(messages,
                IsSupersetOf({"Failed to alloc memory", "Failed ot set port_forward into Hash",
                              "Failed ot set src.ports into Hash"}));
}

TEST_F(SectionSet, NamesItsOwnSourceFileInSharedSteps) {
    ExpectLinesToName("service_conf_section_set.cpp");
    SetDstPorts("23/tcp");
    EXPECT_EQ(Set(), -1);
    EXPECT_EQ(SourceOf("Port conflict with existing ports!"), "service_conf_section_set.cpp");
}

}  // namespace
}  // namespace tavo::test
