// A private appliance with free ports and no notifications yet, and the effects of a change: files,
// and what the listeners received.
#ifndef TAVO_TESTS_SERVICETOOL_CHANGE_WORLD_H
#define TAVO_TESTS_SERVICETOOL_CHANGE_WORLD_H

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/file.h>
#include <sys/mount.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <csignal>
#include <filesystem>
#include <string>
#include <utility>
#include <vector>

#include "json_value.h"
#include "port_world.h"
#include "require_appliance.h"
#include "servicetool_run.h"

namespace tavo::test {

inline const std::string kHome = "/home/admin/";  // where the tests run servicetool
inline const std::string kCalls = "/run/calls/";

// The calls for the relay daemon after a change: check whether it runs, reload it.
inline const std::string kRelayCalls =
    "systemctl is-active --quiet tavorelayd\nsystemctl reload tavorelayd\n";

// The service file that most tests change, and the text that most of them give it.
inline const std::string kPath = kPackage + "notes.sc";
inline const std::string kText = Section("notes", "8765/tcp");

inline const std::string kPlan = "will notify: plugins, relay daemon\n";
inline const std::string kNotified = "notified: plugins, relay daemon\n";

// The listeners of a change of a section, and those that need no router.
inline const std::string kSectionListeners = "router tool, firewall, relay daemon\n";
inline const std::string kFirewallAndRelay = "firewall, relay daemon\n";

inline const std::string kFirewallTool = "/usr/tavo/bin/tavofirewall";

inline const std::string kDryRun = "dry run: nothing changed, no listener notified\n";

// The calls that the named stand-in received; "all" returns the calls of all stand-ins in order.
inline std::string Calls(const std::string &name = "all") {
    return RecordOfCalls(name);
}

// A text as the stand-ins record it, quoted for a shell.
inline std::string InShell(std::string text) {
    for (std::size_t at = 0; (at = text.find('\n', at)) != std::string::npos; at += 2) {
        text.replace(at, 1, "\\n");
    }
    return text;
}

class ChangeWorld : public ServiceFolders {
  protected:
    void SetUp() override {
        for (const std::string &folder : {kHome, kCalls, std::string("/run/exit-status/")}) {
            for (const std::string &name : Entries(folder)) {
                std::filesystem::remove_all(folder + name);
            }
        }
        std::filesystem::current_path(kHome);
        ActivateRelayDaemon();
    }

    // No command may leave a copy after it ends.
    void TearDown() override {
        EXPECT_EQ(InTmp(), std::vector<std::string>{});
        for (const std::string &folder : {kSystem, kPackage}) {
            EXPECT_EQ(Entries(folder + "tmp"), left_behind_);
        }
    }

    std::vector<std::string> left_behind_;  // entries that must remain
};

// The parent folders of the service folders.
inline const std::string kSystemParent = "/usr/tavo/etc";
inline const std::string kPackageParent = "/usr/local/etc";

// The lock that servicetool holds while it makes a change.
inline const std::string kLockFolder = "/run/tavoserviceconf";
inline const std::string kLockFile = kLockFolder + "/servicetool.lock";

// Holds the lock like another servicetool that makes a change.
class Lock {
  public:
    Lock() {
        std::filesystem::create_directory(kLockFolder);
        file_ = open(kLockFile.c_str(), O_RDWR | O_CREAT | O_CLOEXEC, 0600);
        EXPECT_EQ(flock(file_, LOCK_EX | LOCK_NB), 0);
    }
    ~Lock() { close(file_); }
    Lock(const Lock &) = delete;
    Lock &operator=(const Lock &) = delete;

  private:
    int file_ = -1;
};

// A process of another user that locks everything in these folders that it can open.
class LockingUser {
  public:
    explicit LockingUser(const std::vector<std::string> &folders) {
        int ready[2];
        EXPECT_EQ(pipe2(ready, O_CLOEXEC), 0);
        pid_ = fork();
        if (pid_ == 0) {
            if (setgid(kUser) == 0 && setuid(kUser) == 0) {
                const char locked = LockAll(folders) ? 1 : 0;
                [[maybe_unused]] const auto written = write(ready[1], &locked, 1);
                pause();
            }
            _exit(1);
        }
        close(ready[1]);
        char locked = 0;
        EXPECT_EQ(read(ready[0], &locked, 1), 1);
        EXPECT_EQ(locked, 1) << "there is nothing that he can lock";
        close(ready[0]);
    }
    ~LockingUser() {
        kill(pid_, SIGKILL);
        waitpid(pid_, nullptr, 0);
    }
    LockingUser(const LockingUser &) = delete;
    LockingUser &operator=(const LockingUser &) = delete;

  private:
    static constexpr uid_t kUser = 65534;

    static bool LockAll(const std::vector<std::string> &folders) {
        bool any = false;
        for (const std::string &folder : folders) {
            any = LockOne(folder) || any;
            for (const std::string &name : Entries(folder)) {
                LockOne(folder + '/' + name);
            }
        }
        return any;
    }

    static bool LockOne(const std::string &path) {
        const int descriptor = open(path.c_str(), O_RDONLY | O_NONBLOCK);
        return descriptor >= 0 && flock(descriptor, LOCK_EX | LOCK_NB) == 0;
    }

    pid_t pid_ = -1;
};

// Removes a program, or replaces it with a script.
class ReplacedTool {
  public:
    explicit ReplacedTool(std::string path, const std::string &script = "")
        : path_(std::move(path)) {
        std::filesystem::rename(path_, path_ + ".old");
        if (!script.empty()) {
            WriteScript(path_, script);
        }
    }
    ~ReplacedTool() { std::filesystem::rename(path_ + ".old", path_); }
    ReplacedTool(const ReplacedTool &) = delete;
    ReplacedTool &operator=(const ReplacedTool &) = delete;

  private:
    std::string path_;
};

// Mounts a file system on a service folder, to limit its size or make it read-only.
class MountedFolder {
  public:
    MountedFolder(const std::string &folder, const std::string &options) : folder_(folder) {
        Check(mount("test", folder.c_str(), "tmpfs", 0, options.c_str()));
    }
    ~MountedFolder() { umount2(folder_.c_str(), MNT_DETACH); }
    MountedFolder(const MountedFolder &) = delete;
    MountedFolder &operator=(const MountedFolder &) = delete;

    void MakeReadOnly() const {
        Check(mount("test", folder_.c_str(), "tmpfs", MS_REMOUNT | MS_RDONLY, nullptr));
    }

  private:
    static void Check(int result) {
        if (result != 0) {
            throw std::runtime_error("mount");
        }
    }

    std::string folder_;
};

}  // namespace tavo::test

#endif
