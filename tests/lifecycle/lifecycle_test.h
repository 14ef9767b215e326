// An appliance without service files, whose ports are all free, and what a change leaves behind in
// it: files, what the tools and plugins received. Nothing stays in /tmp, and nothing stays open.
#ifndef TAVO_TESTS_LIFECYCLE_LIFECYCLE_TEST_H
#define TAVO_TESTS_LIFECYCLE_LIFECYCLE_TEST_H

#include <gmock/gmock.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <memory>
#include <ostream>
#include <string>
#include <string_view>
#include <vector>

#include "library_test.h"
#include "require_appliance.h"
#include "temporary_folder.h"

namespace tavo::test {

constexpr char kSystemServices[] = "/usr/tavo/etc/services.d";
constexpr char kPackageServices[] = "/usr/local/etc/services.d";
constexpr char kForwardingRules[] = "/usr/tavo/etc/portforward/rule.conf";
constexpr char kFirewallTool[] = "/usr/tavo/bin/tavofirewall";
constexpr char kRouterTool[] = "/usr/tavo/sbin/tavoroutertool";

// Fills a field of a record; a text as long as the field leaves it without a terminator.
template <std::size_t Size>
void Fill(char (&field)[Size], std::string_view text) {
    std::fill(std::begin(field), std::end(field), '\0');
    std::copy_n(text.begin(), std::min(text.size(), Size), field);
}

// A record that writes, without restart, into the system's folder, and tells nobody.
inline TAVO_SERVICE_CONF_SET_PARAM Param(std::string_view file, std::string_view section) {
    TAVO_SERVICE_CONF_SET_PARAM param = {};
    param.nRestartMode = TAVO_RESTART_MODE_NONE;
    param.nRestartFlags = TAVO_RESTART_FIREWALL;
    param.nWriteMode = TAVO_WRITE_MODE_SET;
    param.nCheckFlags = TAVO_PORT_CHECK_FW_SERVICE;
    Fill(param.szFileName, file);
    Fill(param.szSectionName, section);
    param.nLocation = TAVO_SERVICE_CONF_DIR_SYSTEM;
    return param;
}

struct FreePorts {
    void operator()(TAVO_SERVICE_CONF_PORT *list) const { TAVOServiceConfPortsFree(list); }
};
using Ports = std::unique_ptr<TAVO_SERVICE_CONF_PORT, FreePorts>;

// Ports as a service file has them ("80,100:110/tcp"), in the order of that text.
inline Ports MakePorts(const std::string &text, uint32_t direction = TAVO_PORT_DIRECTION_DST) {
    TAVO_SERVICE_CONF_PORT *parsed = nullptr;
    EXPECT_EQ(TAVOServiceConfPortsGet(text.c_str(), direction, &parsed), 0);
    TAVO_SERVICE_CONF_PORT *reversed = nullptr;
    while (parsed != nullptr) {
        TAVO_SERVICE_CONF_PORT *port = parsed;
        parsed = parsed->pNext;
        port->pNext = reversed;
        reversed = port;
    }
    return Ports(reversed);
}

// All that a change of a file would change.
struct FileState {
    std::string bytes;
    mode_t mode;
    ino_t inode;
    long seconds;
    long nanoseconds;

    bool operator==(const FileState &) const = default;
};

inline FileState StateOf(const std::string &path) {
    struct stat status = {};
    EXPECT_EQ(stat(path.c_str(), &status), 0) << path;
    return {ReadFile(path), status.st_mode, status.st_ino, status.st_mtim.tv_sec,
            status.st_mtim.tv_nsec};
}

inline void PrintTo(const FileState &state, std::ostream *out) {
    *out << std::oct << state.mode << std::dec << " inode " << state.inode << " of "
         << state.seconds << "." << state.nanoseconds << ": "
         << testing::PrintToString(state.bytes);
}

// What a recording tool or plugin received, a line for each call and argument; "all" is everybody
// in order.
inline std::vector<std::string> Calls(const std::string &name = "all") {
    std::vector<std::string> lines;
    std::ifstream file("/run/calls/" + name);
    for (std::string line; std::getline(file, line);) {
        lines.push_back(line);
    }
    return lines;
}

inline void ForgetCalls() {
    for (const std::string &name : Entries("/run/calls")) {
        std::filesystem::remove("/run/calls/" + name);
    }
}

// The statuses that a recording tool or plugin ends with from now on, a line each.
inline void SetExitStatus(const std::string &name, const std::string &statuses) {
    WriteFile("/run/exit-status/" + name, statuses + "\n");
}

inline void ActivateRelayDaemon() {
    WriteFile("/run/active-units", "tavorelayd\n");
}

// What a reload of the firewall and of the relay daemon look like to the tools.
constexpr char kFirewallReloaded[] = "tavofirewall --reload";
constexpr char kRelayAsked[] = "systemctl is-active --quiet tavorelayd";
constexpr char kRelayReloaded[] = "systemctl reload tavorelayd";

inline mode_t ModeOf(const std::string &path) {
    struct stat status = {};
    EXPECT_EQ(lstat(path.c_str(), &status), 0) << path;
    return status.st_mode;
}

// A socket that nobody listens on.
inline void MakeSocket(const std::string &path) {
    const int socket_fd = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
    sockaddr_un address = {.sun_family = AF_UNIX, .sun_path = ""};
    Fill(address.sun_path, path);
    EXPECT_EQ(bind(socket_fd, reinterpret_cast<sockaddr *>(&address), sizeof(address)), 0);
    close(socket_fd);
}

class LifecycleTest : public LibraryTest {
  protected:
    LifecycleTest() {
        RequireAppliance();
        for (const char *folder : {kSystemServices, kPackageServices}) {
            std::filesystem::remove_all(folder);
            std::filesystem::create_directories(folder);
        }
        std::filesystem::remove(kForwardingRules);
        WriteFile("/etc/tavoinfo.conf", "");
    }

    void TearDown() override {
        EXPECT_EQ(InTmp(), in_tmp_);
        EXPECT_EQ(Entries(kDescriptors), descriptors_);
    }

    // What has come into /tmp, sorted. The folder of a source or build tree may have been there.
    std::vector<std::string> InTmp() const {
        std::vector<std::string> names = Entries("/tmp");
        std::erase_if(names, [&](const std::string &name) {
            return std::find(tmp_before_.begin(), tmp_before_.end(), name) != tmp_before_.end();
        });
        return names;
    }

    // What a test itself has put there and leaves there, sorted.
    std::vector<std::string> in_tmp_;

  private:
    static constexpr char kDescriptors[] = "/proc/self/fd";

    std::vector<std::string> tmp_before_ = Entries("/tmp");
    std::vector<std::string> descriptors_ = Entries(kDescriptors);
};

}  // namespace tavo::test

#endif
