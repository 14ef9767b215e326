// Reads every service file of the system and package directories into one list.
#include <fcntl.h>

#include <cerrno>
#include <cstring>

#include "base/descriptor.h"
#include "model/service_files.h"
#include "support/failure.h"
#include "support/held_file.h"
#include "support/listing.h"
#include "support/presence.h"
#include "tavoserviceconf.h"

namespace {

using tavo::Reading;
using tavo::ReadingReport;
using tavo::ServiceFolder;

// Packages install their service file as a link into their own folder. An entry of unknown type
// (the file system does not report it) is skipped, which is kept.
bool IsFileOrLink(const dirent &entry) {
    return entry.d_type == DT_REG || entry.d_type == DT_LNK;
}

// A directory that cannot be listed counts as empty. If it is absent or not a directory, it really
// is empty; otherwise its contents are unknown.
Reading WhyNotListed(const char *directory, int error) {
    if (error == ENOTDIR || tavo::PresenceOf(directory) == tavo::Presence::kAbsent) {
        return Reading::Good();
    }
    return Reading::Unknown(error == ENOMEM ? TLIBC_ERR_NO_MEMORY : TAVO_ERR_LIST_DIRECTORY);
}

Reading ReadEntry(const char *path, const ServiceFolder &folder, TAVO_SERVICE_CONF **list,
                  ReadingReport *report) {
    if (report == nullptr) {
        return tavo::ReadServiceFile(path, list, nullptr);
    }
    report->BeginFile(folder, path);
    const Reading reading = tavo::ReadServiceFile(path, list, report);
    report->EndFile(reading, list);
    return reading;
}

// Returns the number of files read. Every file is tried, whatever its name; one that is not a
// service file fails to parse and does not count.
int ReadFolder(const ServiceFolder &folder, TAVO_SERVICE_CONF **list, ReadingReport *report) {
    const tavo::Listing listing(folder.path);
    if (listing.Failed()) {
        const int error = errno;
        if (report != nullptr) {
            report->NoteFolder(WhyNotListed(folder.path, error), folder, error);
        }
        TAVO_SET_ERROR(TAVO_ERR_LIST_DIRECTORY);
        return 0;
    }
    int files = 0;
    tavo::Descriptor directory(open(folder.path, O_PATH | O_DIRECTORY | O_CLOEXEC));
    // The last free descriptor is needed for the files, which are then opened by their whole paths.
    if (!tavo::Descriptor(fcntl(directory.Get(), F_DUPFD_CLOEXEC, 0)).IsOpen()) {
        directory.Reset();
    }
    tavo::HeldFile held;
    for (const dirent *entry : listing) {
        if (!IsFileOrLink(*entry)) {
            continue;
        }
        char path[tavo::kPathSize];  // longer than a service folder and the longest name
        stpcpy(stpcpy(stpcpy(path, folder.path), "/"), entry->d_name);
        held.HoldNext(directory.Get(), path);
        files += ReadEntry(path, folder, list, report).IsGood() ? 1 : 0;
    }
    return files;
}

}  // namespace

int tavo::ReadServiceFiles(TAVO_SERVICE_CONF **list, int folders, ReadingReport *report) {
    int files = 0;
    for (const ServiceFolder &folder : kServiceFolders) {
        if ((folders & folder.selector) != 0) {
            files += ReadFolder(folder, list, report);
        }
    }
    return files;
}

int TAVOServiceConfEnum(TAVO_SERVICE_CONF **ppList, int nDirFlags) {
    if (ppList == nullptr || (nDirFlags & tavo::kEveryServiceFolder) == 0) {
        return TAVO_SET_ERROR(TLIBC_ERR_BAD_PARAMETER);
    }
    return tavo::ReadServiceFiles(ppList, nDirFlags, nullptr);
}
