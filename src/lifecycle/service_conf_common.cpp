// Side copies of the stores that a change touches, so that the change can be undone as a whole: the
// service files of one directory, the rules of the firewall, the rules of port forwarding.
//
// The copies bear the process id, so that two processes do not mix up theirs. Of the programs that
// copy, move and remove, only that one cannot be run counts as a failure; how it ends does not, and
// never has.
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <array>
#include <cstdlib>
#include <cstring>

#include "lifecycle/programs.h"
#include "support/failure.h"
#include "support/owners.h"
#include "support/service_directory.h"
#include "support/text.h"
#include "tavopf.h"
#include "tavoserviceconf.h"

namespace {

constexpr char kFirewallDirectory[] = "/usr/tavo/etc/firewall.d";

// Bits of nCheckFlags that choose a store. The first asks nobody in a check of ports; here it is
// the firewall's.
constexpr uint32_t kFirewallRules = 1;
constexpr uint32_t kForwardingRules = TAVO_PORT_CHECK_PORT_FORWARD;
constexpr uint32_t kServiceFiles = TAVO_PORT_CHECK_FW_SERVICE;

// One of the low four bits must be set, also the one that chooses no store.
constexpr uint32_t kStoreFlags = 15;

constexpr uint32_t kDirectories = TAVO_SERVICE_CONF_DIR_SYSTEM | TAVO_SERVICE_CONF_DIR_PACKAGE;

struct Store {
    const char *szPath;
    bool chosen;
    char szPlace[tavo::kPathSize] = "";
    char szCopy[tavo::kPathSize] = "";

    // cp would copy a link and not what it leads to, so a store that is one counts where it lies.
    void NameCopy() {
        struct stat entry;
        if (lstat(szPath, &entry) < 0 || !S_ISLNK(entry.st_mode) ||
            realpath(szPath, szPlace) == nullptr) {
            tavo::CopyText(szPlace, szPath);
        }
        tavo::PrintText(szCopy, "%s.tmp.%d", szPath, static_cast<int>(getpid()));
    }
};

using Stores = std::array<Store, 4>;

// In the order in which they are copied, restored and deleted. With both directories neither is
// copied.
Stores StoresOf(const TAVO_SERVICE_CONF_SET_PARAM &param) {
    const bool files = (param.nCheckFlags & kServiceFiles) != 0;
    const char *szRules = TAVOPFRuleConfPathGet();
    return {{
        {tavo::kSystemServiceDirectory, files && param.nLocation == TAVO_SERVICE_CONF_DIR_SYSTEM},
        {tavo::kPackageServiceDirectory, files && param.nLocation == TAVO_SERVICE_CONF_DIR_PACKAGE},
        {kFirewallDirectory, (param.nCheckFlags & kFirewallRules) != 0},
        {szRules, szRules != nullptr && (param.nCheckFlags & kForwardingRules) != 0},
    }};
}

int CheckParam(const TAVO_SERVICE_CONF_SET_PARAM *pParam) {
    if (pParam == nullptr || (pParam->nCheckFlags & kStoreFlags) == 0 ||
        ((pParam->nCheckFlags & kServiceFiles) != 0 && (pParam->nLocation & kDirectories) == 0)) {
        return TAVO_SET_ERROR(tavo::kErrorBadParameter);
    }
    return 0;
}

bool Exists(const char *szPath) {
    return access(szPath, F_OK) == 0;
}

bool IsFolderOrFile(const struct stat &entry) {
    return S_ISDIR(entry.st_mode) || S_ISREG(entry.st_mode);
}

bool IsFolder(const char *szPath) {
    struct stat entry;
    return stat(szPath, &entry) == 0 && S_ISDIR(entry.st_mode);
}

// Linux 5.8 and later tell; with an older kernel it shows when the folder is still there.
bool IsMountPoint(const char *szPath) {
    struct statx entry;
    return statx(AT_FDCWD, szPath, 0, STATX_TYPE, &entry) == 0 &&
           (entry.stx_attributes & STATX_ATTR_MOUNT_ROOT) != 0;
}

bool IsEmpty(const char *szText) {
    return szText == nullptr || *szText == '\0';
}

// What the program said, or -1 for a failure. Both paths are trimmed.
int Replace(const char *szSrc, const char *szDst, bool move) {
    struct stat source;
    if (stat(szSrc, &source) < 0 || !IsFolderOrFile(source)) {
        return TAVO_FAIL_STATE(tavo::kErrorBadSource, "Source path is not valid (src path: %s)",
                               szSrc);
    }
    if (S_ISREG(source.st_mode) && std::string_view(szDst).ends_with('/')) {
        // The line shows the error state from before, and always has.
        TAVO_LOG_STATE("source/target must both be folder or file");
        return TAVO_SET_ERROR(tavo::kErrorBadParameter);
    }
    // A folder that cannot be removed must not swallow the source, nor, when something is mounted
    // on it, be emptied in the attempt.
    if (IsMountPoint(szDst) || RemovePath(szDst) < 0 || IsFolder(szDst)) {
        return TAVO_LOG_STATE("Failed to rm -rf %s", szDst);
    }
    const tavo::PathArgument from(szSrc);
    const tavo::PathArgument to(szDst);
    if (move) {
        const int nStatus = TLIBCExec(tavo::kMoveProgram, "-f", from.Get(), to.Get(), nullptr);
        return nStatus < 0 ? TAVO_LOG_STATE("Failed to mv -f %s %s", szSrc, szDst) : nStatus;
    }
    const int nStatus = TLIBCExec(tavo::kCopyProgram, "-rf", from.Get(), to.Get(), nullptr);
    return nStatus < 0 ? TAVO_LOG_STATE("Failed to cp -rf %s %s", szSrc, szDst) : nStatus;
}

// The same of paths as they are given.
int CopyOrMove(const char *szSrc, const char *szDst, bool move) {
    if (IsEmpty(szSrc) || IsEmpty(szDst)) {
        return TAVO_SET_ERROR(tavo::kErrorBadParameter);
    }
    const tavo::OwnedText source(strdup(szSrc));
    const tavo::OwnedText target(strdup(szDst));
    if (source == nullptr || target == nullptr) {
        return TAVO_SET_ERROR(tavo::kErrorNoMemory);
    }
    if (TLIBCStrTrimSpace(source.get()) < 0 || TLIBCStrTrimSpace(target.get()) < 0) {
        return TAVO_LOG_STATE("TLIBCStrTrimSpace() failed!");
    }
    if (IsEmpty(source.get()) || IsEmpty(target.get())) {
        return TAVO_SET_ERROR(tavo::kErrorBadParameter);
    }
    return Replace(source.get(), target.get(), move);
}

// A copy that another process of the same id left goes also when there is nothing to copy, and so
// does one that did not become whole, on a full disk for one: a restore would put it in the place
// of the store.
int CopyStore(const Store &store) {
    if (!Exists(store.szPlace)) {
        return RemovePath(store.szCopy);
    }
    const int nStatus = CopyOrMove(store.szPlace, store.szCopy, false);
    return nStatus > 0 ? RemovePath(store.szCopy) : nStatus;
}

}  // namespace

int RemovePath(const char *szPath) {
    if (IsEmpty(szPath)) {
        return TAVO_SET_ERROR(tavo::kErrorBadParameter);
    }
    struct stat entry;
    if (stat(szPath, &entry) < 0 || !IsFolderOrFile(entry)) {
        return 0;
    }
    if (TLIBCExec(tavo::kRemoveProgram, "-rf", tavo::PathArgument(szPath).Get(), nullptr, nullptr) <
        0) {
        return TAVO_LOG_STATE("Failed to rm -rf %s", szPath);
    }
    return 0;
}

int CopyOrMovePath(const char *szSrc, const char *szDst, int blMove) {
    return CopyOrMove(szSrc, szDst, blMove != 0) < 0 ? -1 : 0;
}

int TLIBServiceConfBackup(const TAVO_SERVICE_CONF_SET_PARAM *pParam) {
    if (CheckParam(pParam) < 0) {
        return -1;
    }
    Stores stores = StoresOf(*pParam);
    for (Store &store : stores) {
        if (!store.chosen) {
            continue;
        }
        store.NameCopy();
        if (CopyStore(store) < 0) {
            // The names that are still empty set 0xD00, which callers have come to read.
            for (const Store &copied : stores) {
                RemovePath(copied.szCopy);
            }
            return -1;
        }
    }
    return 0;
}

int TLIBServiceConfRestore(const TAVO_SERVICE_CONF_SET_PARAM *pParam) {
    if (CheckParam(pParam) < 0) {
        return -1;
    }
    for (Store &store : StoresOf(*pParam)) {
        if (!store.chosen) {
            continue;
        }
        store.NameCopy();
        if (Exists(store.szCopy) && CopyOrMovePath(store.szCopy, store.szPlace, 1) < 0) {
            return -1;
        }
    }
    return 0;
}

int TLIBServiceBackupConfDelete(const TAVO_SERVICE_CONF_SET_PARAM *pParam) {
    if (CheckParam(pParam) < 0) {
        return -1;
    }
    int nResult = 0;
    for (Store &store : StoresOf(*pParam)) {
        if (!store.chosen) {
            continue;
        }
        store.NameCopy();
        if (RemovePath(store.szCopy) < 0) {
            nResult = -1;
        }
    }
    return nResult;
}
