// An index of the entries for the requested ports, so that a check of many ports does not search
// all entries for each of them. A range is not expanded: only its requested ports use memory and
// time, since a service file of one kilobyte can declare millions of ports.
#ifndef TAVO_SRC_CHECK_PORT_INDEX_H
#define TAVO_SRC_CHECK_PORT_INDEX_H

#include <algorithm>
#include <bitset>
#include <cstddef>
#include <cstdint>

#include "model/port_text.h"
#include "support/growing_array.h"
#include "support/owners.h"

namespace tavo {

// A set of ports by number, so that a list need not be searched for each port.
using PortSet = std::bitset<kHighestPort + 1>;

// One chain of entries for each requested port and protocol, in the order of their addition. The
// sources of the entries must outlive the index.
template <typename Source>
class PortIndex {
  public:
    struct Entry {
        const Source *source;
        std::size_t next;  // index in the array plus 1; 0 in the last entry of a chain
    };

    // Requests the ports of a list and the protocols of the flags. Returns false when out of
    // memory.
    bool Init(const TLIBCSzList *list, unsigned int protocols) {
        PortSet asked;
        for (int i = 0; i < TLIBCSzListCount(list); ++i) {
            uint16_t port = 0;
            ScanPort(TLIBCSzListGet(list, i), port);
            asked.set(port);
        }
        // Port 0 is not a valid port and is never looked up.
        for (unsigned int port = 1; port <= kHighestPort; ++port) {
            if (asked[port] && !ports_.Append(static_cast<uint16_t>(port))) {
                return false;
            }
        }
        protocols_ = protocols;
        chains_.reset(static_cast<Chain *>(std::calloc(2 * ports_.Count() + 1, sizeof(Chain))));
        return chains_ != nullptr;
    }

    // Adds an entry for the ports `first` to `last` over TCP or UDP. Returns false when out of
    // memory.
    bool Add(uint16_t first, uint16_t last, unsigned int protocol, const Source *source) {
        if ((protocols_ & protocol) == 0) {
            return true;
        }
        for (const uint16_t *port = Find(first); port != ports_.end() && *port <= last; ++port) {
            if (!Append(ChainOf(port, protocol), source)) {
                return false;
            }
        }
        return true;
    }

    // The first entry of a requested port over TCP or UDP; null if there is none.
    const Entry *First(uint16_t port, unsigned int protocol) const {
        return At(ChainOf(Find(port), protocol).first);
    }
    const Entry *After(const Entry *entry) const { return At(entry->next); }

  private:
    struct Chain {
        std::size_t first;
        std::size_t last;
    };

    // The first requested port that is not lower.
    const uint16_t *Find(uint16_t port) const {
        return std::lower_bound(ports_.begin(), ports_.end(), port);
    }

    Chain &ChainOf(const uint16_t *port, unsigned int protocol) const {
        const auto place = static_cast<std::size_t>(port - ports_.begin());
        return chains_.get()[2 * place + (protocol == TAVO_PROTO_TCP ? 0 : 1)];
    }

    const Entry *At(std::size_t number) const {
        return number == 0 ? nullptr : &entries_[number - 1];
    }

    bool Append(Chain &chain, const Source *source) {
        if (!entries_.Append({source, 0})) {
            return false;
        }
        const std::size_t number = entries_.Count();
        (chain.first == 0 ? chain.first : entries_[chain.last - 1].next) = number;
        chain.last = number;
        return true;
    }

    unsigned int protocols_ = 0;
    GrowingArray<uint16_t> ports_;  // the requested ports in ascending order
    MallocPtr<Chain> chains_;       // by place of the port
    GrowingArray<Entry> entries_;
};

}  // namespace tavo

#endif
