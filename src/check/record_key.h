// The keys of records, so that each record is listed once.
#ifndef TAVO_SRC_CHECK_RECORD_KEY_H
#define TAVO_SRC_CHECK_RECORD_KEY_H

#include "check/key_set.h"
#include "check/result_records.h"

namespace tavo {

struct RecordKey {
    uint64_t nFirst;
    uint64_t nSecond;
    bool operator==(const RecordKey &) const = default;
};

// All fields are part of the key.
inline RecordKey KeyOf(const RawSocketInfo &info) {
    return {info.ulInode,
            uint64_t{info.uState} << 32 | uint64_t{info.uProtocol} << 16 | info.uPort};
}

// The program is not part of the key: a process has only one.
inline RecordKey KeyOf(const TAVO_RUNTIME_PORT_CONFLICT_RESULT &result) {
    return {uint64_t{result.uPid} << 32 | result.uState,
            uint64_t{result.blConflict} << 32 | uint64_t{result.uProtocol} << 16 | result.uPort};
}

template <typename Record>
KeySet::Result AddTo(KeySet &known, const Record &record) {
    const RecordKey key = KeyOf(record);
    return known.Add(key.nFirst, key.nSecond);
}

// Appends the record unless it is known. Returns false when out of memory.
template <typename Record>
bool AppendNew(TLIBCDList *pList, KeySet &known, const Record &record) {
    const KeySet::Result added = AddTo(known, record);
    return added == KeySet::Result::kKnown ||
           (added == KeySet::Result::kAdded && TLIBCDListAppend(pList, &record) == 0);
}

// True if the list contains a record with the same key. If an argument is null, this is logged with
// its name and the result is false.
template <typename Record>
bool Contains(const Place &here, const TLIBCDList *pList, const char *szListName,
              const Record *pRecord, const char *szRecordName) {
    if (pList == nullptr || pRecord == nullptr) {
        TAVO_FAIL_AT(here, TLIBC_ERR_BAD_PARAMETER, "%s is undefined",
                     pList == nullptr ? szListName : szRecordName);
        return false;
    }
    for (const Record &record : Records<Record>(pList)) {
        if (KeyOf(record) == KeyOf(*pRecord)) {
            return true;
        }
    }
    return false;
}

}  // namespace tavo

#endif
