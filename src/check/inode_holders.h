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
constexpr unsigned int ErrorOfCall(int nError) {
    return nError == ENOMEM ? TLIBC_ERR_NO_MEMORY : TLIBC_ERR_FILE_UNUSABLE;
}

// True if the errno means that a process is gone, possibly while its folder is being read, or that
// the caller has no permission to read it. ENAMETOOLONG is the kernel's error for the link of a
// file whose path is longer than a page; a socket never has one.
constexpr bool IsOutOfReach(int nError) {
    return nError == ENOENT || nError == ESRCH || nError == ENOTDIR || nError == ENAMETOOLONG ||
           nError == EACCES || nError == EPERM;
}

// Collects all holders before any value is written, so that a socket that many processes share is
// written once.
class InodeHolders {
  public:
    // Both return false, after logging, if a holder may be missing; the error state then gives the
    // cause, and only StoreIn may still be called. `here` is the source location of the calling
    // operation.

    // Adds the sockets that the process holds. `szPid` belongs to the caller and must outlive this
    // object. A process that is gone, or that the caller has no permission to read, has no sockets.
    bool AddProcess(const Place &here, const char *szPid);

    // Adds the sockets of all processes.
    bool Collect(const Place &here);

    // Calls take(pid) for each process that holds the inode, the last added first. Stops and
    // returns false if take returns false.
    template <typename Take>
    bool ForEachHolder(uint64_t inode, Take take) const {
        const std::size_t place = numbers_.NumberOf(inode, 0);
        const char *former = nullptr;  // a process may hold the inode through several descriptors
        for (std::size_t i = place == KeySet::kNone ? kNone : inodes_[place].nLastHolder;
             i != kNone; i = holders_[i].nBefore) {
            const char *pid = holders_[i].szPid;
            if (pid != former && !take(pid)) {
                return false;
            }
            former = pid;
        }
        return true;
    }

    // Prepends the collected processes to the values in the table. If a value cannot be stored,
    // this is logged, the table entry is unchanged, and the result is false.
    bool StoreIn(const Place &here, TLIBCSzHash *pInodeToPidsTable) const;

  private:
    static constexpr std::size_t kNone = SIZE_MAX;

    struct Inode {
        uint64_t ulInode;
        std::size_t nLastHolder;
        std::size_t nTextLength;  // length of the list of all holders as text
    };
    struct Holder {
        const char *szPid;
        std::size_t nBefore;  // index of the previous holder of the inode, or kNone
    };

    unsigned int AddDescriptors(const char *szPid);
    unsigned int AddLink(int nFolder, const char *szName, const char *szPid);
    bool Add(uint64_t ulInode, const char *szPid);
    bool Store(const Place &here, const Inode &inode, TLIBCSzHash *pInodeToPidsTable) const;
    void PrintValue(const Inode &inode, const char *szKnown, char *szBuf, std::size_t nSize) const;

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
