#include "lifecycle/set_param.h"

#include <cerrno>
#include <cstring>
#include <string_view>

#include "support/presence.h"

namespace tavo {
namespace {

// The bits of nRestartFlags that a removal checks.
constexpr uint32_t kRemovalFlags = 15;

bool IsFrom1To(uint32_t nHighest, uint32_t nValue) {
    return nValue >= 1 && nValue <= nHighest;
}

template <std::size_t Size>
bool IsFileName(const char (&field)[Size]) {
    const FieldString<Size> name(field);
    return !name.IsEmpty() && !LeadsAway(name.Get());
}

}  // namespace

bool AllowsSet(const SetParam *pParam) {
    return pParam != nullptr && IsFrom1To(TAVO_RESTART_MODE_RESTART, pParam->nRestartMode) &&
           IsFrom1To(TAVO_RESTART_ALL, pParam->nRestartFlags) &&
           IsFrom1To(TAVO_WRITE_MODE_REMOVE, pParam->nWriteMode) &&
           IsFrom1To(TAVO_PORT_CHECK_ALL, pParam->nCheckFlags) &&
           IsFrom1To(kEveryServiceFolder, pParam->nLocation) && IsFileName(pParam->szFileName) &&
           !FieldText(pParam->szSectionName).empty();
}

bool AllowsRemove(const SetParam *pParam) {
    if (pParam == nullptr || !IsFrom1To(TAVO_RESTART_MODE_RESTART, pParam->nRestartMode)) {
        return false;
    }
    if (pParam->nRestartMode == TAVO_RESTART_MODE_RESTART &&
        (pParam->nRestartFlags & kRemovalFlags) == 0) {
        return false;
    }
    const uint32_t nDirectory = pParam->nLocation & kEveryServiceFolder;
    return pParam->nWriteMode == TAVO_WRITE_MODE_REMOVE &&
           (pParam->nCheckFlags & TAVO_PORT_CHECK_FW_SERVICE) != 0 &&
           (nDirectory == TAVO_SERVICE_CONF_DIR_SYSTEM ||
            nDirectory == TAVO_SERVICE_CONF_DIR_PACKAGE) &&
           IsFileName(pParam->szFileName);
}

bool LeadsAway(const char *szName) {
    if (szName == nullptr) {
        return true;
    }
    std::string_view rest = szName;
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

const char *DirectoryByBits(uint32_t nLocation) {
    return (nLocation & TAVO_SERVICE_CONF_DIR_SYSTEM) != 0 ? kSystemServiceDirectory
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
