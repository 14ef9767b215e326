// A leftover may be in use or needed again by the time it is removed.
#include "change/leftovers.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/file.h>
#include <unistd.h>

#include <filesystem>

#include "temporary_folder.h"

namespace tavo::tool {
namespace {

namespace fs = std::filesystem;

class RemoveLeftover : public testing::Test {
  protected:
    std::string Path(const std::string &name) const { return folder_.Path() + '/' + name; }

    std::string Make(const std::string &name, const std::string &text = "text") const {
        fs::create_directories(fs::path(Path(name)).parent_path());
        test::WriteFile(Path(name), text);
        return Path(name);
    }

  private:
    test::TemporaryFolder folder_;
};

TEST_F(RemoveLeftover, LeavesAFileThatIsLockedByNow) {
    const std::string path = Make("servicetool.update.notes.sc.old");
    const Leftover leftover = {LeftoverKind::kUpdatedFile, path, "notes.sc"};
    const int user = open(path.c_str(), O_RDONLY | O_CLOEXEC);
    ASSERT_EQ(flock(user, LOCK_EX), 0);
    EXPECT_EQ(tool::RemoveLeftover(leftover), "it is in use");
    EXPECT_TRUE(fs::exists(path));
    close(user);
    EXPECT_EQ(tool::RemoveLeftover(leftover), "");
    EXPECT_FALSE(fs::exists(path));
    EXPECT_EQ(tool::RemoveLeftover(leftover), "");
}

TEST_F(RemoveLeftover, LeavesWhatALinkLeadsTo) {
    const std::string target = Make("target");
    const std::string link = Path("servicetool.update.notes.sc.old");
    fs::create_symlink(target, link);
    for (const LeftoverKind kind : {LeftoverKind::kUpdatedFile, LeftoverKind::kPrivateFolder}) {
        EXPECT_EQ(tool::RemoveLeftover({kind, link, "notes.sc"}), "another file now has this name");
    }
    EXPECT_TRUE(fs::is_symlink(link));
    EXPECT_TRUE(fs::exists(target));
}

TEST_F(RemoveLeftover, LeavesTheFilesOfANewProcessOfThatId) {
    const pid_t pid = getpid();
    const std::string file = Make("servicetool.remove.notes.sc." + std::to_string(pid));
    const std::string store = Path("store.tmp." + std::to_string(pid));
    Make("store.tmp." + std::to_string(pid) + "/file");
    Make("store/file");
    const std::string another = "another file now has this name";
    EXPECT_EQ(tool::RemoveLeftover({LeftoverKind::kRemovedFile, file, "notes.sc", pid}), another);
    EXPECT_EQ(tool::RemoveLeftover({LeftoverKind::kStore, store, Path("store"), pid}), another);
    EXPECT_TRUE(fs::exists(file));
    EXPECT_TRUE(fs::exists(store + "/file"));
}

TEST_F(RemoveLeftover, LeavesACopyWhoseStoreIsLostByNow) {
    const Leftover leftover = {LeftoverKind::kStore, Path("copy"), Path("store")};
    Make("copy/file");
    Make("store/other");
    EXPECT_EQ(tool::RemoveLeftover(leftover), "it holds file, which " + Path("store") + " lacks");
    fs::remove_all(Path("store"));
    EXPECT_EQ(tool::RemoveLeftover(leftover), "it is the only copy of " + Path("store"));
    EXPECT_TRUE(fs::exists(Path("copy/file")));
    Make("store/file");
    EXPECT_EQ(tool::RemoveLeftover(leftover), "");
    EXPECT_FALSE(fs::exists(Path("copy")));
}

}  // namespace
}  // namespace tavo::tool
