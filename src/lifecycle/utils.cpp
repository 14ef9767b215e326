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
const char *InstallDirectory(int location) {
    for (const ServiceFolder &folder : kServiceFolders) {
        if (folder.selector == location) {
            return folder.path;
        }
    }
    return nullptr;
}

// An installed file with the same name is not an error, since it is replaced.
int CheckSource(const char *source, const char *directory, StepFailure &failure) {
    if (TAVOServiceConfFileVerify(source, directory) == 0) {
        return 0;
    }
    if (TLIBCErrGet() == TAVO_ERR_ALREADY_INSTALLED) {
        TLIBCErrSetEx(0, __FILE_NAME__, __LINE__);
        return 0;
    }
    failure.Set(Step::kVerifySource, source);
    return TLIBCErrGet() == TLIBC_ERR_NO_FILE
               ? TAVO_LOG_STATE("Source configure file does not exist (%s)", source)
               : TAVO_LOG_STATE("install configue file fail! (%s)", source);
}

// True if the ports of the file are in conflict with others. A failed check does not prevent the
// installation.
bool ReportConflict(const char *source, TAVO_SERVICE_CONF_PORT **conflicts) {
    const int result = TLIBIsConfPortConflict(source, conflicts);
    if (result == 1) {
        TAVO_LOG("%s conf file port conflict with existed conf file setting", source);
    } else if (result != 0) {
        TAVO_LOG("check %s conf file port conflict failed=%d", source, result);
    }
    return result == 1;
}

int MakeDirectory(const char *directory, StepFailure &failure) {
    if (MakeFolder(directory, failure) != 0) {
        return TAVO_FAIL_STATE(TAVO_ERR_MAKE_DIRECTORY, "mkdir fail for path %s", directory);
    }
    return 0;
}

// Creates an empty file with a unique name and stores its path in `path`.
int ReserveName(const char *name, char *path, StepFailure &failure) {
    const Descriptor file(mkstemp(path));
    if (!file.IsOpen()) {
        failure.Set(Step::kMakeFile, path, errno);
        return TAVO_LOG("Failed to mkstemp() for installing service conf of %s: %s", name,
                        std::strerror(errno));
    }
    return 0;
}

// Writes the content to disk before the rename, so that the name does not refer to an incomplete
// file after a power failure.
bool Flush(const char *path) {
    const Descriptor file(open(path, O_RDONLY | O_NOFOLLOW | O_CLOEXEC));
    return file.IsOpen() && fsync(file.Get()) == 0;
}

bool CopyWithModeAndTimes(const char *source, const char *copy, StepFailure &failure) {
    if (!IsRegularFile(source)) {
        failure.Set(Step::kVerifySource, source, EINVAL);
        return false;
    }
    const int status = TLIBCExec(kCopyProgram, "-f", "-p", PathArgument(source).Get(), copy);
    if (status != 0) {
        failure.SetProgram(Step::kStage, kCopyProgram, status, copy);
        return false;
    }
    if (!Flush(copy)) {
        failure.Set(Step::kStage, copy, errno);
        return false;
    }
    return true;
}

int Rename(const char *from, const char *to, StepFailure &failure) {
    if (rename(from, to) < 0) {
        const int error = errno;
        failure.Set(Step::kReplace, from, error);
        return TAVO_FAIL(TLIBC_ERR_RENAME, "Failed to rename %s to %s: %s", from, to,
                         std::strerror(error));
    }
    return 0;
}

// A copy that is incomplete or cannot be renamed is left in the folder for diagnosis.
int PlaceFile(const char *name, const char *source, const char *directory, StepFailure &failure) {
    char target[kPathSize];
    PrintText(target, "%s/%s", directory, name);
    const StoreLock lock(StoreOfDirectory(directory));
    if (!lock.IsHeld()) {
        return lock.Fail(TAVO_HERE, "to install ", target, failure);
    }
    char folder[kPathSize];
    PrintText(folder, "%s/%s", directory, kInstallFolder);
    if (MakeDirectory(directory, failure) < 0 || MakeDirectory(folder, failure) < 0) {
        return -1;
    }
    char copy[kPathSize];
    PrintText(copy, "%s/%s%s", folder, name, kInstallTail);
    if (ReserveName(name, copy, failure) < 0) {
        return -1;
    }
    if (!CopyWithModeAndTimes(source, copy, failure)) {
        return TAVO_FAIL_STATE(TAVO_ERR_COPY, "install configure file fail! from=%s to=%s", source,
                               target);
    }
    return Rename(copy, target, failure);
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
    const char *directory = tavo::InstallDirectory(nLocation);
    if (tavo::LeadsAway(szBaseName) || directory == nullptr || szBuf == nullptr || cbBuf < 1) {
        return TAVO_SET_ERROR(TLIBC_ERR_BAD_PARAMETER);
    }
    std::snprintf(szBuf, static_cast<std::size_t>(cbBuf), "%s/%s", directory, szBaseName);
    return 0;
}

int ServiceConfInstall(const char *szBaseName, const char *szSrcPath, int nLocation,
                       TAVO_SERVICE_CONF_PORT **ppConflictPorts) {
    tavo::StepFailure failure;
    return tavo::InstallFile(szBaseName, szSrcPath, nLocation, ppConflictPorts, failure);
}
