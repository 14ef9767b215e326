// Owners of allocated objects: the owner frees the memory on every path, and release() marks the
// one place where ownership passes to the caller.
#ifndef TAVO_SRC_SUPPORT_OWNERS_H
#define TAVO_SRC_SUPPORT_OWNERS_H

#include <cstdlib>
#include <memory>
#include <utility>

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

// The initial capacity of lists of names and tables of keys, a hint. A file contains a few
// sections, and a section at most eight known keys.
constexpr int kInitialCapacity = 1024;

// Allocates a zero-filled record with calloc, since callers may also allocate and free records;
// null when out of memory.
template <typename Owner>
Owner NewRecord() {
    using Record = typename Owner::element_type;
    return Owner(static_cast<Record *>(std::calloc(1, sizeof(Record))));
}

// Pushes a text to a list, whose handle may change. Returns false on failure.
inline bool Push(OwnedNames &names, const char *name) {
    TLIBCSzList *list = names.release();
    const bool pushed = TLIBCSzListPush(&list, name) >= 0;
    names.reset(list);
    return pushed;
}

// Prepends a record to a caller's list.
template <typename Owner>
void Prepend(Owner record, typename Owner::element_type **list) {
    record->pNext = *list;
    *list = record.release();
}

// The same for a list that has an owner.
template <typename Owner>
void Prepend(Owner record, Owner &list) {
    record->pNext = list.release();
    list = std::move(record);
}

}  // namespace tavo

#endif
