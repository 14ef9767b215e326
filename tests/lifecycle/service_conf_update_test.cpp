// Updating an installed service file. Other tests cover the content of the notification; these
// cover the arguments that an update passes to it.
#include <fcntl.h>

#include <cstring>

#include <functional>

#include "failing_allocation.h"
#include "service_files_test.h"

namespace tavo::test {
namespace {

using testing::AnyOf;
using testing::Contains;
using testing::ElementsAre;
using testing::IsEmpty;

constexpr char kBackup[] = "/tmp/servicetool.update.game.sc.old";

// A file's content in the record of the plugin.
std::string Content(const std::string &key, const std::string &text) {
    std::string quoted;
    for (const char c : text) {
        quoted += c == '\n' ? "\\n" : std::string(1, c);
    }
    return "< $'" + key + "=" + quoted + "'";
}

class ServiceConfUpdate : public ServiceFilesTest {
  protected:
    int Update(const std::string &source, const char *name = "game.sc", int location = 2) {
        TAVO_SERVICE_CONF_PORT *conflicts = nullptr;
        const int result =
            TAVOServiceConfUpdateBaseName(name, source.c_str(), location, &conflicts);
        conflicts_.reset(conflicts);
        return result;
    }

    int UpdateWithoutNotify(const std::string &source, const char *name = "game.sc",
                            int location = 2) {
        std::memset(&notify_, 'x', sizeof(notify_));
        TAVO_SERVICE_CONF_PORT *conflicts = nullptr;
        const int result = TAVOServiceConfUpdateBaseNameWithoutNotify(
            name, source.c_str(), location, &conflicts, &notify_);
        conflicts_.reset(conflicts);
        return result;
    }

    void ExpectNotifyUntouched() const {
        TAVO_SERVICE_CONF_NOTIFY untouched;
        std::memset(&untouched, 'x', sizeof(untouched));
        EXPECT_EQ(std::memcmp(&notify_, &untouched, sizeof(notify_)), 0);
    }

    TAVO_SERVICE_CONF_NOTIFY notify_ = {};
    Ports conflicts_;
};

TEST_F(ServiceConfUpdate, ReportsTheOldContentAndTheNew) {
    WriteFile(kGameFile, kGame);
    ActivateRelayDaemon();
    const std::string source = Source(kNewGame);
    const Programs programs;
    EXPECT_EQ(Update(source), 0);
    EXPECT_EQ(ReadFile(kGameFile), kNewGame);
    EXPECT_THAT(Calls(), ElementsAre("portforward port_config/update",
                                     Content("OLD_PORT_CONFIG_CONTENT", kGame),
                                     Content("NEW_PORT_CONFIG_CONTENT", kNewGame), "< NOTIFY_PF=1",
                                     "< NOTIFY_FW=1", kRelayAsked, kRelayReloaded));
    EXPECT_THAT(
        Plain(programs.Run()),
        ElementsAre(std::string("/bin/cp -f ") + kGameFile + " " + kBackup,
                    "/bin/mkdir -p /usr/local/etc/services.d",
                    "/bin/mkdir -p /usr/local/etc/services.d/tmp",
                    "/bin/cp -f -p " + source + " /usr/local/etc/services.d/tmp/game.sc.XXXXXX",
                    "/bin/systemctl is-active --quiet tavorelayd",
                    "/bin/systemctl reload tavorelayd"));
    EXPECT_THAT(Messages(), IsEmpty());
    EXPECT_EQ(TLIBCErrGet(), 0U);
}

TEST_F(ServiceConfUpdate, OfTheSystemsFilesToo) {
    WriteFile("/usr/tavo/etc/services.d/game.sc", kGame);
    EXPECT_EQ(Update(Source(kNewGame), "game.sc", 1), 0);
    EXPECT_EQ(ReadFile("/usr/tavo/etc/services.d/game.sc"), kNewGame);
    EXPECT_THAT(Calls(), Contains(Content("OLD_PORT_CONFIG_CONTENT", kGame)));
    EXPECT_THAT(Entries(kPackageServices), IsEmpty());
}

TEST_F(ServiceConfUpdate, KeepsTheOldContentUntilAllAreNotified) {
    WriteFile(kGameFile, kGame);
    std::filesystem::permissions(kGameFile, std::filesystem::perms{0644});
    WriteScript(kPlugin, "stat -c %a " + std::string(kBackup) + " > /run/mode\n" + "cat " +
                             kBackup + " > /run/content");
    EXPECT_EQ(Update(Source(kNewGame)), 0);
    EXPECT_EQ(ReadFile("/run/mode"), "600\n");
    EXPECT_EQ(ReadFile("/run/content"), kGame);
}

TEST_F(ServiceConfUpdate, OpensFilesForNoProgramThatIsRunAndThroughNoLink) {
    WriteFile(kGameFile, kGame);
    const std::string source = Source(kNewGame);
    const Openings openings;
    EXPECT_EQ(Update(source), 0);
    EXPECT_EQ(openings.With(O_CLOEXEC), openings.With(0));
    const Lines own = {kBackup, kBackup, kGameFile};
    EXPECT_THAT(openings.With(0), testing::IsSupersetOf(own));
    EXPECT_THAT(Plain(openings.With(O_NOFOLLOW)),
                ElementsAre("/run/tavoserviceconf", kBackup,
                            "/usr/local/etc/services.d/tmp/game.sc.XXXXXX"));
}

TEST_F(ServiceConfUpdate, InstallsWhatIsNotInstalledYet) {
    const Programs programs;
    EXPECT_EQ(Update(Source(kGame)), 0);
    EXPECT_EQ(ReadFile(kGameFile), kGame);
    EXPECT_EQ(programs.Run().front(), "/bin/mkdir -p /usr/local/etc/services.d") << "no copy";
    EXPECT_THAT(Messages(), ElementsAre("FAILED to notify portforward, old sc file is empty",
                                        "FAILED to set common arg for update"));
    EXPECT_EQ(ErrorState(), "0xD00 service_conf_serv_restart.cpp");
    EXPECT_THAT(Calls("portforward"),
                ElementsAre("portforward port_config/update", "< OLD_PORT_CONFIG_CONTENT=",
                            "< NEW_PORT_CONFIG_CONTENT=", "< NOTIFY_PF=1", "< NOTIFY_FW=1"));
}

TEST_F(ServiceConfUpdate, GoesOnWhereTheInstallationFails) {
    WriteFile(kGameFile, kGame);
    EXPECT_EQ(Update("/packages/game.sc"), 0);
    EXPECT_EQ(ReadFile(kGameFile), kGame);
    EXPECT_THAT(Messages(), ElementsAre("Source configure file does not exist (/packages/game.sc)"
                                        "[0x0700 service_conf_file_verify.cpp:N]",
                                        "check /packages/game.sc conf file port conflict "
                                        "failed=-1"));
    EXPECT_THAT(
        Calls("portforward"),
        ElementsAre("portforward port_config/update", Content("OLD_PORT_CONFIG_CONTENT", kGame),
                    Content("NEW_PORT_CONFIG_CONTENT", kGame), "< NOTIFY_PF=1", "< NOTIFY_FW=1"));
    EXPECT_EQ(ErrorState(), "0x700 service_conf_file_verify.cpp");
}

TEST_F(ServiceConfUpdate, GoesOnWhateverTheCheckOfThePortsGives) {
    const std::string source = Source(kNewGame);
    for (const int result : {2, -5}) {
        StartAnew();
        WriteFile(kGameFile, kGame);
        Failing check("TLIBIsConfPortConflict", source);
        check.Giving(result);
        EXPECT_EQ(Update(source), 0);
        EXPECT_EQ(ReadFile(kGameFile), kNewGame);
        EXPECT_THAT(Messages(), ElementsAre("check " + source + " conf file port conflict failed=" +
                                            std::to_string(result)));
    }
}

TEST_F(ServiceConfUpdate, SaysThatPortsCollide) {
    const std::string source = Source(kTelnetGame);
    for (const bool notifies : {true, false}) {
        StartAnew();
        WriteFile(kGameFile, kGame);
        EXPECT_EQ(notifies ? Update(source) : UpdateWithoutNotify(source), 1);
        EXPECT_EQ(ReadFile(kGameFile), kTelnetGame);
        EXPECT_THAT(Describe(conflicts_.get()), ElementsAre("src 23 with end 23 protocol 0"));
        EXPECT_THAT(
            Messages(),
            ElementsAre(
                "szTmpString=23/tcp conflict",
                source + " conf file port conflict with existed conf file setting",
                source + " conf file port conflict with existed conf file setting=game.sc"));
    }
    in_tmp_ = {"servicetool.update.game.sc.old"};
}

TEST_F(ServiceConfUpdate, WithoutNotifyLeavesTheTellingToTheCaller) {
    WriteFile(kGameFile, kGame);
    EXPECT_EQ(UpdateWithoutNotify(Source(kNewGame)), 0);
    TAVO_SERVICE_CONF_NOTIFY expected = {};
    Fill(expected.szOldConfPath, kBackup);
    Fill(expected.szNewConfPath, kGameFile);
    expected.blNotifyFw = 1;
    expected.blNotifyPf = 1;
    EXPECT_EQ(std::memcmp(&notify_, &expected, sizeof(notify_)), 0);
    EXPECT_THAT(Calls(), IsEmpty());
    EXPECT_EQ(ReadFile(kBackup), kGame);
    EXPECT_EQ(StateOf(kBackup).mode & 07777, 0600U);
    in_tmp_ = {"servicetool.update.game.sc.old"};
}

TEST_F(ServiceConfUpdate, WithoutNotifyHasNoOldPathOfAFileThatWasNotInstalled) {
    EXPECT_EQ(UpdateWithoutNotify(Source(kNewGame)), 0);
    EXPECT_STREQ(notify_.szOldConfPath, "");
    EXPECT_STREQ(notify_.szNewConfPath, kGameFile);
    EXPECT_EQ(notify_.blNotifyFw, 1U);
    EXPECT_EQ(notify_.blNotifyPf, 1U);
}

// ---- Failing steps ----

TEST_F(ServiceConfUpdate, NeedsItsArguments) {
    const std::string source = Source(kGame);
    EXPECT_EQ(UpdateWithoutNotify(source, nullptr), -1);
    EXPECT_EQ(ErrorState(), "0xD00 service_conf_update.cpp");
    ExpectNotifyUntouched();
    StartAnew();
    EXPECT_EQ(TAVOServiceConfUpdateBaseNameWithoutNotify("game.sc", nullptr, 2, nullptr, &notify_),
              -1);
    EXPECT_EQ(ErrorState(), "0xD00 service_conf_update.cpp");
    ExpectNotifyUntouched();
    StartAnew();
    EXPECT_EQ(
        TAVOServiceConfUpdateBaseNameWithoutNotify("game.sc", source.c_str(), 2, nullptr, nullptr),
        -1);
    EXPECT_EQ(ErrorState(), "0xD00 service_conf_update.cpp");
    EXPECT_THAT(Messages(), IsEmpty());
    EXPECT_EQ(Update(source, nullptr), -1);
    EXPECT_EQ(TAVOServiceConfUpdateBaseName("game.sc", nullptr, 2, nullptr), -1);
    EXPECT_THAT(Messages(), ElementsAre("FAILED to install .sc", "FAILED to install .sc"));
    EXPECT_THAT(Entries(kPackageServices), IsEmpty());
}

TEST_F(ServiceConfUpdate, NeedsALocationAndANameThatStaysThere) {
    const std::string source = Source(kGame);
    struct {
        const char *name;
        int location;
        const char *said;
    } const cases[] = {{"game.sc", 0, "file=game.sc type=0"},
                       {"game.sc", 3, "file=game.sc type=3"},
                       {"../game.sc", 2, "file=../game.sc type=2"}};
    for (const auto &[name, location, said] : cases) {
        const std::string line = std::string("FAILED to get installed path of ") + said;
        StartAnew();
        EXPECT_EQ(UpdateWithoutNotify(source, name, location), -1);
        ExpectNotifyUntouched();
        EXPECT_EQ(ErrorState(), "0xD00 utils.cpp");
        EXPECT_EQ(Update(source, name, location), -1);
        EXPECT_THAT(Messages(), ElementsAre(line, line, "FAILED to install .sc"));
    }
    EXPECT_THAT(Calls(), IsEmpty());
}

class UnkeptContent : public ServiceConfUpdate {
  protected:
    // Expects that the old content cannot be copied and that nothing is changed.
    void ExpectNothingDone(const std::vector<std::string> &left_in_tmp = {},
                           const Lines &reason = {}) {
        const std::string source = Source(kNewGame);
        const Lines before = Tree(kPackageServices);
        StartAnew();
        EXPECT_EQ(UpdateWithoutNotify(source), -1);
        ExpectNotifyUntouched();
        EXPECT_EQ(Update(source), -1);
        const std::string line =
            std::string("FAILED to copy from file=") + kGameFile + " to backup path=" + kBackup;
        Lines lines;
        for (int call = 0; call < 2; ++call) {
            lines.insert(lines.end(), reason.begin(), reason.end());
            lines.push_back(line);
        }
        lines.emplace_back("FAILED to install .sc");
        EXPECT_EQ(Messages(), lines);
        EXPECT_EQ(Tree(kPackageServices), before);
        EXPECT_EQ(InTmp(), left_in_tmp);
        EXPECT_THAT(Calls(), IsEmpty());
    }
};

TEST_F(UnkeptContent, StopsTheUpdate) {
    WriteFile(kGameFile, kGame);
    for (const int result : {1, 137, -1}) {
        Programs programs;
        programs.Answer("/bin/cp", result);
        ExpectNothingDone();
    }
    std::filesystem::remove("/bin/cp");
    ExpectNothingDone();
}

TEST_F(UnkeptContent, StopsTheUpdateWhereItCannotBeLookedAt) {
    WriteFile(kGameFile, kGame);
    const std::string source = Source(kNewGame);
    const std::string line = std::string("Failed to look at ") + kGameFile +
                             ": Input/output error[0x0900 service_conf_update.cpp:N]";
    {
        const Failing look("stat", kGameFile, EIO);
        EXPECT_EQ(UpdateWithoutNotify(source), -1);
        ExpectNotifyUntouched();
        EXPECT_EQ(Update(source), -1);
    }
    EXPECT_EQ(ErrorState(), "0x900 service_conf_update.cpp");
    EXPECT_THAT(Messages(), ElementsAre(line, line, "FAILED to install .sc"));
    EXPECT_EQ(ReadFile(kGameFile), kGame);
    EXPECT_THAT(Calls(), IsEmpty());
}

TEST_F(UnkeptContent, StopsTheUpdateOfAFolder) {
    std::filesystem::create_directory(kGameFile);
    ExpectNothingDone();
}

TEST_F(UnkeptContent, StopsTheUpdateWhereItsNameIsTaken) {
    WriteFile(kGameFile, kGame);
    in_tmp_ = {"servicetool.update.game.sc.old"};
    std::filesystem::create_directories(std::string(kBackup) + "/sub");
    const std::string folder =
        std::string("Folder ") + kBackup + " has the name of a copy and is not empty";
    ExpectNothingDone(in_tmp_, {folder});
    EXPECT_THAT(Entries(kBackup), ElementsAre("sub"));
}

TEST_F(UnkeptContent, IsKeptWhereItsNameWasPlanted) {
    const std::function<void()> plants[] = {
        [] { ASSERT_EQ(mkdir(kBackup, 0777), 0); },
        [] { ASSERT_EQ(mkfifo(kBackup, 0666), 0); },
        [] { MakeSocket(kBackup); },
    };
    for (const auto &plant : plants) {
        WriteFile(kGameFile, kGame);
        plant();
        EXPECT_EQ(UpdateWithoutNotify(Source(kNewGame)), 0);
        EXPECT_EQ(ReadFile(kBackup), kGame);
        EXPECT_EQ(StateOf(kBackup).mode, mode_t{S_IFREG | 0600});
        std::filesystem::remove(kBackup);
    }
    EXPECT_THAT(Messages(), IsEmpty());
}

TEST_F(ServiceConfUpdate, WritesThroughNoLinkAndNoFileThatWasThere) {
    WriteFile("/packages/secret", "secret");
    const auto update = [&] {
        WriteFile(kGameFile, kGame);
        EXPECT_EQ(UpdateWithoutNotify(Source(kNewGame)), 0);
        EXPECT_FALSE(std::filesystem::is_symlink(kBackup));
        EXPECT_EQ(ReadFile(kBackup), kGame);
        EXPECT_EQ(StateOf(kBackup).mode & 07777, 0600U);
        EXPECT_EQ(ReadFile("/packages/secret"), "secret");
    };
    std::filesystem::create_symlink("/packages/secret", kBackup);
    update();
    WriteFile(kBackup, "left by another process");
    std::filesystem::permissions(kBackup, std::filesystem::perms::all);
    update();
    std::filesystem::remove(kBackup);
    std::filesystem::create_hard_link("/packages/secret", kBackup);
    update();
    std::filesystem::remove(kBackup);
}

TEST_F(ServiceConfUpdate, StaysInPlaceWhenNoListenerCanBeNotified) {
    WriteFile(kGameFile, kGame);
    SetExitStatus("portforward", "1");
    EXPECT_EQ(Update(Source(kNewGame)), 0);
    EXPECT_THAT(Messages(), ElementsAre("FAILED to invoke plugins"));
    EXPECT_EQ(ReadFile(kGameFile), kNewGame);
    StartAnew();
    WriteFile(kGameFile, kGame);
    const Failing notify("TLIBServiceConfUpdateServNotify");
    EXPECT_EQ(Update(Source(kTelnetGame)), -1);
    EXPECT_EQ(Messages().back(), "FAILED to notify");
    EXPECT_EQ(ReadFile(kGameFile), kTelnetGame);
}

TEST_F(ServiceConfUpdate, LeavesAWholeFileWhenMemoryRunsOut) {
    const std::string source = Source(kNewGame);
    const int allocations = ForEachFailingAllocation([&](FailingAllocation &fail) {
        WriteFile(kGameFile, kGame);
        TAVO_SERVICE_CONF_PORT *conflicts = nullptr;
        const int result = fail.During([&] {
            return TAVOServiceConfUpdateBaseName("game.sc", source.c_str(), 2, &conflicts);
        });
        TAVOServiceConfPortsFree(conflicts);
        EXPECT_THAT(result, AnyOf(0, -1));
        EXPECT_THAT(ReadFile(kGameFile), AnyOf(kGame, kNewGame));
        EXPECT_THAT(InTmp(), IsEmpty());
        if (Messages().empty()) {
            EXPECT_EQ(result, 0);
            EXPECT_EQ(ReadFile(kGameFile), kNewGame) << "nothing fails silently";
        }
        log_.Clear();
        std::filesystem::remove_all("/usr/local/etc/services.d/tmp");
    });
    EXPECT_GT(allocations, 0);
}

}  // namespace
}  // namespace tavo::test
