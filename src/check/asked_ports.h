// The ports that a check is called with: the number of each list entry, and an index of the
// distinct ports in ascending order. Data about other ports need not be stored.
#ifndef TAVO_SRC_CHECK_ASKED_PORTS_H
#define TAVO_SRC_CHECK_ASKED_PORTS_H

#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <memory>

#include "model/port_text.h"
#include "support/owners.h"

namespace tavo {

class AskedPorts {
  public:
    // Returns false when out of memory.
    bool Read(const TLIBCSzList *list) {
        count_ = TLIBCSzListCount(list);
        ports_.reset(NewArray(static_cast<std::size_t>(count_) + 1));
        places_.reset(NewArray(kHighestPort + 2));
        if (!ports_ || !places_) {
            return false;
        }
        for (int i = 0; i < count_; ++i) {
            ScanPort(TLIBCSzListGet(list, i), ports_.get()[i]);
            places_.get()[ports_.get()[i]] = 1;
        }
        // Port 0 is not a valid port and is never looked up.
        uint16_t below = 0;
        places_.get()[0] = 0;
        for (unsigned int port = 0; port <= kHighestPort + 1; ++port) {
            const uint16_t asked = places_.get()[port];
            places_.get()[port] = below;
            below = static_cast<uint16_t>(below + asked);
        }
        return true;
    }

    int Count() const { return count_; }

    // The port of the list entry at `index`, 0 if the entry is not a port.
    uint16_t operator[](int index) const { return ports_.get()[index]; }

    // The number of distinct requested ports below `port`, which is at most 65536. For a requested
    // port this is its index.
    std::size_t PlaceOf(unsigned int port) const { return places_.get()[port]; }

    std::size_t Places() const { return PlaceOf(kHighestPort + 1); }

  private:
    static uint16_t *NewArray(std::size_t size) {
        return static_cast<uint16_t *>(std::calloc(size, sizeof(uint16_t)));
    }

    using Array = std::unique_ptr<uint16_t, FreeWith<std::free>>;

    int count_ = 0;
    Array ports_;   // by list index
    Array places_;  // the index of each port, then the number of distinct ports
};

}  // namespace tavo

#endif
