// The ports of the FTP server according to the settings of the appliance: one control port, and a
// range of ports from which the server takes one for each transfer (passive mode).
//
// A missing or empty setting has its factory default, as for every other reader of that file. Each
// setting is read separately; nothing is cached.
#include "tavoftp.h"

#include <algorithm>
#include <charconv>
#include <cstdio>
#include <memory>
#include <string_view>

#include "base/owners.h"
#include "base/ports.h"
#include "base/system_files.h"
#include "platform_failure.h"

namespace {

struct PortSetting {
    const char *key;
    int factory_port;
};
constexpr PortSetting kControlPort = {tavo::kFtpPortKey, 21};
constexpr PortSetting kLowPort = {tavo::kFtpLowPortKey, 50000};
constexpr PortSetting kHighPort = {tavo::kFtpHighPortKey, 50031};

// The size of a port with some leading zeros. A value that fills the buffer may be truncated and is
// invalid.
constexpr int kValueSize = 32;

// The size of two numbers, a dash and the terminator.
constexpr int kPortsSize = 24;

using OwnedList = std::unique_ptr<TLIBCSzList, tavo::FreeWith<TLIBCSzListFree>>;

// Parses a port of decimal digits; -1 if `text` is not a port.
int ParsePort(std::string_view text) {
    unsigned int port = 0;
    const char *end = text.data() + text.size();
    const auto [stop, error] = std::from_chars(text.data(), end, port);
    const bool whole = error == std::errc() && stop == end;
    return whole && port <= tavo::kHighestPort ? static_cast<int>(port) : -1;
}

int ReadPort(const PortSetting &setting) {
    char value[kValueSize];
    if (TLIBCFileGetKeyValue(tavo::kSettingsFile, setting.key, value, kValueSize) < 0) {
        return -1;
    }
    const std::string_view text(value);
    if (text.empty()) {
        return setting.factory_port;
    }
    const int port = text.size() < kValueSize - 1 ? ParsePort(text) : -1;
    return port < 0 ? TAVO_PLATFORM_FAIL(TLIBC_ERR_BAD_PARAMETER) : port;
}

// Pushes the range in the notation of the firewall; a range of one port is written as that port.
int PushPorts(const OwnedList &list, int low, int high) {
    char ports[kPortsSize];
    if (low == high) {
        std::snprintf(ports, sizeof(ports), "%d", low);
    } else {
        std::snprintf(ports, sizeof(ports), "%d-%d", low, high);
    }
    TLIBCSzList *handle = list.get();
    return TLIBCSzListPush(&handle, ports);
}

}  // namespace

int TAVOFTPHighPortGet(void) {
    return ReadPort(kHighPort);
}

int TAVOFTPFwPorts(TLIBCSzList **ppPorts) {
    if (ppPorts == nullptr) {
        return TAVO_PLATFORM_FAIL(TLIBC_ERR_BAD_PARAMETER);
    }
    const int control = ReadPort(kControlPort);
    const int low = control < 0 ? -1 : ReadPort(kLowPort);
    const int high = low < 0 ? -1 : ReadPort(kHighPort);
    if (high < 0) {
        return -1;
    }
    OwnedList ports(TLIBCSzListAlloc(2));
    if (!ports || PushPorts(ports, control, control) < 0 ||
        PushPorts(ports, std::min(low, high), std::max(low, high)) < 0) {
        return -1;
    }
    *ppPorts = ports.release();
    return 0;
}
