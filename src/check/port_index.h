// The records of a list by port and protocol, so that a check of many ports does not walk the list
// for each of them.
#ifndef TAVO_SRC_CHECK_PORT_INDEX_H
#define TAVO_SRC_CHECK_PORT_INDEX_H

#include <cstddef>
#include <cstdint>

#include "check/result_records.h"

namespace tavo {

// One chain for each port and protocol, in the order of the list, which must outlive the index.
template <typename Record>
class PortIndex {
  public:
    struct Entry {
        const Record *pRecord;
        const Entry *pNext;
    };

    // False when out of memory.
    bool Build(const TLIBCDList *pList) {
        const auto nCount = static_cast<std::size_t>(TLIBCDListCount(pList));
        entries_.reset(static_cast<Entry *>(std::calloc(nCount + 1, sizeof(Entry))));
        chains_.reset(static_cast<Chain *>(std::calloc(kChains, sizeof(Chain))));
        if (!entries_ || !chains_) {
            return false;
        }
        Entry *pEnd = entries_.get();
        for (const Record &record : Records<Record>(pList)) {
            (pEnd++)->pRecord = &record;
        }
        // From the last one, so that the first one comes to stand in front.
        while (pEnd != entries_.get()) {
            --pEnd;
            Chain &chain = ChainOf(pEnd->pRecord->uPort, pEnd->pRecord->uProtocol);
            pEnd->pNext = chain.pFirst;
            chain.pFirst = pEnd;
        }
        return true;
    }

    // The first record of the port and protocol (TCP or UDP), null when there is none.
    const Entry *First(uint16_t uPort, uint16_t uProtocol) {
        return ChainOf(uPort, uProtocol).pFirst;
    }

  private:
    static constexpr std::size_t kPorts = 65536;
    static constexpr std::size_t kChains = kPorts * 2;

    struct Chain {
        const Entry *pFirst;
    };

    Chain &ChainOf(uint16_t uPort, uint16_t uProtocol) {
        return chains_.get()[uPort + (uProtocol == TAVO_PROTO_TCP ? 0 : kPorts)];
    }

    std::unique_ptr<Entry, FreeWith<std::free>> entries_;
    std::unique_ptr<Chain, FreeWith<std::free>> chains_;
};

}  // namespace tavo

#endif
