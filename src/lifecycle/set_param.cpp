#include "lifecycle/set_param.h"

#include <cerrno>
#include <cstring>
#include <string_view>

#include "support/presence.h"

namespace tavo {
namespace {

// The bits of nRestartFlags that a removal checks.
constexpr uint32_t kRemovalFlags = 15;

bool IsFrom1To(uint32_t highest, uint32_t value) {
    return value >= 1 && value <= highest;
}

template <std::size_t Size>
bool IsFileName(const char (&field)[Size]) {
    const FieldString<Size> name(field);
    return !name.IsEmpty() && !LeadsAway(name.Get());
}

}  // namespace

bool AllowsSet(const SetParam *param) {
    return param != nullptr && IsFrom1To(TAVO_RESTART_MODE_RESTART, param->nRestartMode) &&
           IsFrom1To(TAVO_RESTART_ALL, param->nRestartFlags) &&
           IsFrom1To(TAVO_WRITE_MODE_REMOVE, param->nWriteMode) &&
           IsFrom1To(TAVO_PORT_CHECK_ALL, param->nCheckFlags) &&
           IsFrom1To(kEveryServiceFolder, param->nLocation) && IsFileName(param->szFileName) &&
           !FieldText(param->szSectionName).empty();
}

bool AllowsRemove(const SetParam *param) {
    if (param == nullptr || !IsFrom1To(TAVO_RESTART_MODE_RESTART, param->nRestartMode)) {
        return false;
    }
    if (param->nRestartMode == TAVO_RESTART_MODE_RESTART &&
        (param->nRestartFlags & kRemovalFlags) == 0) {
        return false;
    }
    const uint32_t directory = param->nLocation & kEveryServiceFolder;
    return param->nWriteMode == TAVO_WRITE_MODE_REMOVE &&
           (param->nCheckFlags & TAVO_PORT_CHECK_FW_SERVICE) != 0 &&
           (directory == TAVO_SERVICE_CONF_DIR_SYSTEM ||
            directory == TAVO_SERVICE_CONF_DIR_PACKAGE) &&
           IsFileName(param->szFileName);
}

bool LeadsAway(const char *name) {
    if (name == nullptr) {
        return true;
    }
    std::string_view rest = name;
    for (;;) {
        const std::size_t end = rest.find('/');
        if (rest.substr(0, end) == "..") {
            return true;
        }
        if (end == std::string_view::npos) {
            return false;
        }
        rest.remove_prefix(end + 1);
    }
}

const char *DirectoryByBits(uint32_t location) {
    return (location & TAVO_SERVICE_CONF_DIR_SYSTEM) != 0 ? kSystemServiceDirectory
                                                          : kPackageServiceDirectory;
}

int LookForFile(const char *path, const Place &place, StepFailure &failure) {
    const Presence presence = PresenceOf(path);
    if (presence == Presence::kUnknown) {
        return FailToLook(Step::kLook, path, place, failure);
    }
    return presence == Presence::kPresent ? 1 : 0;
}

int FailToLook(Step step, const char *path, const Place &place, StepFailure &failure) {
    const int error = errno;
    failure.Set(step, path, error);
    return TAVO_FAIL_STATE_AT(place, TLIBC_ERR_FILE_UNUSABLE, "Failed to look at %s: %s", path,
                              std::strerror(error));
}

}  // namespace tavo
