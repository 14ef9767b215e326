// Removing an installed service file. Other tests cover the content of the notification; these
// cover the arguments that a removal passes to it.
#include <functional>

#include "failing_allocation.h"
#include "service_files_test.h"

namespace tavo::test {
namespace {

using testing::AnyOf;
using testing::Each;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::StartsWith;

constexpr char kContent[] =
    "< $'PORT_CONFIG_CONTENT=[game]\\ntitle=Game\\ndesc=Games\\n"
    "dst.ports=7001/tcp\\n'";
constexpr char kNoContent[] = "< PORT_CONFIG_CONTENT=";
constexpr char kAction[] = "portforward port_config/remove";

const std::string kCopied = "/bin/cp -f /usr/local/etc/services.d/game.sc /tmp/";

std::string BackupName(const std::string &name = "game.sc") {
    return "servicetool.remove." + name + "." + std::to_string(getpid());
}

class ServiceConfRemove : public ServiceFilesTest {
  protected:
    ServiceConfRemove() { WriteFile(kGameFile, kGame); }

    static int Remove(const SetParam &param) { return TAVOServiceConfRemove(&param); }

    // Expects that a removal fails without a log line and before any change.
    void ExpectRefused(const SetParam &param) {
        StartAnew();
        const Programs programs;
        EXPECT_EQ(Remove(param), -1);
        EXPECT_EQ(ErrorState(), "0xD00 service_conf_remove.cpp");
        EXPECT_THAT(Messages(), IsEmpty());
        EXPECT_THAT(programs.Run(), IsEmpty());
        EXPECT_EQ(ReadFile(kGameFile), kGame);
    }

    void ExpectAccepted(const SetParam &param) {
        WriteFile(kGameFile, kGame);
        StartAnew();
        EXPECT_EQ(Remove(param), 0);
        EXPECT_FALSE(std::filesystem::exists(kGameFile));
        EXPECT_THAT(Messages(), IsEmpty());
        EXPECT_EQ(TLIBCErrGet(), 0U);
    }
};

TEST_F(ServiceConfRemove, HasTwoNames) {
    EXPECT_EQ(&TLIBServiceConfRemove, &TAVOServiceConfRemove);
    EXPECT_EQ(&TLIBServiceConfRemoveBaseName, &TAVOServiceConfRemoveBaseName);
}

TEST_F(ServiceConfRemove, CopiesAndRemovesTheFileAndSendsItsContent) {
    ActivateRelayDaemon();
    Programs programs;
    programs.Before("/bin/systemctl", [&] {
        EXPECT_THAT(Entries(kPackageServices), IsEmpty());
        EXPECT_THAT(InTmp(), ElementsAre(BackupName())) << "it is kept until all are notified";
        EXPECT_EQ(StateOf("/tmp/" + BackupName()).mode & 07777, 0600U);
    });
    EXPECT_EQ(Remove(RemovalParam(TAVO_PORT_CHECK_FW_SERVICE | TAVO_PORT_CHECK_PORT_FORWARD)), 0);
    EXPECT_THAT(Entries(kPackageServices), IsEmpty());
    EXPECT_THAT(programs.Run(),
                ElementsAre(kCopied + BackupName(), "/bin/systemctl is-active --quiet tavorelayd",
                            "/bin/systemctl reload tavorelayd"));
    EXPECT_THAT(Calls(), ElementsAre(kAction, kContent, "< NOTIFY_PF=1", "< NOTIFY_FW=1",
                                     kRelayAsked, kRelayReloaded));
    EXPECT_THAT(Messages(), IsEmpty());
    EXPECT_EQ(TLIBCErrGet(), 0U);
}

TEST_F(ServiceConfRemove, ReportsWhomTheFlagsNameWhatTheyAskFor) {
    const struct {
        uint32_t flags;
        Lines calls;
        Lines said;
    } cases[] = {
        {4,
         {kAction, kNoContent, kRelayAsked},
         {"FAILED to set arg for PORT_CONFIG_CONTENT for removed service config notify"}},
        {5, {kAction, kContent, kRelayAsked}, {}},
        {6, {kAction, kContent, "< NOTIFY_PF=1", "< NOTIFY_FW=1", kRelayAsked}, {}},
        {7, {kAction, kContent, "< NOTIFY_PF=1", "< NOTIFY_FW=1", kRelayAsked}, {}},
        {12,
         {kAction, kNoContent, kRelayAsked},
         {"FAILED to set arg for PORT_CONFIG_CONTENT for removed service config notify"}},
    };
    for (const auto &[flags, calls, said] : cases) {
        WriteFile(kGameFile, kGame);
        std::filesystem::remove("/run/calls/all");
        log_.Clear();
        EXPECT_EQ(Remove(RemovalParam(flags)), 0);
        EXPECT_EQ(Calls(), calls) << flags;
        EXPECT_EQ(Messages(), said) << flags;
    }
}

TEST_F(ServiceConfRemove, ReportsOfTheCopyAndWhoIsToActByTheFlags) {
    const struct {
        uint32_t flags;
        std::string told;
    } cases[] = {
        {4, "NULL 0 0"},
        {5, "/tmp/" + BackupName() + " 0 0"},
        {6, "/tmp/" + BackupName() + " 1 1"},
        {7, "/tmp/" + BackupName() + " 1 1"},
    };
    for (const auto &[flags, told] : cases) {
        for (const uint32_t others : {0U, 8U, 16U}) {
            WriteFile(kGameFile, kGame);
            const Failing notify("TLIBServiceConfRemoveServNotify", told);
            EXPECT_EQ(Remove(RemovalParam(flags | others)), -1) << (flags | others);
        }
    }
    EXPECT_THAT(Messages(), Each("FAILED to notify"));
    EXPECT_THAT(Calls(), IsEmpty());
}

TEST_F(ServiceConfRemove, OfTheSystemsFilesToo) {
    WriteFile("/usr/tavo/etc/services.d/game.sc", kGame);
    SetParam param = RemovalParam(7);
    param.nLocation = 1;
    EXPECT_EQ(Remove(param), 0);
    EXPECT_THAT(Entries(kSystemServices), IsEmpty());
    EXPECT_EQ(ReadFile(kGameFile), kGame);
}

TEST_F(ServiceConfRemove, RefusesARecordThatIsNotForARemoval) {
    EXPECT_EQ(TAVOServiceConfRemove(nullptr), -1);
    EXPECT_EQ(ErrorState(), "0xD00 service_conf_remove.cpp");
    for (const uint32_t mode : {0U, 3U, ~0U}) {
        SetParam param = RemovalParam(7);
        param.nRestartMode = mode;
        param.nRestartFlags = 1;
        ExpectRefused(param);
    }
    for (const uint32_t flags : {0U, 16U, 32U, 0xFFFFFFF0U}) {
        SetParam param = RemovalParam(7);
        param.nRestartMode = TAVO_RESTART_MODE_RESTART;
        param.nRestartFlags = flags;
        ExpectRefused(param);
    }
    for (const uint32_t mode : {0U, 1U, 2U, 4U, 7U}) {
        SetParam param = RemovalParam(7);
        param.nWriteMode = mode;
        ExpectRefused(param);
    }
    for (const uint32_t flags : {0U, 1U, 2U, 3U, 8U, 11U, 16U}) {
        ExpectRefused(RemovalParam(flags));
    }
    for (const uint32_t location : {0U, 3U, 4U, 7U}) {
        SetParam param = RemovalParam(7);
        param.nLocation = location;
        ExpectRefused(param);
    }
    for (const char *name : {"", "..", "../services.d/game.sc", "x/../game.sc"}) {
        SetParam param = RemovalParam(7);
        Fill(param.szFileName, name);
        ExpectRefused(param);
    }
    EXPECT_THAT(Calls(), IsEmpty());
}

TEST_F(ServiceConfRemove, AcceptsWhateverElseARecordHolds) {
    for (const uint32_t flags : {1U, 2U, 4U, 8U, 17U, 0xFFU}) {
        SetParam param = RemovalParam(7);
        param.nRestartMode = TAVO_RESTART_MODE_RESTART;
        param.nRestartFlags = flags;
        ExpectAccepted(param);
    }
    SetParam param = RemovalParam(7);
    param.nRestartFlags = 0;
    param.nLocation = 6;
    Fill(param.szSectionName, "");
    ExpectAccepted(param);
    ExpectAccepted(RemovalParam(0x35));
    EXPECT_THAT(Calls("tavofirewall"), IsEmpty()) << "a restart is asked for and not made";
}

TEST_F(ServiceConfRemove, TakesANameThatFillsItsField) {
    SetParam param = RemovalParam(5);
    Fill(param.szFileName, std::string(sizeof(param.szFileName) - 7, '/') + "game.sc");
    EXPECT_EQ(Remove(param), 0);
    EXPECT_FALSE(std::filesystem::exists(kGameFile));
}

TEST_F(ServiceConfRemove, NeedsTheFile) {
    std::filesystem::remove(kGameFile);
    const Programs programs;
    EXPECT_EQ(Remove(RemovalParam(7)), -1);
    EXPECT_EQ(ErrorState(), "0x700 service_conf_remove.cpp");
    EXPECT_THAT(Messages(), IsEmpty());
    EXPECT_THAT(programs.Run(), IsEmpty());
    EXPECT_THAT(Calls(), IsEmpty());
}

TEST_F(ServiceConfRemove, LeavesTheFileWhereCpCannotBeRun) {
    std::filesystem::remove("/bin/cp");
    EXPECT_EQ(Remove(RemovalParam(7)), -1);
    EXPECT_THAT(Messages(), ElementsAre("Failed to do command [cp]"));
    EXPECT_EQ(ReadFile(kGameFile), kGame);
    EXPECT_THAT(Calls(), IsEmpty());
}

TEST_F(ServiceConfRemove, WritesThroughNoLink) {
    WriteFile("/packages/secret", "secret");
    std::filesystem::create_symlink("/packages/secret", "/tmp/" + BackupName());
    EXPECT_EQ(Remove(RemovalParam(5)), 0);
    EXPECT_EQ(ReadFile("/packages/secret"), "secret");
    EXPECT_THAT(Calls("portforward"), ElementsAre(kAction, kContent));
}

TEST_F(ServiceConfRemove, GoesOnWhereCpFails) {
    for (const int status : {1, 139, -2}) {
        WriteFile(kGameFile, kGame);
        std::filesystem::remove("/run/calls/portforward");
        Programs programs;
        programs.Answer("/bin/cp", status);
        EXPECT_EQ(Remove(RemovalParam(5)), 0);
        EXPECT_FALSE(std::filesystem::exists(kGameFile));
        EXPECT_THAT(Calls("portforward"), ElementsAre(kAction, kNoContent));
    }
    EXPECT_THAT(Messages(), IsEmpty());
}

TEST_F(ServiceConfRemove, GoesOnWhereTheCopyHasNoPlace) {
    in_tmp_ = {BackupName()};
    const Programs programs;
    std::filesystem::create_directories("/tmp/" + BackupName() + "/sub");
    EXPECT_EQ(Remove(RemovalParam(5)), 0);
    EXPECT_THAT(Entries("/tmp/" + BackupName()), ElementsAre("sub"));
    EXPECT_FALSE(std::filesystem::exists(kGameFile));
    EXPECT_THAT(programs.Run(), Each(StartsWith("/bin/systemctl ")));
    EXPECT_THAT(Calls("portforward"), ElementsAre(kAction, kNoContent));
    EXPECT_THAT(Messages(), ElementsAre("Folder /tmp/" + BackupName() +
                                        " has the name of a copy and is not empty"));
}

TEST_F(ServiceConfRemove, TakesNoFileForMissingThatItCannotLookAt) {
    {
        const Failing look("stat", kGameFile, EIO);
        EXPECT_EQ(Remove(RemovalParam(7)), -1);
    }
    EXPECT_EQ(ErrorState(), "0x900 service_conf_remove.cpp");
    EXPECT_THAT(Messages(), ElementsAre(std::string("Failed to look at ") + kGameFile +
                                        ": Input/output error[0x0900 service_conf_remove.cpp:N]"));
    EXPECT_EQ(ReadFile(kGameFile), kGame);
    EXPECT_THAT(Calls(), IsEmpty());
}

TEST_F(ServiceConfRemove, TakesTheNameOfTheCopyFromWhatWasPlanted) {
    const std::string place = "/tmp/" + BackupName();
    const std::function<void()> plants[] = {
        [&] { ASSERT_EQ(mkdir(place.c_str(), 0777), 0); },
        [&] { ASSERT_EQ(mkfifo(place.c_str(), 0666), 0); },
        [&] { MakeSocket(place); },
    };
    for (const auto &plant : plants) {
        ForgetCalls();
        WriteFile(kGameFile, kGame);
        plant();
        EXPECT_EQ(Remove(RemovalParam(5)), 0);
        EXPECT_FALSE(std::filesystem::exists(kGameFile));
        EXPECT_THAT(Calls("portforward"), ElementsAre(kAction, kContent));
    }
    EXPECT_THAT(Messages(), IsEmpty());
}

TEST_F(ServiceConfRemove, RemovesAPipeWithoutWaitingForItsContent) {
    std::filesystem::remove(kGameFile);
    ASSERT_EQ(mkfifo(kGameFile, 0600), 0);
    EXPECT_EQ(Remove(RemovalParam(5)), 0);
    EXPECT_THAT(Entries(kPackageServices), IsEmpty());
    EXPECT_THAT(Calls("portforward"), ElementsAre(kAction, kNoContent));
}

TEST_F(ServiceConfRemove, SaysThatTheFileCannotBeRemoved) {
    std::filesystem::remove(kGameFile);
    std::filesystem::create_directory(kGameFile);
    TLIBCErrSetEx(0x123, "before.cpp", 1);
    EXPECT_EQ(Remove(RemovalParam(7)), -1);
    EXPECT_THAT(Messages(), ElementsAre(std::string("remove file ") + kGameFile +
                                        " fail![0x0123 before.cpp:N]"));
    EXPECT_TRUE(std::filesystem::is_directory(kGameFile));
    EXPECT_THAT(Calls(), IsEmpty());
}

TEST_F(ServiceConfRemove, IsKeptWhenNoListenerCanBeNotified) {
    SetExitStatus("portforward", "1");
    EXPECT_EQ(Remove(RemovalParam(7)), 0);
    EXPECT_THAT(Messages(), ElementsAre("FAILED to invoke plugins"));
    StartAnew();
    WriteFile(kGameFile, kGame);
    const Failing notify("TLIBServiceConfRemoveServNotify");
    EXPECT_EQ(Remove(RemovalParam(7)), -1);
    EXPECT_THAT(Messages(), ElementsAre("FAILED to notify"));
    EXPECT_FALSE(std::filesystem::exists(kGameFile));
}

TEST_F(ServiceConfRemove, ByItsNameNotifiesEveryListener) {
    const Programs programs;
    EXPECT_EQ(TAVOServiceConfRemoveBaseName("game.sc", 2), 0);
    EXPECT_FALSE(std::filesystem::exists(kGameFile));
    EXPECT_THAT(programs.Run(),
                ElementsAre(kCopied + BackupName(), "/bin/systemctl is-active --quiet tavorelayd"));
    EXPECT_THAT(Calls("portforward"),
                ElementsAre(kAction, kContent, "< NOTIFY_PF=1", "< NOTIFY_FW=1"));
    EXPECT_THAT(Calls("tavofirewall"), IsEmpty());
    EXPECT_THAT(Messages(), IsEmpty());
}

TEST_F(ServiceConfRemove, ByItsNameSaysWhatFailed) {
    EXPECT_EQ(TAVOServiceConfRemoveBaseName(nullptr, 2), -1);
    EXPECT_EQ(ErrorState(), "0xD00 service_conf_remove.cpp");
    EXPECT_THAT(Messages(), IsEmpty());
    const std::string long_name(300, 'n');
    const struct {
        std::string name;
        int location;
        const char *error;
    } cases[] = {{"other.sc", 2, "0x0700"}, {"game.sc", 1, "0x0700"},  {"game.sc", 3, "0x0D00"},
                 {"game.sc", 0, "0x0D00"},  {"game.sc", -1, "0x0D00"}, {"", 2, "0x0D00"},
                 {"..", 2, "0x0D00"},       {long_name, 2, "0x0700"}};
    for (const auto &[name, location, error] : cases) {
        StartAnew();
        EXPECT_EQ(TAVOServiceConfRemoveBaseName(name.c_str(), location), -1);
        EXPECT_THAT(Messages(), ElementsAre("remove configure file fail! file=" + name +
                                            ", error=[" + error + " service_conf_remove.cpp:N]"));
    }
    EXPECT_EQ(ReadFile(kGameFile), kGame);
}

TEST_F(ServiceConfRemove, ByItsNameCutsItTo255Bytes) {
    const std::string name(255, 'n');
    WriteFile(std::string(kPackageServices) + "/" + name, kGame);
    EXPECT_EQ(TAVOServiceConfRemoveBaseName((name + "more").c_str(), 2), 0);
    EXPECT_THAT(Entries(kPackageServices), ElementsAre("game.sc"));
}

TEST_F(ServiceConfRemove, ReportsOrFailsWhenMemoryRunsOut) {
    const SetParam param = RemovalParam(7);
    const int allocations = ForEachFailingAllocation([&](FailingAllocation &fail) {
        WriteFile(kGameFile, kGame);
        const int result = fail.During([&] { return TAVOServiceConfRemove(&param); });
        EXPECT_THAT(result, AnyOf(0, -1));
        EXPECT_EQ(std::filesystem::exists(kGameFile), result != 0);
        EXPECT_THAT(InTmp(), IsEmpty());
    });
    EXPECT_GT(allocations, 0);
}

}  // namespace
}  // namespace tavo::test
