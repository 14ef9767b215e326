// Installing a service file with the code that the exported functions share.
#include <chrono>

#include "failing_allocation.h"
#include "service_files_test.h"

namespace tavo::test {
namespace {

using testing::AnyOf;
using testing::Contains;
using testing::ElementsAre;
using testing::IsEmpty;

constexpr char kFolder[] = "/usr/local/etc/services.d/tmp";
constexpr char kCopy[] = "/usr/local/etc/services.d/tmp/game.sc.XXXXXX";

class ServiceConfInstaller : public ServiceFilesTest {
  protected:
    int Install(const std::string &source, const std::string &name = "game.sc",
                int location = TAVO_SERVICE_CONF_DIR_PACKAGE) {
        TAVO_SERVICE_CONF_PORT *conflicts = nullptr;
        const int result = ServiceConfInstall(name.c_str(), source.c_str(), location, &conflicts);
        conflicts_.reset(conflicts);
        return result;
    }

    Ports conflicts_;
};

TEST_F(ServiceConfInstaller, PlacesACopyIntoTheDirectoryOfItsLocation) {
    const std::string source = Source(kGame);
    for (const auto &[location, directory] :
         {std::pair{1, std::string(kSystemServices)}, {2, std::string(kPackageServices)}}) {
        const Programs programs;
        EXPECT_EQ(Install(source, "game.sc", location), 0);
        EXPECT_EQ(ReadFile(directory + "/game.sc"), kGame);
        EXPECT_THAT(
            Plain(programs.Run()),
            ElementsAre("/bin/mkdir -p " + directory, "/bin/mkdir -p " + directory + "/tmp",
                        "/bin/cp -f -p " + source + " " + directory + "/tmp/game.sc.XXXXXX"));
        EXPECT_THAT(Entries(directory), ElementsAre("game.sc", "tmp"));
        EXPECT_THAT(Entries(directory + "/tmp"), IsEmpty());
        std::filesystem::remove(directory + "/game.sc");
    }
    EXPECT_THAT(Messages(), IsEmpty());
    EXPECT_THAT(Calls(), IsEmpty());
}

TEST_F(ServiceConfInstaller, KeepsModeAndTimesAndTheErrorStateThatWas) {
    const std::string source = Source(kGame);
    std::filesystem::permissions(source, std::filesystem::perms{0640});
    const auto time = std::filesystem::last_write_time(source) - std::chrono::hours(1000);
    std::filesystem::last_write_time(source, time);
    TLIBCErrSetEx(0x123, "before.cpp", 1);
    EXPECT_EQ(Install(source), 0);
    EXPECT_EQ(StateOf(kGameFile).mode & 07777, 0640U);
    EXPECT_EQ(std::filesystem::last_write_time(kGameFile), time);
    EXPECT_EQ(ErrorState(), "0x123 before.cpp");
}

TEST_F(ServiceConfInstaller, FlushesTheWholeCopyBeforeItTakesTheName) {
    int flushes = 0;
    const Before flush("fsync", [&] {
        const std::filesystem::directory_iterator folder(kFolder);
        EXPECT_EQ(ReadFile(folder->path()), kGame);
        EXPECT_FALSE(std::filesystem::exists(kGameFile));
        ++flushes;
    });
    EXPECT_EQ(Install(Source(kGame)), 0);
    EXPECT_EQ(flushes, 1);
}

TEST_F(ServiceConfInstaller, MakesDirectoriesThatAreMissing) {
    std::filesystem::remove_all("/usr/local/etc");
    EXPECT_EQ(Install(Source(kGame)), 0);
    EXPECT_EQ(ReadFile(kGameFile), kGame);
    EXPECT_TRUE(std::filesystem::is_directory(kFolder));
}

TEST_F(ServiceConfInstaller, TakesNamesAsTheyAre) {
    const std::string source = Source(kGame, "my %s game");
    ASSERT_EQ(chdir("/packages"), 0);
    for (const char *name : {"a b%d.sc", "..sc", "-f.sc", "game", "a;b$c'd\".sc"}) {
        EXPECT_EQ(Install("my %s game", name), 0) << name;
        EXPECT_EQ(ReadFile(kPackageServices + std::string("/") + name), kGame);
    }
    EXPECT_THAT(Entries(kFolder), IsEmpty());
    EXPECT_EQ(ReadFile(source), kGame);
}

TEST_F(ServiceConfInstaller, TakesNoSourceForAnOption) {
    const Programs programs;
    ASSERT_EQ(chdir("/packages"), 0);
    std::filesystem::create_directory("-tx");
    for (const char *source : {"--help", "-tx/y", "-"}) {
        WriteFile(source, kGame);
        EXPECT_EQ(Install(source), 0) << source;
        EXPECT_EQ(ReadFile(kGameFile), kGame);
        EXPECT_EQ(Plain(programs.Run()).back(),
                  "/bin/cp -f -p ./" + std::string(source) + " " + kCopy);
        std::filesystem::remove(kGameFile);
    }
    EXPECT_THAT(Messages(), IsEmpty());
}

TEST_F(ServiceConfInstaller, TakesNoOtherLocation) {
    const Programs programs;
    const std::string source = Source(kGame);
    for (const int location : {0, 3, 4, 5, -1}) {
        StartAnew();
        EXPECT_EQ(Install(source, "game.sc", location), -1) << location;
        EXPECT_EQ(ErrorState(), "0xD00 utils.cpp");
        EXPECT_THAT(Messages(), IsEmpty());
        EXPECT_THAT(programs.Run(), IsEmpty());
    }
}

TEST_F(ServiceConfInstaller, NeedsANameThatStaysInTheDirectory) {
    const Programs programs;
    const std::string source = Source(kGame);
    for (const char *name : {static_cast<const char *>(nullptr), "..", "../game.sc",
                             "sub/../game.sc", "sub/..", "/../../game.sc"}) {
        StartAnew();
        TAVO_SERVICE_CONF_PORT *conflicts = nullptr;
        EXPECT_EQ(ServiceConfInstall(name, source.c_str(), 2, &conflicts), -1);
        EXPECT_EQ(ErrorState(), "0xD00 utils.cpp");
        EXPECT_THAT(Messages(), IsEmpty());
        EXPECT_THAT(programs.Run(), IsEmpty());
    }
    StartAnew();
    EXPECT_EQ(ServiceConfInstall("game.sc", nullptr, 2, nullptr), -1);
    EXPECT_EQ(ErrorState(), "0xD00 utils.cpp");
    EXPECT_THAT(Entries(kPackageServices), IsEmpty());
}

TEST_F(ServiceConfInstaller, OfAMissingSourceMakesNothing) {
    const Programs programs;
    std::filesystem::remove_all(kPackageServices);
    std::filesystem::create_symlink("/packages/nothing", "/packages/link.sc");
    for (const std::string source : {"/packages/game.sc", "", "/packages/link.sc"}) {
        StartAnew();
        EXPECT_EQ(Install(source), -1);
        EXPECT_THAT(Messages(), ElementsAre("Source configure file does not exist (" + source +
                                            ")[0x0700 service_conf_file_verify.cpp:N]"));
        EXPECT_EQ(ErrorState(), "0x700 service_conf_file_verify.cpp");
        EXPECT_THAT(programs.Run(), IsEmpty());
    }
    EXPECT_FALSE(std::filesystem::exists(kPackageServices));
}

TEST_F(ServiceConfInstaller, TakesNothingForMissingThatCannotBeLookedAt) {
    const std::string source = Source(kGame);
    WriteFile(kGameFile, kTelnetGame);
    for (const char *path : {source.c_str(), kGameFile}) {
        StartAnew();
        const Failing look("stat", path, EIO);
        EXPECT_EQ(Install(source), -1);
        EXPECT_EQ(ErrorState(), "0x900 service_conf_file_verify.cpp");
        EXPECT_THAT(Messages(), ElementsAre("install configue file fail! (" + source +
                                            ")[0x0900 service_conf_file_verify.cpp:N]"));
        EXPECT_EQ(ReadFile(kGameFile), kTelnetGame);
    }
}

TEST_F(ServiceConfInstaller, ReportsAMissingSourceBeforeABadName) {
    for (const char *name : {"..", "../game.sc", static_cast<const char *>(nullptr)}) {
        StartAnew();
        EXPECT_EQ(ServiceConfInstall(name, "/packages/missing.sc", 2, nullptr), -1);
        EXPECT_EQ(ErrorState(), "0x700 service_conf_file_verify.cpp");
        EXPECT_THAT(Messages(),
                    ElementsAre("Source configure file does not exist (/packages/missing.sc)"
                                "[0x0700 service_conf_file_verify.cpp:N]"));
    }
}

TEST_F(ServiceConfInstaller, StopsWhereTheSourceCannotBeVerified) {
    const Programs programs;
    const Failing verify("TAVOServiceConfFileVerify");
    TLIBCErrSetEx(0x123, "before.cpp", 1);
    EXPECT_EQ(Install("/packages/game.sc"), -1);
    EXPECT_THAT(
        Messages(),
        ElementsAre("install configue file fail! (/packages/game.sc)[0x0123 before.cpp:N]"));
    EXPECT_THAT(programs.Run(), IsEmpty());
}

TEST_F(ServiceConfInstaller, ReplacesAnInstalledFileAndClearsTheErrorThatSaysSo) {
    WriteFile(kGameFile, kGame);
    TLIBCErrSetEx(0x123, "before.cpp", 1);
    EXPECT_EQ(Install(Source(kNewGame)), 0);
    EXPECT_EQ(ReadFile(kGameFile), kNewGame);
    EXPECT_EQ(ErrorState(), "0x0 ");
    EXPECT_THAT(Messages(), IsEmpty());
}

TEST_F(ServiceConfInstaller, ReplacesALinkAndNotWhatItLeadsTo) {
    WriteFile("/packages/other", "other");
    std::filesystem::create_symlink("/packages/other", kGameFile);
    EXPECT_EQ(Install(Source(kGame)), 0);
    EXPECT_FALSE(std::filesystem::is_symlink(kGameFile));
    EXPECT_EQ(ReadFile(kGameFile), kGame);
    EXPECT_EQ(ReadFile("/packages/other"), "other");
}

TEST_F(ServiceConfInstaller, InstallsWhatCollidesAndSaysSo) {
    const std::string source = Source(kTelnetGame);
    EXPECT_EQ(Install(source), 1);
    EXPECT_EQ(ReadFile(kGameFile), kTelnetGame);
    EXPECT_THAT(Messages(),
                ElementsAre("szTmpString=23/tcp conflict",
                            source + " conf file port conflict with existed conf file setting"));
    EXPECT_THAT(Describe(conflicts_.get()), ElementsAre("src 23 with end 23 protocol 0"));
}

TEST_F(ServiceConfInstaller, InstallsWhatCannotBeChecked) {
    const std::string source = Source(kNewGame);
    WriteFile(kGameFile, kGame);
    const Failing check("TLIBIsConfPortConflict");
    const Before checking("TLIBIsConfPortConflict", [] {
        EXPECT_EQ(TLIBCErrGet(), 0U) << "that the file is installed is no error";
        TLIBCErrSetEx(0x123, "check.cpp", 1);
    });
    EXPECT_EQ(Install(source), 0);
    EXPECT_EQ(ReadFile(kGameFile), kNewGame);
    EXPECT_THAT(Messages(), ElementsAre("check " + source + " conf file port conflict failed=-1"));
    EXPECT_EQ(ErrorState(), "0x123 check.cpp");
}

TEST_F(ServiceConfInstaller, TakesAnyOtherResultOfTheCheckForAFailureToo) {
    const std::string source = Source(kGame);
    for (const int result : {2, -5}) {
        StartAnew();
        Failing check("TLIBIsConfPortConflict", source);
        check.Giving(result);
        EXPECT_EQ(Install(source), 0);
        EXPECT_THAT(Messages(), ElementsAre("check " + source + " conf file port conflict failed=" +
                                            std::to_string(result)));
    }
    EXPECT_EQ(ReadFile(kGameFile), kGame);
}

TEST_F(ServiceConfInstaller, ChecksWithoutAListToo) {
    const std::string source = Source(kTelnetGame);
    EXPECT_EQ(ServiceConfInstall("game.sc", source.c_str(), 2, nullptr), 0);
    EXPECT_EQ(ReadFile(kGameFile), kTelnetGame);
}

// ---- Failing steps ----

TEST_F(ServiceConfInstaller, NeedsItsDirectories) {
    const std::string source = Source(kTelnetGame);
    for (const std::string place : {kFolder, kPackageServices}) {
        StartAnew();
        std::filesystem::remove_all(place);
        WriteFile(place, "");
        EXPECT_EQ(Install(source), -1);
        EXPECT_EQ(Messages().back(), "mkdir fail for path " + place + "[0x3C00 utils.cpp:N]");
        EXPECT_EQ(ErrorState(), "0x3C00 utils.cpp");
        EXPECT_EQ(ReadFile(place), "");
    }
}

TEST_F(ServiceConfInstaller, NeedsMkdirAfterTheCheck) {
    const std::string source = Source(kTelnetGame);
    std::filesystem::remove("/bin/mkdir");
    EXPECT_EQ(Install(source), -1);
    EXPECT_THAT(Messages(),
                ElementsAre("szTmpString=23/tcp conflict",
                            source + " conf file port conflict with existed conf file setting",
                            "mkdir fail for path /usr/local/etc/services.d[0x3C00 utils.cpp:N]"));
    EXPECT_THAT(Entries(kPackageServices), IsEmpty());
    EXPECT_THAT(Describe(conflicts_.get()), ElementsAre("src 23 with end 23 protocol 0"));
}

TEST_F(ServiceConfInstaller, NeedsANameForTheCopy) {
    const std::string source = Source(kGame);
    const std::string long_name(250, 'n');
    EXPECT_EQ(Install(source, "sub/game.sc"), -1);
    EXPECT_EQ(Install(source, long_name), -1);
    EXPECT_THAT(Messages(),
                ElementsAre("Failed to mkstemp() for installing service conf of sub/game.sc: "
                            "No such file or directory",
                            "Failed to mkstemp() for installing service conf of " + long_name +
                                ": File name too long"));
    EXPECT_EQ(TLIBCErrGet(), 0U);
    EXPECT_THAT(Entries(kPackageServices), ElementsAre("tmp"));
}

class BrokenCopy : public ServiceConfInstaller {
  protected:
    BrokenCopy() { WriteFile(kGameFile, kGame); }

    // Expects that the copy fails, the installed file is unchanged, and the incomplete copy is
    // left.
    void ExpectFailure(const std::string &source) {
        StartAnew();
        EXPECT_EQ(Install(source), -1);
        EXPECT_THAT(Messages(), Contains("install configure file fail! from=" + source +
                                         " to=" + kGameFile + "[0x3B00 utils.cpp:N]"));
        EXPECT_EQ(ErrorState(), "0x3B00 utils.cpp");
        EXPECT_EQ(ReadFile(kGameFile), kGame);
        EXPECT_THAT(Plain(Entries(kFolder)), ElementsAre("game.sc.XXXXXX"));
        std::filesystem::remove_all(kFolder);
    }
};

TEST_F(BrokenCopy, LeavesTheInstalledFileWhereCpFails) {
    const std::string source = Source(kNewGame);
    for (const int result : {1, 130, -1}) {
        Programs programs;
        programs.Answer("/bin/cp", result);
        ExpectFailure(source);
    }
    std::filesystem::remove("/bin/cp");
    ExpectFailure(source);
    WriteScript("/bin/cp", "echo half > ${!#}; exit 1");
    ExpectFailure(source);
}

TEST_F(BrokenCopy, LeavesTheInstalledFileWhereTheCopyDoesNotReachTheDisk) {
    const Failing flush("fsync");
    ExpectFailure(Source(kNewGame));
}

TEST_F(BrokenCopy, NeitherCopiesNorWaitsForWhatIsNoFile) {
    std::filesystem::create_directory("/packages/folder");
    ASSERT_EQ(mkfifo("/packages/pipe", 0600), 0);
    for (const char *source : {"/packages/folder", "/packages/pipe", "/dev/zero"}) {
        const Programs programs;
        ExpectFailure(source);
        EXPECT_THAT(programs.Run(), ElementsAre("/bin/mkdir -p /usr/local/etc/services.d",
                                                "/bin/mkdir -p /usr/local/etc/services.d/tmp"));
    }
}

TEST_F(ServiceConfInstaller, LeavesTheCopyWhereItCannotBeRenamed) {
    std::filesystem::create_directory(kGameFile);
    EXPECT_EQ(Install(Source(kGame)), -1);
    EXPECT_THAT(Plain(Messages()), ElementsAre("Failed to rename " + std::string(kCopy) + " to " +
                                               kGameFile + ": Is a directory"));
    EXPECT_EQ(ErrorState(), "0x2800 utils.cpp");
    EXPECT_THAT(Plain(Entries(kFolder)), ElementsAre("game.sc.XXXXXX"));
    const std::filesystem::directory_iterator folder(kFolder);
    EXPECT_EQ(ReadFile(folder->path()), kGame);
}

TEST_F(ServiceConfInstaller, InstallsWholeOrNotAtAllWhenMemoryRunsOut) {
    const std::string source = Source(kNewGame);
    const int allocations = ForEachFailingAllocation([&](FailingAllocation &fail) {
        WriteFile(kGameFile, kGame);
        TAVO_SERVICE_CONF_PORT *conflicts = nullptr;
        const int result = fail.During(
            [&] { return ServiceConfInstall("game.sc", source.c_str(), 2, &conflicts); });
        TAVOServiceConfPortsFree(conflicts);
        EXPECT_THAT(result, AnyOf(0, -1));
        EXPECT_EQ(ReadFile(kGameFile), result == 0 ? kNewGame : kGame);
    });
    EXPECT_GT(allocations, 0);
}

// ---- The path of an installed file ----

TEST(GetInstallPath, NamesTheFileInTheDirectoryOfItsLocation) {
    char path[64] = "";
    EXPECT_EQ(GetInstallPath("game.sc", 1, path, sizeof(path)), 0);
    EXPECT_STREQ(path, "/usr/tavo/etc/services.d/game.sc");
    EXPECT_EQ(GetInstallPath("%s", 2, path, sizeof(path)), 0);
    EXPECT_STREQ(path, "/usr/local/etc/services.d/%s");
}

TEST(GetInstallPath, CutsAPathThatIsTooLong) {
    char path[] = "################################";
    EXPECT_EQ(GetInstallPath("game.sc", 2, path, 30), 0);
    EXPECT_STREQ(path, "/usr/local/etc/services.d/gam");
    EXPECT_EQ(path[30], '#');
    EXPECT_EQ(GetInstallPath("game.sc", 2, path, 1), 0);
    EXPECT_STREQ(path, "");
}

TEST(GetInstallPath, RefusesWhatNamesNoFile) {
    char path[64] = "before";
    const auto refuses = [&](const char *name, int location, char *buffer, int size) {
        TLIBCErrSetEx(0, nullptr, 0);
        EXPECT_EQ(GetInstallPath(name, location, buffer, size), -1);
        EXPECT_EQ(ErrorState(), "0xD00 utils.cpp");
        EXPECT_STREQ(path, "before");
    };
    refuses(nullptr, 2, path, sizeof(path));
    refuses("..", 2, path, sizeof(path));
    for (const int location : {0, 3, 4, -1}) {
        refuses("game.sc", location, path, sizeof(path));
    }
    refuses("game.sc", 2, nullptr, sizeof(path));
    refuses("game.sc", 2, path, 0);
    refuses("game.sc", 2, path, -1);
}

}  // namespace
}  // namespace tavo::test
