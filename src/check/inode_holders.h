// Which processes hold which socket, collected process by process.
#ifndef TAVO_SRC_CHECK_INODE_HOLDERS_H
#define TAVO_SRC_CHECK_INODE_HOLDERS_H

#include <cerrno>
#include <charconv>
#include <cstddef>
#include <cstdint>

#include "check/key_set.h"
#include "support/failure.h"
#include "support/growing_array.h"
#include "support/owners.h"

namespace tavo {

// Room for the target of a link; what is longer is cut.
constexpr std::size_t kLinkSize = 1024;

// The error code for a system call that failed with this errno.
constexpr unsigned int ErrorOfCall(int nError) {
    return nError == ENOMEM ? TLIBC_ERR_NO_MEMORY : TLIBC_ERR_FILE_UNUSABLE;
}

// Whether that errno says that a process is gone, even while its folder is being read, or that the
// caller has no permission to look at it. ENAMETOOLONG is what the kernel gives for the link of a
// file whose path is longer than a page: no socket has one.
constexpr bool IsOutOfReach(int nError) {
    return nError == ENOENT || nError == ESRCH || nError == ENOTDIR || nError == ENAMETOOLONG ||
           nError == EACCES || nError == EPERM;
}

// An inode as the key of the table of holders, in decimal.
class InodeKey {
  public:
    explicit InodeKey(uint64_t ulInode) {
        *std::to_chars(szText_, szText_ + sizeof(szText_) - 1, ulInode).ptr = '\0';
    }
    const char *Get() const { return szText_; }

  private:
    char szText_[sizeof("18446744073709551615")];
};

// A socket that a thousand processes share is written once, when all of them are known.
class InodeHolders {
  public:
    // Enters the sockets that the process holds; its number, a text of the caller's, must outlive
    // this object. A process that is gone, or that the caller has no permission to look at, has
    // none. 0, else the error code of what kept its sockets from being read: the holders are
    // incomplete then, and only StoreIn may still be called.
    unsigned int AddProcess(const char *szPid);

    // Enters the sockets of all processes. False, which is logged, when a holder may be missing:
    // the error state then says why. `here` is the place of the operation that reads.
    bool Collect(const Place &here);

    // Calls take(pid) for each process that holds the inode, with its number as it was added, the
    // last one first, until it returns false, which then is the answer.
    template <typename Take>
    bool ForEachHolder(uint64_t inode, Take take) const {
        const std::size_t place = numbers_.NumberOf(inode, 0);
        const char *former = nullptr;  // a process may hold it through several descriptors
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

    // Puts the collected processes in front of what the table names already. An inode whose value
    // cannot be stored is logged and left as it was, and false is the answer.
    bool StoreIn(const Place &here, TLIBCSzHash *pInodeToPidsTable) const;

  private:
    static constexpr std::size_t kNone = SIZE_MAX;

    struct Inode {
        uint64_t ulInode;
        std::size_t nLastHolder;
        std::size_t nTextLength;  // of the text that names all holders
    };
    struct Holder {
        const char *szPid;
        std::size_t nBefore;  // the one that was entered before it, or kNone
    };

    unsigned int AddDescriptors(int nFolder, const char *szPid);
    unsigned int AddLink(int nFolder, const char *szName, const char *szPid);
    bool Add(uint64_t ulInode, const char *szPid);
    bool Store(const Place &here, const Inode &inode, TLIBCSzHash *pInodeToPidsTable) const;
    void PrintValue(const Inode &inode, const char *szKnown, char *szBuf, std::size_t nSize) const;

    OwnedNames pids_;             // of Collect
    KeySet numbers_;              // gives each inode its place in inodes_
    GrowingArray<Inode> inodes_;  // in the order in which they were met
    GrowingArray<Holder> holders_;
};

// `here` is the place of the operation that reads, which the log lines name.

// The numbers of all processes; null, which is logged, without memory for the list. `error` is set
// to 0, or to the error code of what kept processes out of the list.
OwnedNames ListPids(const Place &here, unsigned int &error);

// Enters the sockets of a process; false, which is logged, when that cannot be done in full.
bool AddProcess(const Place &here, const char *pid, InodeHolders &holders);

// The executable of a process; null when it cannot be read, for the reason in errno, which is 0 for
// an empty link.
OwnedText ReadProgram(uint32_t pid);

}  // namespace tavo

#endif
