// Shared by the tests of whole service files: source files, installed files, and listings of
// folders.
#ifndef TAVO_TESTS_LIFECYCLE_SERVICE_FILES_TEST_H
#define TAVO_TESTS_LIFECYCLE_SERVICE_FILES_TEST_H

#include <unistd.h>

#include <string>
#include <string_view>
#include <vector>

#include "lifecycle_test.h"
#include "patterns.h"
#include "stand_ins.h"

namespace tavo::test {

using Lines = std::vector<std::string>;

constexpr char kGameFile[] = "/usr/local/etc/services.d/game.sc";
constexpr char kFirewallRules[] = "/usr/tavo/etc/firewall.d";
constexpr char kPlugin[] = "/usr/tavo/lib/plugins/port_config/portforward";

// A service on a free port, the next version of it, and a service on the telnet port.
constexpr char kGame[] = "[game]\ntitle=Game\ndesc=Games\ndst.ports=7001/tcp\n";
constexpr char kNewGame[] = "[game]\ntitle=Game\ndesc=Games\ndst.ports=7002/tcp\n";
constexpr char kTelnetGame[] = "[game]\ntitle=Game\ndesc=Games\ndst.ports=23/tcp\n";

// Masks the six random characters in the names of temporary copies.
inline Lines Plain(Lines lines) {
    for (std::string &line : lines) {
        line = ReplaceMatches(line, R"((\.sc\.)[A-Za-z0-9]{6}\b)", "$1XXXXXX");
    }
    return lines;
}

// Lists a path and everything below it: names, modes and contents, sorted.
inline Lines Tree(const std::filesystem::path &top) {
    Lines lines;
    const auto add = [&](const std::filesystem::path &path) {
        struct stat entry = {};
        if (lstat(path.c_str(), &entry) == 0) {
            lines.push_back(path.string() + " " + std::to_string(entry.st_mode) + " " +
                            (S_ISREG(entry.st_mode) ? ReadFile(path) : ""));
        }
    };
    add(top);
    if (std::filesystem::is_directory(top)) {
        for (const auto &entry : std::filesystem::recursive_directory_iterator(top)) {
            add(entry.path());
        }
    }
    std::sort(lines.begin(), lines.end());
    return lines;
}

// Lists all stores that a change may affect and everything next to them.
inline Lines AllStores() {
    Lines lines = Tree("/usr/tavo/etc");
    const Lines more = Tree("/usr/local/etc");
    lines.insert(lines.end(), more.begin(), more.end());
    return lines;
}

inline std::string SideCopyOf(const std::string &store) {
    return store + ".tmp." + std::to_string(getpid());
}

// Creates a folder with a subfolder and files.
inline void MakeFolder(const std::string &path) {
    std::filesystem::create_directories(path + "/sub");
    WriteFile(path + "/file", "in " + path);
    WriteFile(path + "/sub/file", "below " + path);
}

class ServiceFilesTest : public LifecycleTest {
  protected:
    ServiceFilesTest() { std::filesystem::create_directory("/packages"); }

    // Creates a file to be installed, as a package contains it.
    static std::string Source(std::string_view contents, const std::string &name = "game.sc") {
        std::string path = "/packages/" + name;
        WriteFile(path, contents);
        return path;
    }

    // Clears the captured log and the error state.
    void StartAnew() {
        log_.Clear();
        TLIBCErrSetEx(0, nullptr, 0);
    }
};

using SetParam = TAVO_SERVICE_CONF_SET_PARAM;

// A record that removes game.sc, or its section game, from the package services.
inline SetParam RemovalParam(uint32_t flags = TAVO_PORT_CHECK_FW_SERVICE) {
    SetParam param = Param("game.sc", "game");
    param.nWriteMode = TAVO_WRITE_MODE_REMOVE;
    param.nCheckFlags = flags;
    param.nLocation = TAVO_SERVICE_CONF_DIR_PACKAGE;
    return param;
}

}  // namespace tavo::test

#endif
