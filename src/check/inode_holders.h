// Maps socket inodes to the processes that hold them.
#ifndef TAVO_SRC_CHECK_INODE_HOLDERS_H
#define TAVO_SRC_CHECK_INODE_HOLDERS_H

#include <cerrno>
#include <cstddef>
#include <cstdint>

#include "check/key_set.h"
#include "support/failure.h"
#include "support/growing_array.h"
#include "support/owners.h"

namespace tavo {

// Buffer size for a link target. A longer target is truncated.
constexpr std::size_t kLinkSize = 1024;

// The error code for a system call that failed with this errno.
constexpr unsigned int ErrorOfCall(int error_number) {
    return error_number == ENOMEM ? TLIBC_ERR_NO_MEMORY : TLIBC_ERR_FILE_UNUSABLE;
}

// True if the errno means that a process is gone, possibly while its folder is being read, or that
// the caller has no permission to read it. ENAMETOOLONG is the kernel's error for the link of a
// file whose path is longer than a page; a socket never has one.
constexpr bool IsOutOfReach(int error_number) {
    return error_number == ENOENT || error_number == ESRCH || error_number == ENOTDIR ||
           error_number == ENAMETOOLONG || error_number == EACCES || error_number == EPERM;
}

// Collects all holders before any value is written, so that a socket that many processes share is
// written once.
class InodeHolders {
  public:
    // Both return false, after logging, if a holder may be missing; the error state then gives the
    // cause, and only StoreIn may still be called. `here` is the source location of the calling
    // operation.

    // Adds the sockets that the process holds. `pid` belongs to the caller and must outlive this
    // object. A process that is gone, or that the caller has no permission to read, has no sockets.
    bool AddProcess(const Place &here, const char *pid);

    // Adds the sockets of all processes.
    bool Collect(const Place &here);

    // Calls take(pid) for each process that holds the inode, the last added first. Stops and
    // returns false if take returns false.
    template <typename Take>
    bool ForEachHolder(uint64_t inode, Take take) const {
        const std::size_t place = numbers_.NumberOf(inode, 0);
        const char *former = nullptr;  // a process may hold the inode through several descriptors
        for (std::size_t i = place == KeySet::kNone ? kNone : inodes_[place].last_holder;
             i != kNone; i = holders_[i].previous) {
            const char *pid = holders_[i].pid;
            if (pid != former && !take(pid)) {
                return false;
            }
            former = pid;
        }
        return true;
    }

    // Prepends the collected processes to the values in the table. If a value cannot be stored,
    // this is logged, the table entry is unchanged, and the result is false.
    bool StoreIn(const Place &here, TLIBCSzHash *table) const;

  private:
    static constexpr std::size_t kNone = SIZE_MAX;

    struct Inode {
        uint64_t number;
        std::size_t last_holder;
        std::size_t text_length;  // length of the list of all holders as text
    };
    struct Holder {
        const char *pid;
        std::size_t previous;  // index of the previous holder of the inode, or kNone
    };

    unsigned int AddDescriptors(const char *pid);
    unsigned int AddLink(int folder_fd, const char *name, const char *pid);
    bool Add(uint64_t number, const char *pid);
    bool Store(const Place &here, const Inode &inode, TLIBCSzHash *table) const;
    void PrintValue(const Inode &inode, const char *current, char *buffer, std::size_t size) const;

    OwnedNames pids_;             // set by Collect
    KeySet numbers_;              // gives each inode its index in inodes_
    GrowingArray<Inode> inodes_;  // in the order of their first occurrence
    GrowingArray<Holder> holders_;
};

// Returns the ids of all processes; null, after logging, when out of memory for the list. `error`
// is set to 0, or to an error code if processes may be missing from the list. `here` is the source
// location of the calling operation.
OwnedNames ListPids(const Place &here, unsigned int &error);

// Returns the executable of a process; null if it cannot be read. errno then gives the cause; it is
// 0 for an empty link.
OwnedText ReadProgram(uint32_t pid);

}  // namespace tavo

#endif
