// Many processes install versions of one service file at the same time. Readers must always see
// exactly one of the versions.
#include <gtest/gtest.h>
#include <sys/wait.h>

#include <chrono>
#include <string>
#include <vector>

#include "change_under_fire.h"

namespace tavo::test {
namespace {

constexpr int kInstallers = 20;
constexpr int kRounds = 2;
constexpr int kServices = 40;

// A service file in which all services have the number of the version as their title.
std::string Version(int number) {
    std::string text;
    for (int i = 0; i < kServices; ++i) {
        text += "[service-" + std::to_string(i) + "]\ntitle=" + std::to_string(number) +
                "\ndesc=One of many\ndst.ports=\"" + std::to_string(20000 + i) + "/tcp\"\n\n";
    }
    return text;
}

std::string SourcePath(int number) {
    return "/packages/version-" + std::to_string(number);
}

pid_t StartInstaller(int number) {
    const pid_t child = fork();
    if (child != 0) {
        return child;
    }
    for (int i = 0; i < kRounds; ++i) {
        TAVO_SERVICE_CONF_PORT *conflicts = nullptr;
        const int result = TAVOServiceConfInstallBaseName(
            "game.sc", SourcePath(number).c_str(), TAVO_SERVICE_CONF_DIR_PACKAGE, &conflicts);
        TAVOServiceConfPortsFree(conflicts);
        if (result < 0) {
            _exit(1);
        }
    }
    _exit(0);
}

// The version that a reader sees; empty if it sees none, or a mixture.
std::string ReadVersion(const std::string &path) {
    TAVO_SERVICE_CONF *file = nullptr;
    if (TAVOServiceConfGet(path.c_str(), &file) != 0) {
        return "";
    }
    std::string version = file->pSections->strTitle.szText;
    int services = 0;
    for (const auto *section = file->pSections; section != nullptr; section = section->pNext) {
        ++services;
        version = version == section->strTitle.szText ? version : "";
    }
    TAVOServiceConfFree(file);
    return services == kServices ? version : "";
}

class ManyInstalls : public ChangeUnderFire {};

TEST_F(ManyInstalls, ShowAReaderOneWholeVersionEachTime) {
    for (int i = 0; i < kInstallers; ++i) {
        WriteFile(SourcePath(i), Version(i));
    }
    WriteFile(kGamePath, Version(0));
    for (int i = 0; i < kInstallers; ++i) {
        ASSERT_GT(StartInstaller(i), 0);
    }
    std::set<std::string> seen;
    for (int running = kInstallers; running > 0;) {
        const std::string version = ReadVersion(kGamePath);
        ASSERT_NE(version, "");
        seen.insert(version);
        int status = 0;
        const pid_t ended = waitpid(-1, &status, WNOHANG);
        ASSERT_NE(ended, -1);
        EXPECT_EQ(status, 0);
        running -= ended > 0 ? 1 : 0;
    }
    EXPECT_GT(seen.size(), 2u);
    const std::string last = ReadVersion(kGamePath);
    ASSERT_NE(last, "");
    EXPECT_EQ(GameContents(), Version(std::stoi(last)));
    EXPECT_THAT(Entries(std::string(kPackageServices) + "/tmp"), testing::ElementsAre());
}

}  // namespace
}  // namespace tavo::test
