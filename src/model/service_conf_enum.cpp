// Reads every service file of the system and package directories into one list.
#include <cerrno>
#include <cstdio>
#include <cstdlib>

#include "model/completeness.h"
#include "support/failure.h"
#include "support/listing.h"
#include "support/presence.h"
#include "support/service_directory.h"
#include "tavoserviceconf.h"

namespace {

// Packages install their service file as a link into their own folder. An entry whose type the file
// system does not report is passed over, which is kept.
bool IsFileOrLink(const dirent &entry) {
    return entry.d_type == DT_REG || entry.d_type == DT_LNK;
}

// A directory that cannot be listed counts as empty. One that is absent is empty, as is a file in
// its place: only what may hold service files all the same is unknown.
int FailToList(const char *szDirectory, int error) {
    if (error != ENOTDIR && tavo::PresenceOf(szDirectory) != tavo::Presence::kAbsent) {
        TAVO_SET_ERROR(error == ENOMEM ? TLIBC_ERR_NO_MEMORY : TAVO_ERR_LIST_DIRECTORY);
        tavo::Completeness::Note(tavo::Reading::kUnknown);
    }
    return TAVO_SET_ERROR(TAVO_ERR_LIST_DIRECTORY);
}

// How many files of the directory were read, -1 when it cannot be listed. Any file is tried,
// whatever its name: one that is no service file fails to read and does not count.
int ReadDirectory(const char *szDirectory, TAVO_SERVICE_CONF **ppList) {
    const tavo::Listing listing(szDirectory);
    if (listing.Failed()) {
        return FailToList(szDirectory, errno);
    }
    int nFiles = 0;
    for (const dirent *pEntry : listing) {
        if (!IsFileOrLink(*pEntry)) {
            continue;
        }
        char szPath[tavo::kPathSize];
        std::snprintf(szPath, sizeof(szPath), "%s/%s", szDirectory, pEntry->d_name);
        if (TAVOServiceConfGet(szPath, ppList) == 0) {
            ++nFiles;
        }
    }
    return nFiles;
}

}  // namespace

int TAVOServiceConfEnum(TAVO_SERVICE_CONF **ppList, int nDirFlags) {
    static constexpr struct {
        int nFlag;
        const char *szDirectory;
    } kDirectories[] = {
        {TAVO_SERVICE_CONF_DIR_SYSTEM, tavo::kSystemServiceDirectory},
        {TAVO_SERVICE_CONF_DIR_PACKAGE, tavo::kPackageServiceDirectory},
    };
    constexpr int nEveryFlag = TAVO_SERVICE_CONF_DIR_SYSTEM | TAVO_SERVICE_CONF_DIR_PACKAGE;
    if (ppList == nullptr || (nDirFlags & nEveryFlag) == 0) {
        return TAVO_SET_ERROR(TLIBC_ERR_BAD_PARAMETER);
    }
    int nFiles = 0;
    for (const auto &directory : kDirectories) {
        if ((nDirFlags & directory.nFlag) != 0) {
            const int nRead = ReadDirectory(directory.szDirectory, ppList);
            nFiles += nRead > 0 ? nRead : 0;
        }
    }
    return nFiles;
}
