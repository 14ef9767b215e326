// Owners of what a function makes: whatever path it leaves by, the owner gives the memory back, and
// release() marks the one place where it is handed to the caller.
#ifndef TAVO_SRC_SUPPORT_OWNERS_H
#define TAVO_SRC_SUPPORT_OWNERS_H

#include <cstdlib>
#include <memory>

#include "base/owners.h"
#include "tavocore.h"
#include "tavoserviceconf.h"

namespace tavo {

using OwnedText = MallocPtr<char>;
using OwnedNames = std::unique_ptr<TLIBCSzList, FreeWith<TLIBCSzListFree>>;
using OwnedList = std::unique_ptr<TLIBCDList, FreeWith<TLIBCDListFree>>;
using OwnedTable = std::unique_ptr<TLIBCSzHash, FreeWith<TLIBCSzHashFree>>;
using OwnedPorts = std::unique_ptr<TAVO_SERVICE_CONF_PORT, FreeWith<TAVOServiceConfPortsFree>>;
using OwnedSection =
    std::unique_ptr<TAVO_SERVICE_CONF_SECTION, FreeWith<TAVOServiceConfSectionFree>>;
using OwnedRanges = std::unique_ptr<TAVO_PORT_RANGE, FreeWith<TLIBPortRangeDestory>>;
using OwnedServices = std::unique_ptr<TAVO_FW_SERVICE, FreeWith<TAVOFwServiceFree>>;
using OwnedConf = std::unique_ptr<TAVO_SERVICE_CONF, FreeWith<TAVOServiceConfFree>>;

// The capacity that lists of names and tables of keys start with. It is a hint: a file holds a
// handful of sections and a section at most eight keys that mean something.
constexpr int kInitialCapacity = 1024;

// A zero-filled record from calloc, which callers may free and build alike; null when out of
// memory.
template <typename Owner>
Owner NewRecord() {
    using Record = typename Owner::element_type;
    return Owner(static_cast<Record *>(std::calloc(1, sizeof(Record))));
}

// Pushes a text to a list, which may move. False when it could not be.
inline bool Push(OwnedNames &names, const char *szName) {
    TLIBCSzList *pNames = names.release();
    const bool pushed = TLIBCSzListPush(&pNames, szName) >= 0;
    names.reset(pNames);
    return pushed;
}

// Puts a record in front of a caller's list.
template <typename Owner>
void Prepend(Owner record, typename Owner::element_type **ppList) {
    record->pNext = *ppList;
    *ppList = record.release();
}

}  // namespace tavo

#endif
