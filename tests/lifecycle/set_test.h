// Shared by the tests of writing a section and of setting its ports, which use the same record and
// the same steps.
#ifndef TAVO_TESTS_LIFECYCLE_SET_TEST_H
#define TAVO_TESTS_LIFECYCLE_SET_TEST_H

#include <cerrno>
#include <functional>

#include "lifecycle_test.h"
#include "stand_ins.h"

namespace tavo::test {

// An invalid record, with its invalid field as "FIELD VALUE".
struct RefusedParam {
    std::string what;
    TAVO_SERVICE_CONF_SET_PARAM param;
};

// Copies of `good` with one invalid field each: numbers that are too low or too high, and invalid
// names.
inline std::vector<RefusedParam> RefusedParams(const TAVO_SERVICE_CONF_SET_PARAM &good) {
    constexpr struct {
        const char *name;
        uint32_t TAVO_SERVICE_CONF_SET_PARAM::*field;
        uint32_t highest;
    } kNumbers[] = {
        {"nRestartMode", &TAVO_SERVICE_CONF_SET_PARAM::nRestartMode, 2},
        {"nRestartFlags", &TAVO_SERVICE_CONF_SET_PARAM::nRestartFlags, 31},
        {"nWriteMode", &TAVO_SERVICE_CONF_SET_PARAM::nWriteMode, 3},
        {"nCheckFlags", &TAVO_SERVICE_CONF_SET_PARAM::nCheckFlags, 31},
        {"nLocation", &TAVO_SERVICE_CONF_SET_PARAM::nLocation, 3},
    };
    std::vector<RefusedParam> refused;
    for (const auto &[name, field, highest] : kNumbers) {
        for (const uint32_t value : {0U, highest + 1, 0x80000001U}) {
            refused.push_back({std::string(name) + " " + std::to_string(value), good});
            refused.back().param.*field = value;
        }
    }
    for (const char *name : {"", "..", "../web.sc", "folder/..", "folder/../web.sc"}) {
        refused.push_back({"szFileName " + std::string(name), good});
        Fill(refused.back().param.szFileName, name);
    }
    refused.push_back({"szSectionName", good});
    Fill(refused.back().param.szSectionName, "");
    return refused;
}

// A service file, its copy for the router tool, and the notified listeners.
class SetTest : public LifecycleTest {
  protected:
    static constexpr char kFile[] = "/usr/tavo/etc/services.d/web.sc";
    static constexpr char kPackageFile[] = "/usr/local/etc/services.d/web.sc";
    static constexpr char kCopy[] = "/tmp/web.sc";
    static constexpr char kCopied[] = "/bin/cp -f /usr/tavo/etc/services.d/web.sc /tmp/web.sc";
    static constexpr char kRouterTold[] =
        "/usr/tavo/sbin/tavoroutertool --update /tmp/web.sc /usr/tavo/etc/services.d/web.sc";
    static constexpr char kCopyFailed[] =
        "FAILED to copy from file=/usr/tavo/etc/services.d/web.sc to backup path=/tmp/web.sc";

    // The operation under test.
    virtual int Set() = 0;

    // Expects a failure before the change: the file is unchanged, no listener is notified, and only
    // these lines are logged.
    void ExpectUnchanged(const std::vector<std::string> &messages) {
        const FileState before = StateOf(kFile);
        EXPECT_EQ(Set(), -1);
        EXPECT_EQ(StateOf(kFile), before);
        EXPECT_EQ(Messages(), messages);
        EXPECT_THAT(Calls(), testing::IsEmpty());
    }

    // Expects that an I/O error is not taken for a present or a missing file: the operation fails
    // and runs no programs.
    void ExpectUnknownFile(const std::string &source) {
        log_.Clear();
        TLIBCErrSetEx(0, nullptr, 0);
        const Programs programs;
        const Failing look("stat", kFile, EIO);
        EXPECT_EQ(Set(), -1);
        EXPECT_EQ(ErrorState(), "0x900 " + source);
        EXPECT_THAT(Messages(),
                    testing::ElementsAre("Failed to look at /usr/tavo/etc/services.d/web.sc: "
                                         "Input/output error[0x0900 " +
                                         source + ":N]"));
        EXPECT_EQ(SourceOf("Failed to look at"), source);
        EXPECT_THAT(programs.Run(), testing::IsEmpty());
    }

    // The source file in the log line that contains this text.
    std::string SourceOf(const std::string &text) const {
        for (const CapturedLog::Line &line : log_.Lines()) {
            if (line.text.find(text) != std::string::npos) {
                return line.text.substr(0, line.text.find(':'));
            }
        }
        return "no line with " + text;
    }

    // Expects that the log lines of shared steps show the source file of the operation.
    void ExpectLinesToName(const std::string &source) {
        param_.nCheckFlags |= TAVO_PORT_CHECK_PORT_FORWARD;
        param_.nRestartMode = TAVO_RESTART_MODE_RESTART;
        SetExitStatus("tavoroutertool", "3");
        std::filesystem::remove(kFirewallTool);
        EXPECT_EQ(Set(), 0);
        EXPECT_EQ(SourceOf("--udpate"), source);
        EXPECT_EQ(SourceOf("Restart service fail"), source);
        Programs programs;
        programs.Answer("/bin/cp", 1);
        EXPECT_EQ(Set(), -1);
        EXPECT_EQ(SourceOf(kCopyFailed), source);
    }

    // Expects a failure if a non-empty folder has the name of the copy. The folder remains.
    void ExpectFullFolderInTheWay() {
        std::filesystem::create_directories(std::string(kCopy) + "/sub");
        in_tmp_ = {"web.sc"};
        ExpectUnchanged(
            {"Folder /tmp/web.sc has the name of a copy and is not empty", kCopyFailed});
        EXPECT_EQ(TLIBCErrGet(), 0U);
        EXPECT_THAT(Entries(kCopy), testing::ElementsAre("sub"));
    }

    // Expects that an empty folder, a pipe or a socket with the name of the copy is replaced.
    void ExpectPlantsRemoved() {
        ASSERT_EQ(mkdir(kCopy, 0777), 0);
        ExpectOwnCopy();
        ASSERT_EQ(mkfifo(kCopy, 0666), 0);
        ExpectOwnCopy();
        MakeSocket(kCopy);
        ExpectOwnCopy();
        EXPECT_THAT(InTmp(), testing::ElementsAre());
    }

    // Expects that the copy is a new regular file that only its owner can access, whatever had its
    // name before.
    void ExpectOwnCopy() {
        Programs programs;
        mode_t mode = 0;
        programs.Before("/bin/cp", [&] { mode = StateOf(kCopy).mode; });
        std::string copy;
        programs.Before(kRouterTool, [&] {
            EXPECT_EQ(StateOf(kCopy).mode, mode_t{S_IFREG | 0600});
            copy = ReadFile(kCopy);
        });
        const std::string before = ReadFile(kFile);
        param_.nCheckFlags |= TAVO_PORT_CHECK_PORT_FORWARD;
        EXPECT_EQ(Set(), 0);
        EXPECT_EQ(mode, mode_t{S_IFREG | 0600});
        EXPECT_EQ(copy, before);
        EXPECT_THAT(Messages(), testing::IsEmpty());
    }

    TAVO_SERVICE_CONF_SET_PARAM param_ = Param("web.sc", "web");
};

}  // namespace tavo::test

#endif
