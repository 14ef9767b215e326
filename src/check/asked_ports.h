// The ports that a check is asked for: each text of a list as a number, and the different ports
// among them in ascending order, so that what is known of other ports need not be kept.
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
    // False when out of memory.
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
        // Port 0 is never looked up.
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

    // The port that the text at that index of the list gives, 0 when it gives none.
    uint16_t operator[](int index) const { return ports_.get()[index]; }

    // How many different ports below `port`, up to 65536, are asked for. Each port that is asked
    // for has its place there.
    std::size_t PlaceOf(unsigned int port) const { return places_.get()[port]; }

    std::size_t Places() const { return PlaceOf(kHighestPort + 1); }

  private:
    static uint16_t *NewArray(std::size_t size) {
        return static_cast<uint16_t *>(std::calloc(size, sizeof(uint16_t)));
    }

    using Array = std::unique_ptr<uint16_t, FreeWith<std::free>>;

    int count_ = 0;
    Array ports_;   // of each text
    Array places_;  // of each port, and the number of all behind the highest
};

}  // namespace tavo

#endif
