// Makes one change of the service file game.sc of a package, for tests that inject faults: changer
// CHANGE. Prints to standard output, one per line: the result, the error code, the number of
// descriptors left open, and the lines of the log.
//
// A call of getppid, which is made nowhere else, marks the start and the end of the change for the
// tests.
#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <filesystem>
#include <iterator>
#include <string_view>

#include "captured_log.h"
#include "tavocore.h"
#include "tavoserviceconf.h"

namespace {

constexpr char kFile[] = "game.sc";
constexpr char kSource[] = "/packages/game.sc";
constexpr char kSection[] = "game";

template <std::size_t Size>
void Fill(char (&field)[Size], std::string_view text) {
    std::copy_n(text.begin(), text.size(), field);
}

// Notifies all listeners and restarts the services.
TAVO_SERVICE_CONF_SET_PARAM Param(uint32_t write_mode) {
    TAVO_SERVICE_CONF_SET_PARAM param = {};
    param.nRestartMode = TAVO_RESTART_MODE_RESTART;
    param.nRestartFlags = TAVO_RESTART_FIREWALL;
    param.nWriteMode = write_mode;
    param.nCheckFlags =
        TAVO_PORT_CHECK_DEFAULT | TAVO_PORT_CHECK_PORT_FORWARD | TAVO_PORT_CHECK_FW_SERVICE;
    Fill(param.szFileName, kFile);
    Fill(param.szSectionName, kSection);
    param.nLocation = TAVO_SERVICE_CONF_DIR_PACKAGE;
    return param;
}

TAVO_SERVICE_CONF_PORT Port() {
    TAVO_SERVICE_CONF_PORT port = {};
    port.nDirection = TAVO_PORT_DIRECTION_DST;
    port.nPortStart = 7002;
    port.nProtocol = TAVO_PROTO_TCP;
    return port;
}

int Install() {
    return TAVOServiceConfInstall(kSource, TAVO_SERVICE_CONF_DIR_PACKAGE);
}

int Update() {
    TAVO_SERVICE_CONF_PORT *conflicts = nullptr;
    const int result =
        TAVOServiceConfUpdateBaseName(kFile, kSource, TAVO_SERVICE_CONF_DIR_PACKAGE, &conflicts);
    TAVOServiceConfPortsFree(conflicts);
    return result;
}

int Remove() {
    return TAVOServiceConfRemoveBaseName(kFile, TAVO_SERVICE_CONF_DIR_PACKAGE);
}

int Set() {
    const TAVO_SERVICE_CONF_SET_PARAM param = Param(TAVO_WRITE_MODE_SET);
    TAVO_SERVICE_CONF_PORT port = Port();
    TAVO_SERVICE_CONF_SECTION section = {};
    Fill(section.szName, kSection);
    Fill(section.strTitle.szText, "Game");
    Fill(section.strDesc.szText, "A game");
    section.pDstPorts = &port;
    return TLIBServiceConfSectionSet(&param, &section);
}

int SetPorts() {
    const TAVO_SERVICE_CONF_SET_PARAM param = Param(TAVO_WRITE_MODE_SET);
    const TAVO_SERVICE_CONF_PORT port = Port();
    return TLIBServiceConfPortsSet(&param, &port);
}

int RemoveSection() {
    const TAVO_SERVICE_CONF_SET_PARAM param = Param(TAVO_WRITE_MODE_REMOVE);
    return TLIBServiceConfSectionRemove(&param);
}

constexpr struct {
    std::string_view name;
    int (*make)();
} kChanges[] = {
    {"install", Install}, {"update", Update},      {"remove", Remove},
    {"set", Set},         {"set-ports", SetPorts}, {"remove-section", RemoveSection},
};

auto OpenDescriptors() {
    return std::distance(std::filesystem::directory_iterator("/proc/self/fd"), {});
}

}  // namespace

int main(int argc, char **argv) {
    const auto change = std::find_if(std::begin(kChanges), std::end(kChanges), [&](const auto &it) {
        return argc == 2 && it.name == argv[1];
    });
    if (change == std::end(kChanges)) {
        return 2;
    }
    const tavo::test::CapturedLog log;
    const auto before = OpenDescriptors();
    getppid();
    const int result = change->make();
    getppid();
    std::printf("%d\n0x%X\n%d\n", result, TLIBCErrGet(),
                static_cast<int>(OpenDescriptors() - before));
    for (const auto &line : log.Lines()) {
        std::printf("%s\n", line.text.c_str());
    }
    return 0;
}
