// The sockets that processes currently hold, and their holders. The kernel's tables list the
// sockets with their inodes, and the descriptors of each process give the inodes that it has open.
#ifndef TAVO_SRC_CHECK_HELD_SOCKETS_H
#define TAVO_SRC_CHECK_HELD_SOCKETS_H

#include <cstddef>
#include <cstdint>
#include <span>

#include "check/inode_holders.h"
#include "check/socket_tables.h"
#include "support/growing_array.h"

namespace tavo {

struct SocketRecord {
    SocketAddress address;
    uint16_t protocol;  // TAVO_PROTO_TCP or TAVO_PROTO_UDP
    uint16_t port;
    uint32_t state;  // kernel's number
    uint64_t inode;

    // The range of the socket's holders in the list of all holders. If it is empty, the holders are
    // unknown.
    std::size_t first_holder;
    std::size_t holders;
};

struct HoldingProcessRecord {
    uint32_t pid;
    const char *program;  // its executable; null if it cannot be read
    bool ended;           // it is not a holder then
};

class HeldSockets {
  public:
    // Reads the processes before the sockets, so that a process that ends in between is not
    // reported as the holder of a port that another process now holds. A socket without a holder
    // may have been opened, or passed to another process, after the processes were read, so these
    // are looked up a second time. Sockets that are closed by then are omitted; the holders of the
    // remaining ones are unknown. Sockets that only the kernel still has, such as those in
    // TIME_WAIT, are omitted: no process holds them.
    //
    // Call it once. Returns false on failure, which is logged; Code() and Path() give the cause.
    bool Read();

    // In the order of the tables; those that had no holder in the first lookup are at the end.
    std::span<const SocketRecord> Sockets() const { return {sockets_.begin(), sockets_.Count()}; }

    // The processes that hold a socket, as indexes into Processes().
    std::span<const std::size_t> HoldersOf(const SocketRecord &socket) const {
        return {holders_.begin() + socket.first_holder, socket.holders};
    }
    std::span<const HoldingProcessRecord> Processes() const {
        return {processes_.begin(), processes_.Count()};
    }

    // After a failed Read: the error code, and the table that could not be read. The path is null
    // if the processes could not be read.
    unsigned int Code() const { return code_; }
    const char *Path() const { return path_; }

  private:
    bool Fail(unsigned int code, const char *path);
    bool ReadTables(GrowingArray<SocketRecord> &sockets);
    bool ReadTable(const char *path, uint16_t protocol, GrowingArray<SocketRecord> &sockets);
    bool AddHolder(const char *pid);
    bool AddHeld(const InodeHolders &holders, const GrowingArray<SocketRecord> &found,
                 GrowingArray<SocketRecord> &left);
    bool LookAgain(const GrowingArray<SocketRecord> &left);
    bool AddUnknown(const GrowingArray<SocketRecord> &left);

    GrowingArray<SocketRecord> sockets_;
    GrowingArray<std::size_t> holders_;
    GrowingArray<HoldingProcessRecord> processes_;
    KeySet known_pids_;  // gives each process its index in processes_
    KeptTexts texts_;
    unsigned int code_ = 0;
    const char *path_ = nullptr;
};

}  // namespace tavo

#endif
