// The functions that both kinds of result record, of the configuration check and of the runtime
// check, have in common.
#ifndef TAVO_SRC_CHECK_RESULT_RECORDS_H
#define TAVO_SRC_CHECK_RESULT_RECORDS_H

#include <cstring>
#include <memory>

#include "support/failure.h"
#include "support/owners.h"

namespace tavo {

// For each record of a list: for (const Record &record : Records<Record>(pList)).
template <typename Record>
class Records {
  public:
    explicit Records(const TLIBCDList *pList) : pFirst_(TLIBCDListFirst(pList)) {}

    class Iterator {
      public:
        explicit Iterator(const TLIBCDListNode *pNode) : pNode_(pNode) {}
        const Record &operator*() const {
            return *static_cast<const Record *>(TLIBCDListElement(pNode_));
        }
        Iterator &operator++() {
            pNode_ = TLIBCDListNext(pNode_);
            return *this;
        }
        bool operator==(const Iterator &other) const { return pNode_ == other.pNode_; }

      private:
        const TLIBCDListNode *pNode_;
    };

    Iterator begin() const { return Iterator(pFirst_); }
    Iterator end() const { return Iterator(nullptr); }

  private:
    const TLIBCDListNode *pFirst_;
};

struct ConfResults {
    using Record = TAVO_CONF_PORT_CONFLICT_RESULT;
    static constexpr auto kText = &Record::szService;
    static constexpr auto kAlloc = TAVOConfPortConflictResultAlloc;
    static constexpr auto kFree = TAVOConfPortConflictResultFree;
    static constexpr auto kCopy = TAVOConfPortConflictResultCopy;
    static constexpr auto kListAlloc = TAVOConfPortConflictResultListAlloc;
    static constexpr auto kListFree = TAVOConfPortConflictResultListFree;
    static constexpr char kRecordName[] = "PTAVO_CONF_PORT_CONFLICT_RESULT";
    static constexpr char kListAllocName[] = "TAVOConfPortConflictResultListAlloc";
};

struct RuntimeResults {
    using Record = TAVO_RUNTIME_PORT_CONFLICT_RESULT;
    static constexpr auto kText = &Record::szProgram;
    static constexpr auto kAlloc = TAVORuntimePortConflictResultAlloc;
    static constexpr auto kFree = TAVORuntimePortConflictResultFree;
    static constexpr auto kCopy = TAVORuntimePortConflictResultCopy;
    static constexpr auto kListAlloc = TAVORuntimePortConflictResultListAlloc;
    static constexpr auto kListFree = TAVORuntimePortConflictResultListFree;
    static constexpr char kRecordName[] = "PTAVO_RUNTIME_PORT_CONFLICT_RESULT";
    static constexpr char kListAllocName[] = "TAVORuntimePortConflictResultListAlloc";
};

template <typename Kind>
using OwnedResult = std::unique_ptr<typename Kind::Record, FreeWith<Kind::kFree>>;

template <typename Kind>
using OwnedResults = std::unique_ptr<TLIBCDList, FreeWith<Kind::kListFree>>;

// A record that is filled again for each append. It does not own its text.
template <typename Kind>
struct FreeWithoutText {
    void operator()(typename Kind::Record *pRecord) const {
        pRecord->*Kind::kText = nullptr;
        Kind::kFree(pRecord);
    }
};
template <typename Kind>
using TemplateRecord = std::unique_ptr<typename Kind::Record, FreeWithoutText<Kind>>;

// The functions below allocate, copy and free the records of one kind. `here` is the source
// location of the exported function, which the log lines and the error state show. If only the text
// of a copy cannot be allocated, the copy has no text.

template <typename Kind>
typename Kind::Record *AllocRecord() {
    return NewRecord<OwnedResult<Kind>>().release();
}

template <typename Kind>
void FreeRecord(typename Kind::Record *pRecord) {
    std::free(pRecord->*Kind::kText);
    std::free(pRecord);
}

template <typename Kind>
typename Kind::Record *CopyRecord(const Place &here, const typename Kind::Record *pRecord) {
    auto *pCopy = Kind::kAlloc();
    if (pCopy == nullptr) {
        TAVO_LOG_AT(here, "Failed to allocate %s", Kind::kRecordName);
        return nullptr;
    }
    *pCopy = *pRecord;
    if (const char *szText = pRecord->*Kind::kText) {
        pCopy->*Kind::kText = strdup(szText);
    }
    return pCopy;
}

template <typename Kind>
TLIBCDList *AllocList() {
    using Record = typename Kind::Record;
    return TLIBCDListAlloc(
        [](const void *pElement) -> void * {
            return Kind::kCopy(static_cast<const Record *>(pElement));
        },
        [](void *pElement) { Kind::kFree(static_cast<Record *>(pElement)); });
}

// Appends copies of all records of `pFrom`. After a failure, the records appended so far remain.
template <typename Kind>
bool AppendAll(TLIBCDList *pTo, const TLIBCDList *pFrom) {
    for (const auto &record : Records<typename Kind::Record>(pFrom)) {
        if (TLIBCDListAppend(pTo, &record) != 0) {
            return false;
        }
    }
    return true;
}

template <typename Kind>
TLIBCDList *CopyList(const Place &here, const TLIBCDList *pList) {
    OwnedResults<Kind> copy(Kind::kListAlloc());
    if (!copy || !AppendAll<Kind>(copy.get(), pList)) {
        TAVO_LOG_AT(here, "Failed to allocate %s", Kind::kListAllocName);
        return nullptr;
    }
    return copy.release();
}

// Appends copies of the records of a port and protocol. Returns their number, -1 on failure.
template <typename Kind>
int Filter(const Place &here, const TLIBCDList *pSource, uint16_t uPort, uint16_t uProtocol,
           TLIBCDList *pFiltered) {
    if (pSource == nullptr) {
        return TAVO_FAIL_AT(here, TLIBC_ERR_BAD_PARAMETER, "pSourceResultList is undefined");
    }
    if (pFiltered == nullptr) {
        return TAVO_FAIL_AT(here, TLIBC_ERR_BAD_PARAMETER, "pFilteredResultList is undefined");
    }
    int nMatches = 0;
    for (const auto &record : Records<typename Kind::Record>(pSource)) {
        if (record.uPort != uPort || record.uProtocol != uProtocol) {
            continue;
        }
        if (TLIBCDListAppend(pFiltered, &record) != 0) {
            return TAVO_FAIL_ALLOC_AT(here, "pResult");
        }
        ++nMatches;
    }
    return nMatches;
}

// Appends a record for a port that is not in use.
template <typename Kind>
int AppendNobody(const Place &here, TLIBCDList *pResultList, uint16_t uPort, uint16_t uProtocol) {
    if (pResultList == nullptr) {
        return TAVO_FAIL_AT(here, TLIBC_ERR_BAD_PARAMETER, "pResultList is undefined");
    }
    const OwnedResult<Kind> result(Kind::kAlloc());
    if (!result) {
        return TAVO_FAIL_ALLOC_AT(here, "pResult");
    }
    result->uPort = uPort;
    result->uProtocol = uProtocol;
    return TLIBCDListAppend(pResultList, result.get()) == 0 ? 0
                                                            : TAVO_FAIL_ALLOC_AT(here, "pResult");
}

}  // namespace tavo

#endif
