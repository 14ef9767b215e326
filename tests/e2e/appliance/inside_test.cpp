// Tests of the appliance from inside: what a program finds at the fixed paths.
#include <dlfcn.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <syslog.h>
#include <unistd.h>

#include <cstdarg>
#include <filesystem>
#include <fstream>
#include <string>

#include "appliance.h"
#include "run_program.h"
#include "temporary_folder.h"

namespace {

namespace fs = std::filesystem;
using tavo::test::ReadFile;
using tavo::test::RunProgram;
using tavo::test::SystemLogWith;
using tavo::test::WriteFile;
using testing::HasSubstr;

TEST(FixedPaths, AreTheTemplates) {
    EXPECT_EQ(ReadFile("/etc/hostname"), "appliance\n");
    EXPECT_THAT(ReadFile("/etc.defaults/tavoinfo.conf"), HasSubstr("unique=\"tavo_n4\"\n"));
    EXPECT_TRUE(fs::exists("/usr/tavo/etc/services.d/web-station.sc"));
    EXPECT_TRUE(fs::exists("/usr/local/etc/services.d/chat.sc"));
}

TEST(FixedPaths, CanBeWritten) {
    for (const char *folder :
         {"/", "/etc", "/etc.defaults", "/usr/tavo/etc/services.d", "/usr/local/etc/services.d",
          "/usr/tavo/bin", "/usr/tavo/lib/plugins/port_config", "/tmp", "/run", "/var/log",
          "/root"}) {
        WriteFile(std::string(folder) + "/new", "text");
        EXPECT_EQ(ReadFile(std::string(folder) + "/new"), "text") << folder;
    }
}

TEST(FixedPaths, HaveTheirModes) {
    const auto mode = [](const char *path) {
        struct stat status = {};
        EXPECT_EQ(lstat(path, &status), 0) << path;
        return status.st_mode & 07777;
    };
    EXPECT_EQ(mode("/"), 0755u);
    EXPECT_EQ(mode("/tmp"), 01777u);
    EXPECT_EQ(mode("/root"), 0700u);
    EXPECT_EQ(mode("/usr/tavo/etc/services.d"), 0755u);
    EXPECT_EQ(mode("/etc/tavoinfo.conf"), 0644u);
    EXPECT_EQ(mode("/usr/tavo/bin/tavofirewall"), 0777u);
    EXPECT_EQ(mode("/usr/tavo/lib/stand-ins/record"), 0755u);
}

TEST(Programs, AreTheHostsUnderBothNames) {
    for (const char *name : {"sh", "cp", "mv", "rm", "mkdir", "cat", "bash"}) {
        const std::string in_bin = std::string("/bin/") + name;
        EXPECT_TRUE(fs::equivalent(in_bin, std::string("/usr/bin/") + name)) << name;
        EXPECT_EQ(access(in_bin.c_str(), X_OK), 0) << name;
    }
}

TEST(Programs, DoTheirWork) {
    WriteFile("/tmp/from", "text");
    EXPECT_EQ(RunProgram({"/bin/mkdir", "-p", "/tmp/a/b"}).status, 0);
    EXPECT_EQ(RunProgram({"/bin/cp", "-f", "/tmp/from", "/tmp/a/b/copy"}).status, 0);
    EXPECT_EQ(RunProgram({"/bin/mv", "/tmp/a/b/copy", "/tmp/moved"}).status, 0);
    EXPECT_EQ(RunProgram({"/bin/rm", "-rf", "/tmp/a"}).status, 0);
    EXPECT_EQ(ReadFile("/tmp/moved"), "text");
    EXPECT_FALSE(fs::exists("/tmp/a"));
    // A symbolic link into /etc/alternatives.
    EXPECT_EQ(RunProgram({"awk", "BEGIN { print 6 * 7 }"}).out, "42\n");
}

TEST(Programs, FindTheNamesOfUsersAndHosts) {
    EXPECT_EQ(RunProgram({"id", "-un"}).out, "root\n");
    EXPECT_THAT(RunProgram({"getent", "hosts", "appliance"}).out, HasSubstr("127.0.0.1"));
}

TEST(Programs, LeaveNoLinkOfBinDangling) {
    for (const fs::directory_entry &entry : fs::directory_iterator("/bin")) {
        EXPECT_TRUE(fs::exists(entry.path())) << entry.path();
    }
}

TEST(Processes, AreOnlyTheAppliances) {
    int processes = 0;
    for (const fs::directory_entry &entry : fs::directory_iterator("/proc")) {
        const std::string name = entry.path().filename();
        processes += name.find_first_not_of("0123456789") == std::string::npos ? 1 : 0;
    }
    EXPECT_EQ(processes, 2);
}

TEST(Devices, AreThere) {
    for (const char *device : {"/dev/null", "/dev/zero", "/dev/full", "/dev/urandom", "/dev/tty"}) {
        EXPECT_TRUE(fs::is_character_file(device)) << device;
    }
}

// The test support interposes syslog; this calls libc's own function.
void Log(int priority, const char *format, ...) {
    va_list arguments;
    va_start(arguments, format);
    reinterpret_cast<decltype(&vsyslog)>(dlsym(RTLD_NEXT, "vsyslog"))(priority, format, arguments);
    va_end(arguments);
}

TEST(SystemLog, HoldsALineForEachMessage) {
    openlog("tester", 0, LOG_USER);
    Log(LOG_ERR, "first");
    Log(LOG_LOCAL3 | LOG_DEBUG, "two\nlines");
    Log(LOG_AUTH | LOG_INFO, "last");
    const std::string messages = SystemLogWith("last\n");
    EXPECT_THAT(messages, testing::MatchesRegex("user\\.err [^\n]* tester: first\n"
                                                "local3\\.debug [^\n]* tester: two#012lines\n"
                                                "auth\\.info [^\n]* tester: last\n"));
}

TEST(SystemLog, TakesALongMessageWhole) {
    const std::string text(100000, 'x');
    Log(LOG_ERR, "%s", text.c_str());
    EXPECT_THAT(SystemLogWith("\n"), HasSubstr(text + "\n"));
}

}  // namespace
