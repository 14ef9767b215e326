// The input of a notification: any files before and after a change, and any paths to them. Plugins
// get the text of each file up to its first NUL, "" for a file that is missing or cannot be passed
// on, and the addressees.
//
// An input is flags (one byte: 1 notify the firewall, 2 notify port forwarding, 4 a removal), the
// old path and the new path below /run/notified, each NUL-terminated, the length of the old text
// (two bytes) and the texts, which are written to the paths if these can name a file.
#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <filesystem>
#include <map>
#include <string>
#include <string_view>
#include <system_error>

#include "fuzz_appliance.h"
#include "tavocore.h"
#include "tavoserviceconf.h"

namespace {

namespace fs = std::filesystem;
using Records = std::map<std::string, std::string>;

constexpr char kFolder[] = "/run/notified/";

std::string g_action;
Records g_records;
int g_calls = 0;

}  // namespace

extern "C" {

// Takes precedence over the function of the core library; acts as the only plugin of the appliance.
__attribute__((visibility("default"))) int TLIBCExecInput(const char * /*szProgram*/,
                                                          const char *szArg, const void *pInput,
                                                          size_t cbInput, int /*nSeconds*/) {
    ++g_calls;
    g_action = szArg;
    g_records.clear();
    std::string_view rest(static_cast<const char *>(pInput), cbInput);
    while (!rest.empty()) {
        const std::size_t end = rest.find('\0');
        Require(end != std::string_view::npos);
        const std::string_view record = rest.substr(0, end);
        const std::size_t equals = record.find('=');
        Require(equals != std::string_view::npos);
        const bool is_new = g_records
                                .emplace(std::string(record.substr(0, equals)),
                                         std::string(record.substr(equals + 1)))
                                .second;
        Require(is_new);
        rest.remove_prefix(end + 1);
    }
    return 0;
}

// The service manager's tool: the relay daemon does not run.
__attribute__((visibility("default"))) int TLIBCExecl(const char * /*szProgram*/, int /*nOptions*/,
                                                      const char * /*szArg*/, ...) {
    return 3;
}

}  // extern "C"

namespace {

std::string TakeText(std::string_view &input) {
    std::string text(input.substr(0, input.find('\0')));
    input.remove_prefix(std::min(input.size(), text.size() + 1));
    return text;
}

std::string_view TakeBytes(std::string_view &input, std::size_t size) {
    const std::string_view bytes = input.substr(0, size);
    input.remove_prefix(bytes.size());
    return bytes;
}

std::size_t TakeSize(std::string_view &input) {
    std::size_t size = 0;
    for (const char byte : TakeBytes(input, 2)) {
        size = size << 8 | static_cast<unsigned char>(byte);
    }
    return size;
}

// A path below the folder, truncated to the size in a notification; "" stays empty.
std::string PathBelow(const std::string &name) {
    const bool leads_out = ("/" + name + "/").find("/../") != std::string::npos;
    return name.empty() || leads_out ? "" : (kFolder + name).substr(0, 4095);
}

struct Notification {
    bool firewall;
    bool forwarding;
    bool removal;
    std::string old_path;
    std::string new_path;
    std::string_view old_text;
    std::string_view new_text;

    explicit Notification(std::string_view input) {
        const char flags = input.empty() ? '\0' : input.front();
        TakeBytes(input, 1);
        firewall = (flags & 1) != 0;
        forwarding = (flags & 2) != 0;
        removal = (flags & 4) != 0;
        old_path = PathBelow(TakeText(input));
        new_path = PathBelow(TakeText(input));
        old_text = TakeBytes(input, TakeSize(input));
        new_text = input;
    }

    void Place() const {
        fs::remove_all(kFolder);
        fs::create_directory(kFolder);
        PlaceAt(old_path, old_text);
        PlaceAt(new_path, new_text);
    }

    static void PlaceAt(const std::string &path, std::string_view text) {
        const int fd = open(path.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0644);
        if (fd >= 0) {
            Require(write(fd, text.data(), text.size()) == static_cast<ssize_t>(text.size()));
            close(fd);
        }
    }

    int Notify() const {
        if (removal) {
            const TAVO_SERVICE_CONF_REMOVE_NOTIFY notify = {old_path.c_str(), firewall, forwarding};
            return TLIBServiceConfRemoveServNotify(&notify);
        }
        TAVO_SERVICE_CONF_NOTIFY notify = {};
        old_path.copy(notify.szOldConfPath, sizeof(notify.szOldConfPath) - 1);
        new_path.copy(notify.szNewConfPath, sizeof(notify.szNewConfPath) - 1);
        notify.blNotifyFw = firewall;
        notify.blNotifyPf = forwarding;
        return TLIBServiceConfUpdateServNotify(&notify);
    }
};

// Whether the text can be passed on: a missing file is empty, and an entry that is not a file
// cannot be read.
bool IsTold(const std::string &path) {
    std::error_code too_long;
    return fs::is_regular_file(path, too_long) || TLIBCFileExist(path.c_str()) == 0;
}

std::string TextAt(const std::string &path) {
    std::string text;
    const int fd = open(path.c_str(), O_RDONLY | O_CLOEXEC);
    if (fd >= 0) {
        char bytes[4096];
        for (ssize_t got = 0; (got = read(fd, bytes, sizeof(bytes))) > 0;) {
            text.append(bytes, static_cast<std::size_t>(got));
        }
        close(fd);
    }
    return text.substr(0, text.find('\0'));
}

Records Expected(const Notification &notification) {
    Records records;
    if (notification.removal) {
        records["PORT_CONFIG_CONTENT"] = TextAt(notification.old_path);
    } else if (notification.forwarding) {
        const bool notified = !notification.old_path.empty() && !notification.new_path.empty() &&
                              IsTold(notification.old_path) && IsTold(notification.new_path);
        records["OLD_PORT_CONFIG_CONTENT"] = notified ? TextAt(notification.old_path) : "";
        records["NEW_PORT_CONFIG_CONTENT"] = notified ? TextAt(notification.new_path) : "";
    }
    if (notification.forwarding) {
        records["NOTIFY_PF"] = "1";
    }
    if (notification.removal ? notification.forwarding : notification.firewall) {
        records["NOTIFY_FW"] = "1";
    }
    return records;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size) {
    QuietLog();
    tavo::test::RequireAppliance();
    const Notification notification({reinterpret_cast<const char *>(data), size});
    notification.Place();
    g_calls = 0;
    Require(notification.Notify() == 0);
    Require(g_calls == 1);
    Require(g_action == (notification.removal ? "port_config/remove" : "port_config/update"));
    Require(g_records == Expected(notification));
    return 0;
}
