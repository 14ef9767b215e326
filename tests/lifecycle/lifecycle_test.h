// An appliance without service files, whose ports are all free, and helpers to observe the effects
// of a change: files, and the calls of tools and plugins. Each test checks that nothing is left in
// /tmp and no descriptor is left open.
#ifndef TAVO_TESTS_LIFECYCLE_LIFECYCLE_TEST_H
#define TAVO_TESTS_LIFECYCLE_LIFECYCLE_TEST_H

#include <gmock/gmock.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>

#include <algorithm>
#include <filesystem>
#include <memory>
#include <ostream>
#include <sstream>
#include <string>
#include <string_view>
#include <vector>

#include "appliance.h"
#include "library_test.h"
#include "temporary_folder.h"

namespace tavo::test {

constexpr char kFirewallTool[] = "/usr/tavo/bin/tavofirewall";
constexpr char kRouterTool[] = "/usr/tavo/sbin/tavoroutertool";

// Fills a field of a record. A text as long as the field has no terminator.
template <std::size_t Size>
void Fill(char (&field)[Size], std::string_view text) {
    std::fill(std::begin(field), std::end(field), '\0');
    std::copy_n(text.begin(), std::min(text.size(), Size), field);
}

// A record that writes into the system's folder, without a restart and without notifications.
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

// Parses ports in the form of a service file ("80,100:110/tcp"). The list has the order of the
// text.
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

// The properties of a file that any change of it would affect.
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

// The calls of a recording tool or plugin, one line for each call and argument. "all" returns the
// calls of all of them in order.
inline std::vector<std::string> Calls(const std::string &name = "all") {
    std::vector<std::string> lines;
    std::istringstream record(RecordOfCalls(name));
    for (std::string line; std::getline(record, line);) {
        lines.push_back(line);
    }
    return lines;
}

// The calls for a reload of the firewall and of the relay daemon.
constexpr char kFirewallReloaded[] = "tavofirewall --reload";
constexpr char kRelayAsked[] = "systemctl is-active --quiet tavorelayd";
constexpr char kRelayReloaded[] = "systemctl reload tavorelayd";

inline mode_t ModeOf(const std::string &path) {
    struct stat status = {};
    EXPECT_EQ(lstat(path.c_str(), &status), 0) << path;
    return status.st_mode;
}

// Creates a socket without a listener.
inline void MakeSocket(const std::string &path) {
    const int socket_fd = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
    sockaddr_un address = {.sun_family = AF_UNIX, .sun_path = ""};
    Fill(address.sun_path, path);
    EXPECT_EQ(bind(socket_fd, reinterpret_cast<sockaddr *>(&address), sizeof(address)), 0);
    close(socket_fd);
}

class LifecycleTest : public LibraryTest, protected Appliance {
  protected:
    void TearDown() override {
        EXPECT_EQ(InTmp(), in_tmp_);
        EXPECT_EQ(Entries(kDescriptors), descriptors_);
    }

    // The files that the test itself leaves in /tmp, sorted.
    std::vector<std::string> in_tmp_;

  private:
    static constexpr char kDescriptors[] = "/proc/self/fd";

    std::vector<std::string> descriptors_ = Entries(kDescriptors);
};

}  // namespace tavo::test

#endif
