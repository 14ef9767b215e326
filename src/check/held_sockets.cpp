#include "check/held_sockets.h"

#include <unistd.h>

#include <cerrno>
#include <cstdlib>

#include "support/failure.h"

namespace tavo {
namespace {

bool IsAbsent(const char *path) {
    return access(path, F_OK) != 0 && errno == ENOENT;
}

}  // namespace

bool HeldSockets::Fail(unsigned int code, const char *path) {
    code_ = code != 0 ? code : TLIBC_ERR_FILE_UNUSABLE;
    path_ = path;
    return false;
}

bool HeldSockets::Read() {
    GrowingArray<SocketRecord> found;
    GrowingArray<SocketRecord> left;
    {
        InodeHolders holders;
        if (!holders.Collect(TAVO_HERE)) {
            return Fail(TLIBCErrGet(), nullptr);
        }
        if (!ReadTables(found) || !AddHeld(holders, found, left)) {
            return false;
        }
    }
    return left.Count() == 0 || LookAgain(left);
}

bool HeldSockets::ReadTables(GrowingArray<SocketRecord> &sockets) {
    for (const SocketTable &table : kSocketTables) {
        if (!(table.optional && IsAbsent(table.path)) &&
            !ReadTable(table.path, table.protocol, sockets)) {
            return false;
        }
    }
    return true;
}

// Sockets without an inode belong to the kernel and are skipped.
bool HeldSockets::ReadTable(const char *path, uint16_t protocol,
                            GrowingArray<SocketRecord> &sockets) {
    const OwnedNames lines =
        SocketTableExists(TAVO_HERE, path) ? ReadSocketTable(TAVO_HERE, path) : nullptr;
    if (!lines) {
        return Fail(TLIBCErrGet(), path);
    }
    const int count = TLIBCSzListCount(lines.get());
    for (int i = 0; i < count; ++i) {
        const char *line = TLIBCSzListGet(lines.get(), i);
        RawSocketInfo info{};
        if (ReadSocketLine(line, info) && info.ulInode != 0 &&
            !sockets.Append(
                {ReadSocketAddress(line), protocol, info.uPort, info.uState, info.ulInode, 0, 0})) {
            TAVO_FAIL_ALLOC("sockets");
            return Fail(TLIBC_ERR_NO_MEMORY, path);
        }
    }
    return true;
}

// Adds the process as a holder of the last socket, unless it has ended. A process that is gone has
// no executable, and neither has a zombie.
bool HeldSockets::AddHolder(const char *pid) {
    const auto number = static_cast<uint32_t>(std::strtoul(pid, nullptr, 10));
    std::size_t place = 0;
    const KeySet::Result added = known_pids_.Add(number, 0, &place);
    if (added == KeySet::Result::kNoMemory) {
        return false;
    }
    if (added == KeySet::Result::kAdded) {
        const OwnedText program = ReadProgram(number);
        const bool ended = program == nullptr && (errno == ENOENT || errno == ESRCH);
        if (program == nullptr && errno == ENOMEM) {
            return false;
        }
        const char *kept = program != nullptr ? texts_.Keep(program.get()) : nullptr;
        if ((program != nullptr && kept == nullptr) || !processes_.Append({number, kept, ended})) {
            return false;
        }
    }
    return processes_[place].ended || holders_.Append(place);
}

// Adds the sockets that have holders. The others are appended to `left`.
bool HeldSockets::AddHeld(const InodeHolders &holders, const GrowingArray<SocketRecord> &found,
                          GrowingArray<SocketRecord> &left) {
    for (SocketRecord socket : found) {
        socket.first_holder = holders_.Count();
        bool stored =
            holders.ForEachHolder(socket.inode, [this](const char *pid) { return AddHolder(pid); });
        socket.holders = holders_.Count() - socket.first_holder;
        stored = stored && (socket.holders != 0 ? sockets_ : left).Append(socket);
        if (!stored) {
            TAVO_FAIL_ALLOC("holders");
            return Fail(TLIBC_ERR_NO_MEMORY, nullptr);
        }
    }
    return true;
}

bool HeldSockets::LookAgain(const GrowingArray<SocketRecord> &left) {
    InodeHolders holders;
    GrowingArray<SocketRecord> unknown;
    if (!holders.Collect(TAVO_HERE)) {
        if (TLIBCErrGet() == TLIBC_ERR_NO_MEMORY) {
            return Fail(TLIBC_ERR_NO_MEMORY, nullptr);
        }
        return AddUnknown(left);
    }
    return AddHeld(holders, left, unknown) && AddUnknown(unknown);
}

// Adds the sockets that are still open, or all of them if the tables cannot be read again.
bool HeldSockets::AddUnknown(const GrowingArray<SocketRecord> &left) {
    if (left.Count() == 0) {
        return true;
    }
    GrowingArray<SocketRecord> now;
    const bool known = ReadTables(now);
    if (!known && code_ == TLIBC_ERR_NO_MEMORY) {
        return false;
    }
    KeySet open;
    bool stored = true;
    for (const SocketRecord &socket : now) {
        stored = stored && open.Add(socket.inode, 0) != KeySet::Result::kNoMemory;
    }
    for (const SocketRecord &socket : left) {
        const bool closed = known && open.NumberOf(socket.inode, 0) == KeySet::kNone;
        stored = stored && (closed || sockets_.Append(socket));
    }
    if (!stored) {
        TAVO_FAIL_ALLOC("sockets");
        return Fail(TLIBC_ERR_NO_MEMORY, nullptr);
    }
    return true;
}

}  // namespace tavo
