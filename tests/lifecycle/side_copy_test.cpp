// Side copies with failing programs, concurrent writers and killed processes. No store is lost, and
// a change that cannot be undone is logged.
#include <signal.h>
#include <sys/wait.h>

#include <memory>

#include "service_files_test.h"

namespace tavo::test {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

constexpr char kChatFile[] = "/usr/local/etc/services.d/chat.sc";
constexpr char kChat[] = "[chat]\ntitle=Chat\ndesc=Chats\ndst.ports=5222/tcp\n";

class SideCopy : public ServiceFilesTest {
  protected:
    SideCopy() {
        MakeFolder(kPackageServices);
        WriteFile(kGameFile, kGame);
        WriteFile(kForwardingRules, "rules");
        before_ = AllStores();
    }

    static void ChangeStore() {
        std::filesystem::remove(kGameFile);
        WriteFile(std::string(kPackageServices) + "/new", "new");
    }

    int Backup() const { return TLIBServiceConfBackup(&param_); }
    int Restore() const { return TLIBServiceConfRestore(&param_); }
    int Delete() const { return TLIBServiceBackupConfDelete(&param_); }

    // Expects that a change is undone completely.
    void ExpectUndone() {
        ASSERT_EQ(Backup(), 0);
        ChangeStore();
        EXPECT_EQ(Restore(), 0);
        EXPECT_EQ(AllStores(), before_);
        EXPECT_THAT(Messages(), IsEmpty());
    }

    const SetParam param_ = RemovalParam();
    const std::string copy_ = SideCopyOf(kPackageServices);
    const std::string aside_ =
        std::string(kPackageServices) + ".unrestored." + std::to_string(getpid()) + ".1";
    const std::string kept_ =
        copy_ + " may be the only whole copy of " + kPackageServices + ", kept as " + aside_;
    Lines before_;
};

// ---- Copying ----

TEST_F(SideCopy, IsMadeAgainUntilItIsWhole) {
    WriteScript("/bin/cp",
                "echo >> /run/copies\n"
                "(($(wc -l < /run/copies) < 4)) && mkdir \"${@: -1}\" && exit 1\n"
                "exec /usr/bin/cp \"$@\"");
    ExpectUndone();
    EXPECT_EQ(ReadFile("/run/copies"), "\n\n\n\n");
}

TEST_F(SideCopy, OfAFileThatCannotBeRemovedByRmIsNeverTrusted) {
    SetParam param = param_;
    param.nCheckFlags = TAVO_PORT_CHECK_PORT_FORWARD;
    WriteFile(SideCopyOf(kForwardingRules), "stale");
    Programs programs;
    programs.Answer("/bin/rm", 1);
    programs.Answer("/bin/cp", 1);
    EXPECT_EQ(TLIBServiceConfBackup(&param), 0);
    EXPECT_FALSE(std::filesystem::exists(SideCopyOf(kForwardingRules)));
    EXPECT_EQ(TLIBServiceConfRestore(&param), 0);
    EXPECT_EQ(ReadFile(kForwardingRules), "rules");
}

TEST_F(SideCopy, IsNotLeftOutWhereTheStoreCannotBeLookedAt) {
    const Failing look("stat", kPackageServices, EIO);
    EXPECT_EQ(Backup(), -1);
    EXPECT_THAT(Messages(), ElementsAre(std::string("Failed to look at ") + kPackageServices +
                                        ": Input/output error[0x0900 service_conf_common.cpp:N]"));
}

TEST_F(SideCopy, IsNotMadeOfALinkThatCannotBeLookedAt) {
    std::filesystem::rename(kPackageServices, "/packages/services");
    std::filesystem::create_symlink("/packages/services", kPackageServices);
    const Lines looked_at = {std::string("Failed to look at ") + kPackageServices +
                             ": Input/output error[0x0900 service_conf_common.cpp:N]"};
    {
        const Failing look("lstat", kPackageServices, EIO);
        EXPECT_EQ(Backup(), -1);
        EXPECT_EQ(Messages(), looked_at);
    }
    EXPECT_FALSE(std::filesystem::exists(copy_));
    ASSERT_EQ(Backup(), 0);
    StartAnew();
    {
        const Failing look("lstat", kPackageServices, EIO);
        EXPECT_EQ(Restore(), -1);
        EXPECT_EQ(Messages(), looked_at);
    }
    EXPECT_TRUE(std::filesystem::is_symlink(kPackageServices));
    EXPECT_EQ(Backup(), 0);
    EXPECT_EQ(ReadFile(aside_ + "/game.sc"), kGame) << "which was not put back";
    EXPECT_EQ(Delete(), 0);
}

TEST_F(SideCopy, HasTheModesOfTheStoreWhateverTheUmask) {
    std::filesystem::permissions(kGameFile, std::filesystem::perms{0664});
    std::filesystem::create_symlink("game.sc", std::string(kPackageServices) + "/link");
    before_ = AllStores();
    const mode_t umask_before = umask(077);
    ExpectUndone();
    umask(umask_before);
    EXPECT_EQ(ModeOf(kPackageServices), mode_t{S_IFDIR | 0755});
}

// ---- Concurrent writers ----

// A process that changes the file chat.sc repeatedly.
class ChatWriter {
  public:
    ChatWriter() : child_(fork()) {
        if (child_ == 0) {
            for (unsigned int port = 6000;; port = port < 6999 ? port + 1 : 6000) {
                TLIBCFileSetSectionValue(kChatFile, "chat", "dst.ports",
                                         std::to_string(port).c_str());
            }
        }
    }
    ~ChatWriter() {
        kill(child_, SIGKILL);
        EXPECT_EQ(waitpid(child_, nullptr, 0), child_);
    }
    ChatWriter(const ChatWriter &) = delete;
    ChatWriter &operator=(const ChatWriter &) = delete;

  private:
    pid_t child_;
};

TEST_F(SideCopy, IsMadeEachTimeWhileAnotherFileIsWritten) {
    WriteFile(kChatFile, kChat);
    const ChatWriter writer;
    for (int i = 0; i < 300; ++i) {
        ASSERT_EQ(Backup(), 0);
        ASSERT_EQ(Entries(copy_), (Lines{"chat.sc", "file", "game.sc", "sub"})) << i;
        ASSERT_EQ(Delete(), 0);
    }
    EXPECT_THAT(Messages(), IsEmpty());
}

TEST_F(SideCopy, UndoesEachRemovalWhileAnotherFileIsWritten) {
    WriteFile(kChatFile, kChat);
    std::filesystem::remove(kFirewallTool);
    SetParam param = param_;
    param.nRestartMode = TAVO_RESTART_MODE_RESTART;
    const ChatWriter writer;
    for (int i = 0; i < 200; ++i) {
        ASSERT_EQ(TLIBServiceConfSectionRemove(&param), -1);
        ASSERT_EQ(ReadFile(kGameFile), kGame) << i;
        ASSERT_TRUE(std::filesystem::exists(kChatFile)) << i;
        ASSERT_THAT(Entries("/usr/local/etc"), ElementsAre("services.d")) << i;
    }
}

// ---- Putting back ----

TEST_F(SideCopy, IsPutBackThoughAWriterKeptTheFolder) {
    WriteScript("/bin/rm",
                "/usr/bin/rm \"$@\"\n"
                "[[ ${@: -1} != */services.d || -e /run/once ]] && exit 0\n"
                "touch /run/once\n"
                "mkdir -p \"${@: -1}/.tavo-write\"\n"
                "exit 1");
    ExpectUndone();
}

TEST_F(SideCopy, IsPutBackThoughRmNeverRemovesTheFolder) {
    WriteScript("/bin/rm", "[[ ${@: -1} == */services.d ]] && exit 1\nexec /usr/bin/rm \"$@\"");
    ExpectUndone();
}

TEST_F(SideCopy, IsPutBackThoughMvFails) {
    Programs programs;
    programs.Answer("/bin/mv", 1);
    ExpectUndone();
    EXPECT_THAT(programs.Run(),
                ElementsAre("/bin/cp -rf " + std::string(kPackageServices) + " " + copy_,
                            std::string("/bin/rm -rf ") + kPackageServices,
                            "/bin/mv -f " + copy_ + " " + kPackageServices));
}

TEST_F(SideCopy, IsNotLostWhereMvCannotBeRun) {
    ASSERT_EQ(Backup(), 0);
    ChangeStore();
    std::filesystem::remove("/bin/mv");
    EXPECT_EQ(Restore(), -1);
    EXPECT_EQ(AllStores(), before_);
    EXPECT_THAT(Messages(), ElementsAre("Failed to mv -f " + copy_ + " " + kPackageServices +
                                        "[0x0700 exec.cpp:N]"));
    EXPECT_EQ(ErrorState(), "0x700 exec.cpp");
}

TEST_F(SideCopy, IsNeverPutIntoAFolderInPlaceOfTheStore) {
    WriteScript("/bin/mv",
                "[[ -e /run/once ]] || mkdir \"${@: -1}\"\n"
                "touch /run/once\n"
                "exec /usr/bin/mv \"$@\"");
    ExpectUndone();
}

// Behaves like mv between two mounts, where rename fails.
constexpr char kCopiesAndRemoves[] =
    "/usr/bin/cp -rp \"${@: -2:1}\" \"${@: -1}\"\n"
    "/usr/bin/rm -r \"${@: -2:1}\"";

TEST_F(SideCopy, IsPutBackByAnMvThatCopies) {
    WriteScript("/bin/mv", kCopiesAndRemoves);
    ExpectUndone();
}

TEST_F(SideCopy, OfAFileIsPutBackByAnMvThatCopies) {
    SetParam param = param_;
    param.nCheckFlags = TAVO_PORT_CHECK_PORT_FORWARD;
    WriteScript("/bin/mv", kCopiesAndRemoves);
    ASSERT_EQ(TLIBServiceConfBackup(&param), 0);
    WriteFile(kForwardingRules, "other rules");
    EXPECT_EQ(TLIBServiceConfRestore(&param), 0);
    EXPECT_EQ(AllStores(), before_);
    EXPECT_THAT(Messages(), IsEmpty());
}

TEST_F(SideCopy, IsNotLostWhereAnMvThatCopiesRemovesAPartOfIt) {
    WriteScript("/bin/mv",
                "/usr/bin/cp -rp \"${@: -2:1}\" \"${@: -1}\"\n"
                "/usr/bin/rm \"${@: -2:1}/game.sc\"\n"
                "exit 1");
    ASSERT_EQ(Backup(), 0);
    ChangeStore();
    EXPECT_EQ(Restore(), -1);
    EXPECT_EQ(ErrorState(), "0x2800 service_conf_common.cpp");
    EXPECT_EQ(ReadFile(kGameFile), kGame);
    EXPECT_EQ(Entries(kPackageServices), (Lines{"file", "game.sc", "sub"}));
}

TEST_F(SideCopy, IsNotLostWhereItCannotBeLookedAtAfterwards) {
    ASSERT_EQ(Backup(), 0);
    ChangeStore();
    std::unique_ptr<Failing> look;
    {
        Programs programs;
        programs.Before("/bin/mv",
                        [&] { look = std::make_unique<Failing>("lstat", kPackageServices, EIO); });
        EXPECT_EQ(Restore(), -1);
    }
    look.reset();
    EXPECT_EQ(AllStores(), before_);
}

class UnrestoredCopy : public SideCopy {
  protected:
    // Makes a restore fail. Another folder is then in the place of the store.
    void FailToRestore() {
        ASSERT_EQ(Backup(), 0);
        ChangeStore();
        WriteScript("/bin/mv", "mkdir -p \"${@: -1}/other\"\nexit 1");
        EXPECT_EQ(Restore(), -1);
        EXPECT_EQ(ErrorState(), "0x2800 service_conf_common.cpp");
        EXPECT_THAT(Messages(),
                    ElementsAre("Failed to put " + copy_ + " in the place of " + kPackageServices +
                                "[0x2800 service_conf_common.cpp:N]"));
        EXPECT_EQ(ReadFile(copy_ + "/game.sc"), kGame);
        StartAnew();
    }
};

TEST_F(UnrestoredCopy, IsKeptByTheNextBackup) {
    FailToRestore();
    EXPECT_EQ(Backup(), 0);
    EXPECT_THAT(Messages(), ElementsAre(kept_));
    EXPECT_EQ(ReadFile(aside_ + "/game.sc"), kGame);
    EXPECT_THAT(Entries(copy_), ElementsAre("other"));
    EXPECT_EQ(Delete(), 0);
    EXPECT_THAT(Entries("/usr/local/etc"),
                ElementsAre("services.d", aside_.substr(aside_.rfind('/') + 1)));
}

TEST_F(UnrestoredCopy, IsKeptByADeletion) {
    FailToRestore();
    EXPECT_EQ(Delete(), 0);
    EXPECT_THAT(Messages(), ElementsAre(kept_));
    EXPECT_EQ(ReadFile(aside_ + "/game.sc"), kGame);
    EXPECT_FALSE(std::filesystem::exists(copy_));
}

TEST_F(UnrestoredCopy, IsKeptByADeletionAfterOneThatFailed) {
    FailToRestore();
    {
        const Failing name("rename", copy_, EIO);
        EXPECT_EQ(Delete(), -1);
    }
    EXPECT_EQ(Delete(), 0);
    EXPECT_EQ(ReadFile(aside_ + "/game.sc"), kGame);
}

TEST_F(UnrestoredCopy, IsPutBackByTheNextRestore) {
    FailToRestore();
    WriteScript("/bin/mv", "exec /usr/bin/mv \"$@\"");
    EXPECT_EQ(Restore(), 0);
    EXPECT_EQ(AllStores(), before_);
    ExpectUndone();
}

TEST_F(UnrestoredCopy, OfAProcessThatDiedIsKept) {
    for (const bool missing : {true, false}) {
        StartAnew();
        std::filesystem::rename(kPackageServices, copy_);
        if (!missing) {
            std::filesystem::create_directories(std::string(kPackageServices) + "/.tavo-write");
        }
        EXPECT_EQ(Backup(), 0);
        EXPECT_THAT(Messages(), ElementsAre(kept_));
        EXPECT_EQ(ReadFile(aside_ + "/game.sc"), kGame);
        EXPECT_EQ(Delete(), 0);
        std::filesystem::remove_all(kPackageServices);
        std::filesystem::rename(aside_, kPackageServices);
        EXPECT_EQ(AllStores(), before_);
    }
}

TEST_F(UnrestoredCopy, OfAProcessThatDiedIsKeptWhereTheStoreCannotBeLookedAt) {
    std::filesystem::rename(kPackageServices, copy_);
    const Failing look("stat", kPackageServices, EIO);
    EXPECT_EQ(Backup(), -1);
    EXPECT_EQ(ReadFile(aside_ + "/game.sc"), kGame);
    EXPECT_THAT(Messages(),
                ElementsAre(kept_, std::string("Failed to look at ") + kPackageServices +
                                       ": Input/output error"
                                       "[0x0900 service_conf_common.cpp:N]"));
}

TEST_F(UnrestoredCopy, IsNotRenamedWhereItIsUnknownWhetherTheNameIsFree) {
    std::filesystem::rename(kPackageServices, copy_);
    const Failing look("lstat", aside_, EIO);
    EXPECT_EQ(Backup(), -1);
    EXPECT_EQ(ReadFile(copy_ + "/game.sc"), kGame);
    EXPECT_THAT(Messages(), ElementsAre("Failed to look at " + aside_ +
                                        ": Input/output error[0x0900 service_conf_common.cpp:N]"));
}

TEST_F(UnrestoredCopy, OfAStoreThatIsWholeIsNotKept) {
    std::filesystem::create_directories(copy_ + "/stale");
    ExpectUndone();
}

TEST_F(UnrestoredCopy, IsNeitherKeptNorReplacedWhereItCannotBeRenamed) {
    std::filesystem::rename(kPackageServices, copy_);
    const Failing name("rename", copy_, EIO);
    EXPECT_EQ(Backup(), -1);
    EXPECT_EQ(ReadFile(copy_ + "/game.sc"), kGame);
    EXPECT_THAT(Messages(), ElementsAre("Failed to rename " + copy_ + " to " + aside_ +
                                        ": Input/output error[0x2800 service_conf_common.cpp:N]"));
}

}  // namespace
}  // namespace tavo::test
