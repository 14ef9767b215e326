// Installs a service file, for the exported install functions and for updates.
//
// The file is copied to a unique name in a folder inside the target directory, which is on the same
// file system, and then renamed. Readers see the complete old or the complete new file, and several
// processes may install the same name at once: the last rename wins.
//
// A port conflict does not prevent the installation. The result reports it.
#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "base/descriptor.h"
#include "lifecycle/change.h"
#include "lifecycle/path_change.h"
#include "lifecycle/set_param.h"
#include "lifecycle/store_lock.h"
#include "lifecycle/temporary_copy.h"
#include "support/failure.h"
#include "support/held_file.h"
#include "support/service_directory.h"
#include "support/text.h"
#include "tavoserviceconf.h"

namespace tavo {
namespace {

// The location must be a single directory, not a set of flags. Returns null for any other value.
const char *InstallDirectory(int nLocation) {
    for (const ServiceFolder &folder : kServiceFolders) {
        if (folder.selector == nLocation) {
            return folder.path;
        }
    }
    return nullptr;
}

// An installed file with the same name is not an error, since it is replaced.
int CheckSource(const char *szSrcPath, const char *szDirectory, StepFailure &failure) {
    if (TAVOServiceConfFileVerify(szSrcPath, szDirectory) == 0) {
        return 0;
    }
    if (TLIBCErrGet() == TAVO_ERR_ALREADY_INSTALLED) {
        TLIBCErrSetEx(0, __FILE_NAME__, __LINE__);
        return 0;
    }
    failure.Set(Step::kVerifySource, szSrcPath);
    return TLIBCErrGet() == TLIBC_ERR_NO_FILE
               ? TAVO_LOG_STATE("Source configure file does not exist (%s)", szSrcPath)
               : TAVO_LOG_STATE("install configue file fail! (%s)", szSrcPath);
}

// True if the ports of the file are in conflict with others. A failed check does not prevent the
// installation.
bool ReportConflict(const char *szSrcPath, TAVO_SERVICE_CONF_PORT **ppConflictPorts) {
    const int nConflict = TLIBIsConfPortConflict(szSrcPath, ppConflictPorts);
    if (nConflict == 1) {
        TAVO_LOG("%s conf file port conflict with existed conf file setting", szSrcPath);
    } else if (nConflict != 0) {
        TAVO_LOG("check %s conf file port conflict failed=%d", szSrcPath, nConflict);
    }
    return nConflict == 1;
}

int MakeDirectory(const char *szDirectory, StepFailure &failure) {
    if (MakeFolder(szDirectory, failure) != 0) {
        return TAVO_FAIL_STATE(TAVO_ERR_MAKE_DIRECTORY, "mkdir fail for path %s", szDirectory);
    }
    return 0;
}

// Creates an empty file with a unique name and stores its path in szPath.
int ReserveName(const char *szBaseName, char *szPath, StepFailure &failure) {
    const Descriptor file(mkstemp(szPath));
    if (!file.IsOpen()) {
        failure.Set(Step::kMakeFile, szPath, errno);
        return TAVO_LOG("Failed to mkstemp() for installing service conf of %s: %s", szBaseName,
                        std::strerror(errno));
    }
    return 0;
}

// Writes the content to disk before the rename, so that the name does not refer to an incomplete
// file after a power failure.
bool Flush(const char *szPath) {
    const Descriptor file(open(szPath, O_RDONLY | O_NOFOLLOW | O_CLOEXEC));
    return file.IsOpen() && fsync(file.Get()) == 0;
}

bool CopyWithModeAndTimes(const char *szSrcPath, const char *szPath, StepFailure &failure) {
    if (!IsRegularFile(szSrcPath)) {
        failure.Set(Step::kVerifySource, szSrcPath, EINVAL);
        return false;
    }
    const int nStatus = TLIBCExec(kCopyProgram, "-f", "-p", PathArgument(szSrcPath).Get(), szPath);
    if (nStatus != 0) {
        failure.SetProgram(Step::kStage, kCopyProgram, nStatus, szPath);
        return false;
    }
    if (!Flush(szPath)) {
        failure.Set(Step::kStage, szPath, errno);
        return false;
    }
    return true;
}

int Rename(const char *szFrom, const char *szTo, StepFailure &failure) {
    if (rename(szFrom, szTo) < 0) {
        const int nErrno = errno;
        failure.Set(Step::kReplace, szFrom, nErrno);
        return TAVO_FAIL(TLIBC_ERR_RENAME, "Failed to rename %s to %s: %s", szFrom, szTo,
                         std::strerror(nErrno));
    }
    return 0;
}

// A copy that is incomplete or cannot be renamed is left in the folder for diagnosis.
int PlaceFile(const char *szBaseName, const char *szSrcPath, const char *szDirectory,
              StepFailure &failure) {
    char szTarget[kPathSize];
    PrintText(szTarget, "%s/%s", szDirectory, szBaseName);
    const StoreLock lock(StoreOfDirectory(szDirectory));
    if (!lock.IsHeld()) {
        return lock.Fail(TAVO_HERE, "to install ", szTarget, failure);
    }
    char szFolder[kPathSize];
    PrintText(szFolder, "%s/%s", szDirectory, kInstallFolder);
    if (MakeDirectory(szDirectory, failure) < 0 || MakeDirectory(szFolder, failure) < 0) {
        return -1;
    }
    char szCopy[kPathSize];
    PrintText(szCopy, "%s/%s%s", szFolder, szBaseName, kInstallTail);
    if (ReserveName(szBaseName, szCopy, failure) < 0) {
        return -1;
    }
    if (!CopyWithModeAndTimes(szSrcPath, szCopy, failure)) {
        return TAVO_FAIL_STATE(TAVO_ERR_COPY, "install configure file fail! from=%s to=%s",
                               szSrcPath, szTarget);
    }
    return Rename(szCopy, szTarget, failure);
}

}  // namespace

int InstallFile(const char *name, const char *source, int location,
                TAVO_SERVICE_CONF_PORT **conflicts, StepFailure &failure) {
    ReleaseHeldFile();
    const char *directory = InstallDirectory(location);
    if (source == nullptr || directory == nullptr) {
        return failure.RefuseArguments(TAVO_HERE);
    }
    if (CheckSource(source, directory, failure) < 0) {
        return -1;
    }
    if (LeadsAway(name)) {
        return failure.RefuseArguments(TAVO_HERE);
    }
    const bool conflict = ReportConflict(source, conflicts);
    if (PlaceFile(name, source, directory, failure) < 0) {
        return -1;
    }
    return conflict ? 1 : 0;
}

}  // namespace tavo

int GetInstallPath(const char *szBaseName, int nLocation, char *szBuf, int cbBuf) {
    const char *szDirectory = tavo::InstallDirectory(nLocation);
    if (tavo::LeadsAway(szBaseName) || szDirectory == nullptr || szBuf == nullptr || cbBuf < 1) {
        return TAVO_SET_ERROR(TLIBC_ERR_BAD_PARAMETER);
    }
    std::snprintf(szBuf, static_cast<std::size_t>(cbBuf), "%s/%s", szDirectory, szBaseName);
    return 0;
}

int ServiceConfInstall(const char *szBaseName, const char *szSrcPath, int nLocation,
                       TAVO_SERVICE_CONF_PORT **ppConflictPorts) {
    tavo::StepFailure failure;
    return tavo::InstallFile(szBaseName, szSrcPath, nLocation, ppConflictPorts, failure);
}
