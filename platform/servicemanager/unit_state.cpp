// The state of units, read and changed with systemctl: the protocol of the service manager is
// private to its tool, and a machine without systemctl has no units.
#include <cstring>

#include "platform_failure.h"
#include "tavocsystemd.h"

namespace {

constexpr char kSystemctl[] = "/bin/systemctl";

// Exit statuses from this value on mean that the program was killed by a signal.
constexpr int kSignalled = 128;

// systemctl would interpret a leading dash as an option.
bool IsUnit(const char *unit) {
    return unit != nullptr && *unit != '\0' && *unit != '-';
}

}  // namespace

int TAVOCSystemdActiveStatusGet(const char *szUnit) {
    if (!IsUnit(szUnit)) {
        return TAVO_PLATFORM_FAIL(TLIBC_ERR_BAD_PARAMETER);
    }
    if (TLIBCFileExist(kSystemctl) == 0) {
        return 0;
    }
    const int status = TLIBCExecl(kSystemctl, 0, "is-active", "--quiet", szUnit, nullptr);
    if (status >= kSignalled) {
        return TAVO_PLATFORM_FAIL(TLIBC_ERR_FILE_UNUSABLE);
    }
    return status < 0 ? -1 : status == 0 ? 1 : 0;
}

int TAVOCSystemdReload(const char *szUnit) {
    if (!IsUnit(szUnit)) {
        return TAVO_PLATFORM_FAIL(TLIBC_ERR_BAD_PARAMETER);
    }
    const int status = TLIBCExecl(kSystemctl, 0, "reload", szUnit, nullptr);
    return status > 0 ? TAVO_PLATFORM_FAIL(TLIBC_ERR_FILE_UNUSABLE) : status;
}
