// Concurrent changes: each one sees the result of the previous one, none changes a store that
// another may still undo, and none waits without a limit.
#include <fcntl.h>
#include <signal.h>
#include <sys/file.h>

#include <atomic>
#include <functional>
#include <thread>

#include "child_process.h"
#include "service_files_test.h"

namespace tavo::test {
namespace {

using testing::Contains;
using testing::ElementsAre;
using testing::IsEmpty;

constexpr char kLockFolder[] = "/run/tavoserviceconf";
constexpr char kLock[] = "/run/tavoserviceconf/package-services.lock";

int Set() {
    SetParam param = RemovalParam();
    param.nWriteMode = TAVO_WRITE_MODE_SET;
    const Ports ports = MakePorts("7002/tcp");
    TAVO_SERVICE_CONF_SECTION section = {};
    Fill(section.szName, "game");
    Fill(section.strTitle.szText, "Game");
    Fill(section.strDesc.szText, "Games");
    section.pDstPorts = ports.get();
    return TLIBServiceConfSectionSet(&param, &section);
}

int SetPorts() {
    SetParam param = RemovalParam();
    param.nWriteMode = TAVO_WRITE_MODE_SET;
    return TLIBServiceConfPortsSet(&param, MakePorts("7002/tcp").get());
}

int SetSectionPorts() {
    return TAVOServiceConfSectionPortSet(TAVO_SERVICE_CONF_DIR_PACKAGE, "game.sc", "game",
                                         MakePorts("7002/tcp").get());
}

int Install() {
    return TAVOServiceConfInstall("/packages/game.sc", TAVO_SERVICE_CONF_DIR_PACKAGE);
}

int Update() {
    TAVO_SERVICE_CONF_PORT *conflicts = nullptr;
    const int result = TAVOServiceConfUpdateBaseName("game.sc", "/packages/game.sc",
                                                     TAVO_SERVICE_CONF_DIR_PACKAGE, &conflicts);
    TAVOServiceConfPortsFree(conflicts);
    return result;
}

int Remove() {
    const SetParam param = RemovalParam();
    return TAVOServiceConfRemove(&param);
}

int RemoveSection() {
    const SetParam param = RemovalParam();
    return TLIBServiceConfSectionRemove(&param);
}

int Backup() {
    const SetParam param = RemovalParam();
    return TLIBServiceConfBackup(&param);
}

int Restore() {
    const SetParam param = RemovalParam();
    return TLIBServiceConfRestore(&param);
}

int Delete() {
    const SetParam param = RemovalParam();
    return TLIBServiceBackupConfDelete(&param);
}

// An operation, the purpose in its log line if it cannot get the lock, and the source file of that
// line.
struct Operation {
    const char *name;
    int (*make)();
    std::string purpose;
    std::string source;
};

void PrintTo(const Operation &operation, std::ostream *out) {
    *out << operation.name;
}

std::vector<Operation> Operations() {
    const std::string change = std::string("change ") + kGameFile;
    return {
        {"Set", Set, "to " + change, "service_conf_section_set.cpp"},
        {"SetPorts", SetPorts, "to " + change, "service_conf_ports_set.cpp"},
        {"SetSectionPorts", SetSectionPorts, "to " + change, "service_conf_section_port_set.cpp"},
        {"Install", Install, std::string("to install ") + kGameFile, "utils.cpp"},
        {"Update", Update, std::string("to update ") + kGameFile, "service_conf_update.cpp"},
        {"Remove", Remove, std::string("to remove ") + kGameFile, "service_conf_remove.cpp"},
        {"RemoveSection", RemoveSection, "to " + change, "service_conf_section_remove.cpp"},
        {"Backup", Backup, "for a backup", "service_conf_common.cpp"},
        {"Restore", Restore, "for a restore", "service_conf_common.cpp"},
        {"Delete", Delete, "to delete a backup", "service_conf_common.cpp"},
    };
}

class StoreLocks : public ServiceFilesTest {
  protected:
    StoreLocks() {
        WriteFile(kGameFile, kGame);
        Source(kNewGame);
    }
};

// ---- Unavailable locks ----

class MissingLock : public StoreLocks, public testing::WithParamInterface<Operation> {
  protected:
    void ExpectRefused() {
        StartAnew();
        const Lines before = AllStores();
        EXPECT_EQ(GetParam().make(), -1);
        EXPECT_EQ(ErrorState(), "0x900 " + GetParam().source);
        EXPECT_THAT(Messages(),
                    Contains(std::string("Failed to lock ") + kLock + " " + GetParam().purpose +
                             "[0x0900 " + GetParam().source + ":N]"));
        EXPECT_EQ(AllStores(), before);
        EXPECT_THAT(Calls(), IsEmpty());
    }
};

TEST_P(MissingLock, IsAFailureThatNamesIt) {
    WriteFile(kLockFolder, "");
    ExpectRefused();
    std::filesystem::remove(kLockFolder);
    std::filesystem::create_directory("/packages/locks");
    std::filesystem::create_symlink("/packages/locks", kLockFolder);
    ExpectRefused();
    EXPECT_THAT(Entries("/packages/locks"), IsEmpty());
    std::filesystem::remove(kLockFolder);
    std::filesystem::create_directories(kLock);
    ExpectRefused();
    std::filesystem::remove(kLock);
    std::filesystem::create_symlink("/packages/lock", kLock);
    ExpectRefused();
    EXPECT_FALSE(std::filesystem::exists("/packages/lock"));
}

TEST_P(MissingLock, IsAFailureWhenItIsHeldAllTheTime) {
    std::filesystem::create_directory(kLockFolder);
    const int holder = open(kLock, O_RDWR | O_CREAT | O_CLOEXEC, 0600);
    ASSERT_EQ(flock(holder, LOCK_EX), 0);
    {
        const FastClock clock;
        ExpectRefused();
    }
    close(holder);
    StartAnew();
    EXPECT_GE(GetParam().make(), 0);
    EXPECT_EQ(Delete(), 0) << "which ends a backup";
}

TEST_P(MissingLock, IsAFailureWhereFlockFails) {
    const Failing step("flock", "", ENOLCK);
    ExpectRefused();
}

INSTANTIATE_TEST_SUITE_P(Operations, MissingLock, testing::ValuesIn(Operations()),
                         [](const auto &operation) { return operation.param.name; });

TEST_F(StoreLocks, CanBeOpenedByTheirUserOnly) {
    const mode_t umask_before = umask(0);
    EXPECT_EQ(Set(), 0);
    EXPECT_EQ(ModeOf(kLockFolder), mode_t{S_IFDIR | 0700});
    EXPECT_EQ(ModeOf(kLock), mode_t{S_IFREG | 0600});
    std::filesystem::permissions(kLockFolder, std::filesystem::perms::all);
    EXPECT_EQ(Set(), 0);
    EXPECT_EQ(ModeOf(kLockFolder), mode_t{S_IFDIR | 0700});
    umask(umask_before);
}

// Any user can open, and so lock, a service folder.
TEST_F(StoreLocks, AreNotOnTheFolder) {
    const int holder = open(kPackageServices, O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    ASSERT_EQ(flock(holder, LOCK_EX), 0);
    EXPECT_EQ(Set(), 0);
    EXPECT_THAT(ReadFile(kGameFile), testing::HasSubstr("7002/tcp"));
    EXPECT_EQ(RemoveSection(), 0);
    EXPECT_THAT(Messages(), IsEmpty());
    close(holder);
}

// ---- From a backup to its end ----

// Expects that other threads and processes can take the lock.
void ExpectFree() {
    int result = -1;
    std::thread([&] { result = Set(); }).join();
    EXPECT_EQ(result, 0);
    EXPECT_EQ(StatusInChild(Set), 0);
}

class KeptLock : public StoreLocks {
  protected:
    // Starts a process that changes the file. It succeeds if there is no side copy of this process.
    pid_t StartChange() const {
        return StartChild([this] {
            bool alone = true;
            Programs programs;
            programs.Before("/bin/cp", [&] { alone = alone && !std::filesystem::exists(copy_); });
            return Set() == 0 && alone ? 0 : 1;
        });
    }

    static void LetOthersRun() { usleep(100'000); }

    const std::string copy_ = SideCopyOf(kPackageServices);
};

TEST_F(KeptLock, KeepsOtherProcessesOutUntilTheBackupIsDeleted) {
    ASSERT_EQ(Backup(), 0);
    const pid_t change = StartChange();
    LetOthersRun();
    EXPECT_EQ(ReadFile(kGameFile), kGame);
    EXPECT_EQ(Delete(), 0);
    EXPECT_EQ(StatusOfChild(change), 0);
}

TEST_F(KeptLock, KeepsOtherProcessesOutUntilTheStoreIsRestored) {
    ASSERT_EQ(Backup(), 0);
    const pid_t change = StartChange();
    LetOthersRun();
    EXPECT_EQ(Restore(), 0);
    EXPECT_EQ(StatusOfChild(change), 0);
    EXPECT_THAT(ReadFile(kGameFile), testing::HasSubstr("7002/tcp")) << "nothing is overwritten";
}

TEST_F(KeptLock, KeepsOtherThreadsOut) {
    ASSERT_EQ(Backup(), 0);
    const FastClock clock;
    int result = 0;
    std::thread([&] { result = Set(); }).join();
    EXPECT_EQ(result, -1);
    EXPECT_EQ(ReadFile(kGameFile), kGame);
    EXPECT_EQ(Set(), 0) << "the thread itself changes what it has a backup of";
    EXPECT_EQ(Restore(), 0);
    EXPECT_EQ(ReadFile(kGameFile), kGame);
}

TEST_F(KeptLock, IsGivenBackByAnyThread) {
    for (const auto end : {Restore, Delete}) {
        ASSERT_EQ(Backup(), 0);
        int result = -1;
        std::thread([&] { result = end(); }).join();
        EXPECT_EQ(result, 0);
        ExpectFree();
    }
}

TEST_F(KeptLock, IsGivenBackOnce) {
    ASSERT_EQ(Backup(), 0);
    ASSERT_EQ(Backup(), 0);
    EXPECT_EQ(Delete(), 0);
    ExpectFree();
}

TEST_F(KeptLock, IsGivenBackWhateverComesOfTheEnd) {
    for (const auto end : {Restore, Delete}) {
        ASSERT_EQ(Backup(), 0);
        {
            Programs programs;
            programs.Answer("/bin/rm", -1);
            EXPECT_EQ(end(), -1);
        }
        ExpectFree();
        EXPECT_EQ(Delete(), 0);
        std::filesystem::remove_all(std::string(kPackageServices) + ".unrestored." +
                                    std::to_string(getpid()) + ".1");
    }
}

TEST_F(KeptLock, IsNotKeptWithoutABackup) {
    {
        Programs programs;
        programs.Answer("/bin/cp", -1);
        EXPECT_EQ(Backup(), -1);
    }
    ExpectFree();
    EXPECT_EQ(Restore(), 0);
    ExpectFree();
}

TEST_F(KeptLock, IsNotKeptByAChildProcess) {
    ASSERT_EQ(Backup(), 0);
    const pid_t child = StartChild([] { return pause(); });
    EXPECT_EQ(Delete(), 0);
    ExpectFree();
    kill(child, SIGKILL);
    EXPECT_EQ(StatusOfChild(child), -1);
}

TEST_F(KeptLock, IsNotGivenBackByAChildThatWasMadeUnderIt) {
    int parent[2];
    ASSERT_EQ(pipe2(parent, O_CLOEXEC), 0);
    pid_t child = -1;
    {
        Programs programs;
        programs.Before("/bin/cp", [&] {
            child = fork();
            close(parent[child == 0 ? 1 : 0]);
            char byte;
            child = child == 0 && read(parent[0], &byte, 1) != 0 ? -1 : child;
        });
        EXPECT_EQ(Set(), 0);
    }
    if (child == 0) {
        const FastClock clock;
        _exit(Set() == 0 ? 0 : 1);
    }
    close(parent[1]);
    EXPECT_EQ(StatusOfChild(child), 0);
}

TEST_F(KeptLock, IsFreeWhenItsProcessIsKilled) {
    const pid_t child = StartChild([] {
        Backup();
        return raise(SIGKILL);
    });
    EXPECT_EQ(StatusOfChild(child), -1);
    ExpectFree();
    std::filesystem::remove_all(std::string(kPackageServices) + ".tmp." + std::to_string(child));
}

// ---- Many concurrent changes ----

class ManyRemovals : public StoreLocks {
  protected:
    static constexpr int kProcesses = 4;
    static constexpr int kThreads = 3;
    static constexpr int kRounds = 8;

    static std::string Name(int process, int thread, const std::string &kind) {
        return kind + std::to_string(process) + "-" + std::to_string(thread) + ".sc";
    }
    static std::string Path(const std::string &name) {
        return std::string(kPackageServices) + "/" + name;
    }

    static SetParam Removal(const std::string &name) {
        SetParam param = RemovalParam();
        Fill(param.szFileName, name);
        return param;
    }

    // Removes a section from the caller's own file. The restart fails, so the removal must be
    // undone.
    static bool FailToRemove(const std::string &name) {
        SetParam param = Removal(name);
        param.nRestartMode = TAVO_RESTART_MODE_RESTART;
        param.nRestartFlags = 33;
        return TLIBServiceConfSectionRemove(&param) == -1 && ReadFile(Path(name)) == kGame;
    }

    static int Work(int process) {
        std::atomic<int> mistakes = 0;
        std::vector<std::thread> threads;
        for (int thread = 0; thread < kThreads; ++thread) {
            threads.emplace_back([&mistakes, process, thread] {
                for (int round = 0; round < kRounds; ++round) {
                    mistakes += FailToRemove(Name(process, thread, "kept")) ? 0 : 1;
                }
                const SetParam param = Removal(Name(process, thread, "removed"));
                mistakes += TLIBServiceConfSectionRemove(&param) == 0 ? 0 : 1;
            });
        }
        for (std::thread &thread : threads) {
            thread.join();
        }
        return mistakes;
    }
};

TEST_F(ManyRemovals, OfDifferentFilesLoseNoFileAndUndoNoOther) {
    Lines kept = {"game.sc"};
    for (int process = 0; process < kProcesses; ++process) {
        for (int thread = 0; thread < kThreads; ++thread) {
            WriteFile(Path(Name(process, thread, "kept")), kGame);
            WriteFile(Path(Name(process, thread, "removed")), kGame);
            kept.push_back(Name(process, thread, "kept"));
        }
    }
    std::vector<pid_t> children;
    for (int process = 1; process < kProcesses; ++process) {
        children.push_back(StartChild([process] { return Work(process); }));
    }
    EXPECT_EQ(Work(0), 0);
    for (const pid_t child : children) {
        EXPECT_EQ(StatusOfChild(child), 0);
    }
    EXPECT_EQ(Entries(kPackageServices), kept);
    for (const std::string &name : kept) {
        EXPECT_EQ(ReadFile(Path(name)), kGame) << name;
    }
    EXPECT_THAT(Entries("/usr/local/etc"), ElementsAre("services.d"));
}

// ---- The copy in /tmp ----

class CopyOfALiveChange : public StoreLocks {
  protected:
    // Starts a process that holds a locked copy for a while, as a change does.
    static pid_t StartHolder() {
        int ready[2];
        EXPECT_EQ(pipe2(ready, O_CLOEXEC), 0);
        const pid_t child = StartChild([&] {
            const int copy = open("/tmp/game.sc", O_RDWR | O_CREAT | O_EXCL | O_CLOEXEC, 0600);
            const bool held = flock(copy, LOCK_EX) == 0 && write(ready[1], "1", 1) == 1;
            usleep(100'000);
            WriteFile("/run/released", "");
            return held ? 0 : 1;
        });
        char byte;
        EXPECT_EQ(read(ready[0], &byte, 1), 1);
        close(ready[0]);
        close(ready[1]);
        return child;
    }
};

TEST_F(CopyOfALiveChange, IsWaitedFor) {
    const pid_t holder = StartHolder();
    Programs programs;
    programs.Before("/bin/cp", [] { EXPECT_TRUE(std::filesystem::exists("/run/released")); });
    EXPECT_EQ(Set(), 0);
    EXPECT_EQ(StatusOfChild(holder), 0);
    EXPECT_THAT(ReadFile(kGameFile), testing::HasSubstr("7002/tcp"));
    EXPECT_THAT(Messages(), IsEmpty());
}

TEST_F(CopyOfALiveChange, IsLeftAloneForEver) {
    const int copy = open("/tmp/game.sc", O_RDWR | O_CREAT | O_EXCL | O_CLOEXEC, 0600);
    ASSERT_EQ(flock(copy, LOCK_EX), 0);
    {
        const FastClock clock;
        EXPECT_EQ(Set(), -1);
    }
    EXPECT_THAT(Messages(), ElementsAre(std::string("FAILED to copy from file=") + kGameFile +
                                        " to backup path=/tmp/game.sc"));
    EXPECT_THAT(InTmp(), ElementsAre("game.sc"));
    close(copy);
    EXPECT_EQ(Set(), 0);
}

TEST_F(CopyOfALiveChange, IsLeftAloneWhereItCannotBeOpened) {
    const int copy = open("/tmp/game.sc", O_RDWR | O_CREAT | O_EXCL | O_CLOEXEC, 0600);
    ASSERT_EQ(flock(copy, LOCK_EX), 0);
    Failing step("open", "/tmp/game.sc", EMFILE);
    step.Once();
    EXPECT_EQ(Set(), -1);
    struct stat status = {};
    EXPECT_EQ(fstat(copy, &status), 0);
    EXPECT_EQ(status.st_nlink, 1U);
    EXPECT_THAT(InTmp(), ElementsAre("game.sc"));
    close(copy);
    std::filesystem::remove("/tmp/game.sc");
}

TEST_F(CopyOfALiveChange, MayBeReplacedDuringTheRestart) {
    SetParam param = RemovalParam();
    param.nWriteMode = TAVO_WRITE_MODE_SET;
    param.nRestartMode = TAVO_RESTART_MODE_RESTART;
    bool nested = false;
    Programs programs;
    programs.Before(kFirewallTool, [&] {
        if (!nested) {
            nested = true;
            int result = -1;
            std::thread([&] { result = SetPorts(); }).join();
            EXPECT_EQ(result, 0);
        }
    });
    EXPECT_EQ(TLIBServiceConfPortsSet(&param, MakePorts("7003/tcp").get()), 0);
    EXPECT_TRUE(nested);
    EXPECT_THAT(ReadFile(kGameFile), testing::HasSubstr("7002/tcp"));
    EXPECT_THAT(Messages(), IsEmpty());
}

}  // namespace
}  // namespace tavo::test
