// The process of a change of a service file is killed at each step. The file must be completely the
// old one or the new one, and nothing may prevent the same change from being made again.
#include <gtest/gtest.h>

#include <filesystem>
#include <string>
#include <string_view>
#include <vector>

#include "change_under_fire.h"

namespace tavo::test {
namespace {

class KilledChange : public ChangeUnderFire {
  protected:
    bool IsOldOrNew(const Contents &contents) const {
        return contents == GetParam().before || contents == after_ || IsHalfDone(contents);
    }
};

TEST_P(KilledChange, LeavesTheOldFileOrTheNewOne) {
    int old_files = 0;
    int new_files = 0;
    for (const SystemCall &call : Rehearse(GetParam())) {
        if (!CanChangeAFile(call)) {
            continue;  // it is killed at the next one that can change a file
        }
        SCOPED_TRACE("killed at " + call.line);
        Prepare(GetParam().before);
        EXPECT_FALSE(Make(GetParam().change, call, "SIGKILL").result);
        const Contents contents = GameContents();
        EXPECT_TRUE(IsOldOrNew(contents));
        old_files += contents == GetParam().before ? 1 : 0;
        new_files += contents == after_ ? 1 : 0;
        ExpectAllElseUntouched();
        ExpectNextChangeSucceeds(GetParam().change);
    }
    EXPECT_GT(old_files, 0);
    EXPECT_EQ(new_files > 0, GetParam().change != "install") << "it takes the name last of all";
    EXPECT_GT(old_files + new_files, 7);
}

INSTANTIATE_TEST_SUITE_P(Changes, KilledChange, testing::ValuesIn(Scenes()),
                         [](const auto &scene) { return scene.param.name; });

// Replaces cp with a script that copies half of a file and kills its parent process.
void MakeCopiesDeadly() {
    WriteScript("/bin/cp",
                "[[ -d ${@: -2:1} ]] && mkdir ${@: -1} || head -c 150000 ${@: -2:1} > ${@: -1}\n"
                "kill -KILL $PPID");
}

void MakeCopiesWhole() {
    std::filesystem::remove("/bin/cp");
    std::filesystem::create_symlink("/usr/bin/cp", "/bin/cp");
}

class KilledCopy : public ChangeUnderFire {};

TEST_P(KilledCopy, LeavesTheOldFile) {
    Rehearse(GetParam());
    Prepare(GetParam().before);
    MakeCopiesDeadly();
    EXPECT_FALSE(Make(GetParam().change).result);
    const Contents contents = GameContents();
    EXPECT_TRUE(contents == GetParam().before || IsHalfDone(contents));
    EXPECT_THAT(Lying(), testing::Not(testing::IsEmpty()));
    ExpectAllElseUntouched();
    MakeCopiesWhole();
    ExpectNextChangeSucceeds(GetParam().change);
}

INSTANTIATE_TEST_SUITE_P(Changes, KilledCopy, testing::ValuesIn(Scenes()),
                         [](const auto &scene) { return scene.param.name; });

class KilledRollback : public ChangeUnderFire {};

TEST_F(KilledRollback, LosesNoFile) {
    const Contents old = GameFile("7001/tcp");
    int saved = 0;
    for (const SystemCall &call : RehearseRollback(old)) {
        if (!CanChangeAFile(call)) {
            continue;
        }
        SCOPED_TRACE("killed at " + call.line);
        Prepare(old);
        EXPECT_FALSE(Make("remove-section", call, "SIGKILL").result);
        saved += GameContents() == old ? 0 : 1;
        EXPECT_EQ(GameContents() == old ? old : SavedContents("game.sc"), old);
        const bool chat_stands = std::filesystem::exists(kChatPath);
        EXPECT_EQ(chat_stands ? ReadFile(kChatPath) : SavedContents("chat.sc"), kChat);
    }
    EXPECT_GT(saved, 0);
}

}  // namespace
}  // namespace tavo::test
