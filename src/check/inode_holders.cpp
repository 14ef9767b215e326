// The sockets of a process are links in its descriptor folder that read "socket:[INODE]" (proc(5)).
// The links are read and never followed, since a target may be on a mount that does not respond.
#include "check/inode_holders.h"

#include <dirent.h>
#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <cinttypes>
#include <cstdio>
#include <cstring>

#include "base/owners.h"
#include "support/listing.h"
#include "support/text.h"

namespace tavo {
namespace {

constexpr std::size_t kFolderPathSize = 1024;

// Buffer size for a value in a log line. A longer value is truncated.
constexpr std::size_t kShownValueSize = 1024;

// Reads the number after `prefix` as "%lu" does. Returns false if the text has another form.
bool NumberAfter(const char *prefix, const char *text, uint64_t &number) {
    const std::size_t length = std::strlen(prefix);
    if (std::strncmp(text, prefix, length) != 0) {
        return false;
    }
    char *end = nullptr;
    number = std::strtoul(text + length, &end, 10);
    return end != text + length;
}

// The form is "socket:[8123]", or "[0000]:8123" in kernels before 2.6.
bool InodeOfLink(const char *target, uint64_t &inode) {
    return NumberAfter("socket:[", target, inode) || NumberAfter("[0000]:", target, inode);
}

// The error code for a failed system call on a process; 0 if the process is gone or not accessible.
unsigned int FaultOf(int error_number) {
    return IsOutOfReach(error_number) ? 0 : ErrorOfCall(error_number);
}

}  // namespace

// Returns 0, or the error code if the sockets of the process could not be read.
unsigned int InodeHolders::AddDescriptors(const char *pid) {
    char path[kFolderPathSize];
    const int length = std::snprintf(path, sizeof(path), "/proc/%s/fd", pid);
    if (length < 0 || static_cast<std::size_t>(length) >= sizeof(path)) {
        return 0;
    }
    const int folder_fd = open(path, O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    const OwnedFolder folder(folder_fd < 0 ? nullptr : fdopendir(folder_fd));
    if (!folder) {
        const unsigned int error = FaultOf(errno);
        if (folder_fd >= 0) {
            close(folder_fd);
        }
        return error;
    }
    unsigned int first_error = 0;
    for (;;) {
        errno = 0;  // readdir does not set it at the end of the folder
        const dirent *entry = readdir(folder.get());
        if (entry == nullptr) {
            const unsigned int error = errno == 0 ? 0 : FaultOf(errno);
            return first_error != 0 ? first_error : error;
        }
        if (entry->d_name[0] == '.') {
            continue;  // "." and ".." are not descriptors
        }
        // A link that cannot be read is skipped, and the remaining links are added.
        const unsigned int error = AddLink(folder_fd, entry->d_name, pid);
        if (error == TLIBC_ERR_NO_MEMORY) {
            return error;
        }
        first_error = first_error != 0 ? first_error : error;
    }
}

unsigned int InodeHolders::AddLink(int folder_fd, const char *name, const char *pid) {
    char target[kLinkSize];
    const ssize_t length = readlinkat(folder_fd, name, target, kLinkSize - 1);
    if (length < 0) {
        return errno == EINVAL ? 0 : FaultOf(errno);  // EINVAL: not a link
    }
    target[length] = '\0';
    uint64_t inode = 0;
    return InodeOfLink(target, inode) && !Add(inode, pid) ? TLIBC_ERR_NO_MEMORY : 0;
}

bool InodeHolders::Add(uint64_t number, const char *pid) {
    std::size_t place = 0;
    const KeySet::Result added = numbers_.Add(number, 0, &place);
    if (added == KeySet::Result::kNoMemory) {
        return false;
    }
    const bool known = added == KeySet::Result::kKnown;
    // The holder is appended first, so that an inode without a holder is never added.
    if (!holders_.Append({pid, known ? inodes_[place].last_holder : kNone}) ||
        (!known && !inodes_.Append({number, kNone, 0}))) {
        return false;
    }
    Inode &inode = inodes_[place];
    inode.last_holder = holders_.Count() - 1;
    inode.text_length += std::strlen(pid) + 1;
    return true;
}

bool InodeHolders::StoreIn(const Place &here, TLIBCSzHash *table) const {
    bool stored = true;
    for (const Inode &inode : inodes_) {
        stored = Store(here, inode, table) && stored;
    }
    return stored;
}

bool InodeHolders::Store(const Place &here, const Inode &inode, TLIBCSzHash *table) const {
    const Decimal key(inode.number);
    const char *stored = TLIBCSzHashGetValue(table, key.Get());
    const char *current = stored == nullptr ? "" : stored;
    const std::size_t size = inode.text_length + std::strlen(current) + 1;
    const OwnedText value(static_cast<char *>(std::malloc(size)));
    if (value) {
        PrintValue(inode, current, value.get(), size);
        if (TLIBCSzHashSetValue(table, key.Get(), value.get()) == 0) {
            return true;
        }
    }
    char shown[kShownValueSize];
    PrintValue(inode, current, shown, sizeof(shown));
    TAVO_FAIL_AT(here, TLIBC_ERR_NO_MEMORY, "Failed to update (%s, %s) inode-to-pids table.",
                 key.Get(), shown);
    return false;
}

// Prints the holders, each followed by a comma, and then the current value of the table, truncated
// to the buffer.
void InodeHolders::PrintValue(const Inode &inode, const char *current, char *buffer,
                              std::size_t size) const {
    const auto print = [&](const char *text) {
        const std::size_t length = std::min(std::strlen(text), size - 1);
        buffer = static_cast<char *>(mempcpy(buffer, text, length));
        size -= length;
    };
    for (std::size_t i = inode.last_holder; i != kNone && size > 1; i = holders_[i].previous) {
        print(holders_[i].pid);
        print(",");
    }
    print(current);
    *buffer = '\0';
}

// ---- All processes ----

// In /proc, names that are numbers sort before all others, so the loop ends at the first other
// name.
OwnedNames ListPids(const Place &here, unsigned int &error) {
    constexpr int kProcesses = 512;  // initial capacity
    OwnedNames pids(TLIBCSzListAlloc(kProcesses));
    const Listing listing("/proc");
    error = listing.Failed() ? ErrorOfCall(errno) : 0;
    if (!pids || error == TLIBC_ERR_NO_MEMORY) {
        TAVO_FAIL_ALLOC_AT(here, "pslPidList");
        return nullptr;
    }
    for (const dirent *entry : listing) {
        int pid = 0;
        if (entry->d_name[0] == '.') {
            continue;
        }
        if (std::sscanf(entry->d_name, "%d", &pid) != 1) {
            break;
        }
        char text[sizeof("-2147483648")];
        std::snprintf(text, sizeof(text), "%d", pid);
        if (!Push(pids, text)) {
            TAVO_LOG_AT(here, "Failed to TLIBCSzListPush %p %s", static_cast<void *>(pids.get()),
                        text);
            error = TLIBC_ERR_NO_MEMORY;
        }
    }
    return pids;
}

bool InodeHolders::AddProcess(const Place &here, const char *pid) {
    const unsigned int error = AddDescriptors(pid);
    if (error == TLIBC_ERR_NO_MEMORY) {
        TAVO_FAIL_ALLOC_AT(here, "pInodeToPidsTable");
    } else if (error != 0) {
        TAVO_FAIL_AT(here, error, "Failed to read the sockets of process %s.[0x%04X]", pid, error);
    }
    return error == 0;
}

bool InodeHolders::Collect(const Place &here) {
    unsigned int error = 0;
    pids_ = ListPids(here, error);
    if (!pids_) {
        TAVO_FAIL_ALLOC_AT(here, "pslPidList");
        return false;
    }
    if (error == TLIBC_ERR_NO_MEMORY) {
        TAVO_FAIL_ALLOC_AT(here, "pInodeToPidsTable");
        return false;
    }
    if (error != 0) {
        TAVO_FAIL_AT(here, error, "Failed to list /proc.[0x%04X]", error);
        return false;
    }
    const int count = TLIBCSzListCount(pids_.get());
    for (int i = 0; i < count; ++i) {
        const char *pid = TLIBCSzListGet(pids_.get(), i);
        if (pid == nullptr) {
            TAVO_LOG_AT(here, "Failed to TLIBCSzListGet %p %d",
                        static_cast<const void *>(pids_.get()), i);
        } else if (!AddProcess(here, pid)) {
            return false;
        }
    }
    return true;
}

OwnedText ReadProgram(uint32_t pid) {
    char path[sizeof("/proc/4294967295/exe")];
    std::snprintf(path, sizeof(path), "/proc/%" PRIu32 "/exe", pid);
    char target[kLinkSize];
    errno = 0;
    const ssize_t length = readlink(path, target, sizeof(target) - 1);
    if (length < 1) {
        return nullptr;
    }
    target[length] = '\0';
    return OwnedText(strdup(target));
}

}  // namespace tavo
