// An index of the entries for the requested ports, so that a check of many ports does not search
// all entries for each of them. A range is not expanded: only its requested ports use memory and
// time, since a service file of one kilobyte can declare millions of ports.
#ifndef TAVO_SRC_CHECK_PORT_INDEX_H
#define TAVO_SRC_CHECK_PORT_INDEX_H

#include <cstddef>
#include <cstdint>

#include "check/asked_ports.h"
#include "support/growing_array.h"

namespace tavo {

// One chain of entries for each requested port and protocol, in the order of their addition. The
// sources of the entries must outlive the index.
template <typename Source>
class PortIndex {
  public:
    struct Entry {
        const Source *source;
        std::size_t next;  // index in the array plus 1; 0 in the last entry of a chain
    };

    // `asked` must outlive the index; `protocols` are the flags of the requested protocols. Returns
    // false when out of memory.
    bool Init(const AskedPorts &asked, unsigned int protocols) {
        asked_ = &asked;
        protocols_ = protocols;
        chains_.reset(static_cast<Chain *>(std::calloc(2 * asked.Places() + 1, sizeof(Chain))));
        return chains_ != nullptr;
    }

    // Adds an entry for the ports `first` to `last` over TCP or UDP. Returns false when out of
    // memory.
    bool Add(uint16_t first, uint16_t last, unsigned int protocol, const Source *source) {
        if ((protocols_ & protocol) == 0) {
            return true;
        }
        const std::size_t end = asked_->PlaceOf(last + 1u);
        for (std::size_t place = asked_->PlaceOf(first); place < end; ++place) {
            if (!Append(ChainAt(place, protocol), source)) {
                return false;
            }
        }
        return true;
    }

    // The first entry of a requested port over TCP or UDP; null if there is none.
    const Entry *First(uint16_t port, unsigned int protocol) const {
        return At(ChainAt(asked_->PlaceOf(port), protocol).first);
    }
    const Entry *After(const Entry *entry) const { return At(entry->next); }

  private:
    struct Chain {
        std::size_t first;
        std::size_t last;
    };

    Chain &ChainAt(std::size_t place, unsigned int protocol) const {
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

    const AskedPorts *asked_ = nullptr;
    unsigned int protocols_ = 0;
    std::unique_ptr<Chain, FreeWith<std::free>> chains_;
    GrowingArray<Entry> entries_;
};

}  // namespace tavo

#endif
