// The ports that sockets hold now, and which of them belong to skipped services.
#ifndef TAVO_SRC_ENGINE_USED_PORTS_H
#define TAVO_SRC_ENGINE_USED_PORTS_H

#include <algorithm>
#include <cstdint>
#include <cstdlib>

#include "engine/text_ranges.h"
#include "model/port_text.h"
#include "support/owners.h"

namespace tavo {

// The ports low..high, both from 0 to 65535.
inline PortSet PortsOf(long low, long high) {
    const auto beyond = static_cast<std::size_t>(kPortCount - 1 - (high - low));
    return (PortSet().set() >> beyond) << static_cast<std::size_t>(low);
}

// Adds the valid ports from the lower to the higher of two numbers.
void AddPorts(long start, long end, PortSet &ports);

// Adds the ports that the service of this name declares for the protocol. A name that is not a
// service is ignored.
void AddServicePorts(TAVO_FW_SERVICE *services, const char *name, uint32_t protocol,
                     PortSet &ports);

// The ports of the range that sockets hold now. There is one slot for each port: the networking
// library gets their number, but may not respect it.
class UsedPorts {
  public:
    explicit UsedPorts(const Range &range)
        : slot_count_(static_cast<std::size_t>(static_cast<int64_t>(range.high) - range.low + 1)),
          slots_(static_cast<int *>(std::calloc(slot_count_, sizeof(int)))) {}

    bool OutOfMemory() const { return slots_ == nullptr; }

    // Returns false if the networking library failed; the set is then empty. A failed query is
    // repeated once, so that one failed system call does not make a held port appear free.
    bool Ask(const Range &range, bool tcp);

    const int *begin() const { return slots_.get(); }
    const int *end() const { return slots_.get() + used_; }

  private:
    std::size_t slot_count_;
    MallocPtr<int> slots_;
    int used_ = 0;
};

// Adds all ports that sockets hold. Returns false if they are unknown; the error state has the
// code.
bool AddHeldPorts(bool tcp, PortSet &ports);

}  // namespace tavo

#endif
