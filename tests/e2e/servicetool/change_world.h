// A private appliance in which all ports are free and nobody was told of anything yet, and what a
// change leaves in it: files, and what those who act on ports received.
#ifndef TAVO_TESTS_SERVICETOOL_CHANGE_WORLD_H
#define TAVO_TESTS_SERVICETOOL_CHANGE_WORLD_H

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/file.h>
#include <sys/mount.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <filesystem>
#include <nlohmann/json.hpp>
#include <string>
#include <utility>
#include <vector>

#include "port_world.h"
#include "require_appliance.h"
#include "servicetool_run.h"

namespace tavo::test {

inline const std::string kHome = "/home/admin/";  // where the tests run servicetool
inline const std::string kCalls = "/run/calls/";

// A plugin is told of both texts, and the relay daemon then asked for and reloaded.
inline const std::string kRelayCalls =
    "systemctl is-active --quiet tavorelayd\nsystemctl reload tavorelayd\n";

inline const std::string kPlan = "tell the plugins and the relay daemon if it runs\n";
inline const std::string kTold = "told the plugins and the relay daemon if it runs\n";
inline const std::string kDryRun = "dry run: nothing was changed, nobody was told\n";

// What the stand-in of that name received; "all" is everybody in order.
inline std::string Calls(const std::string &name = "all") {
    return std::filesystem::exists(kCalls + name) ? ReadFile(kCalls + name) : "";
}

// A text as the stand-ins write it down, quoted for a shell.
inline std::string InShell(std::string text) {
    for (std::size_t at = 0; (at = text.find('\n', at)) != std::string::npos; at += 2) {
        text.replace(at, 1, "\\n");
    }
    return text;
}

class ChangeWorld : public PortWorld {
  protected:
    void SetUp() override {
        PortWorld::SetUp();
        for (const std::string &folder : {kHome, kCalls, std::string("/run/exit-status/")}) {
            for (const std::string &name : Entries(folder)) {
                std::filesystem::remove_all(folder + name);
            }
        }
        std::filesystem::current_path(kHome);
        WriteFile("/run/active-units", "tavorelayd\n");
    }

    // Whatever a command does, it leaves no copy behind.
    void TearDown() override {
        EXPECT_EQ(InTmp(), std::vector<std::string>{});
        for (const std::string &folder : {kSystem, kPackage}) {
            EXPECT_EQ(Entries(folder + "tmp"), left_behind_);
        }
    }

    // What has come into /tmp, sorted. The folder of a source or build tree may have been there.
    std::vector<std::string> InTmp() const {
        std::vector<std::string> names = Entries("/tmp");
        std::erase_if(names, [this](const std::string &name) {
            return std::find(tmp_before_.begin(), tmp_before_.end(), name) != tmp_before_.end();
        });
        return names;
    }

    std::vector<std::string> left_behind_;  // what is to stay

  private:
    std::vector<std::string> tmp_before_ = Entries("/tmp");
};

// What servicetool locks while it changes something.
inline const std::string kSystemParent = "/usr/tavo/etc";
inline const std::string kPackageParent = "/usr/local/etc";

// Changes something as another servicetool would.
class Lock {
  public:
    explicit Lock(const std::string &folder)
        : folder_(open(folder.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC)) {
        EXPECT_EQ(flock(folder_, LOCK_EX | LOCK_NB), 0);
    }
    ~Lock() { close(folder_); }
    Lock(const Lock &) = delete;
    Lock &operator=(const Lock &) = delete;

  private:
    int folder_;
};

// Takes a program away, or lets a script do what it does.
class ReplacedTool {
  public:
    explicit ReplacedTool(std::string path, const std::string &script = "")
        : path_(std::move(path)) {
        std::filesystem::rename(path_, path_ + ".old");
        if (!script.empty()) {
            WriteFile(path_, "#!/bin/sh\n" + script + '\n');
            std::filesystem::permissions(path_, std::filesystem::perms::owner_all);
        }
    }
    ~ReplacedTool() { std::filesystem::rename(path_ + ".old", path_); }
    ReplacedTool(const ReplacedTool &) = delete;
    ReplacedTool &operator=(const ReplacedTool &) = delete;

  private:
    std::string path_;
};

// Keeps a service folder from being written, or lets it hold this much only.
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
