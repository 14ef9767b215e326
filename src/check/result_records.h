// The functions that both kinds of result record, of the configuration check and of the runtime
// check, have in common.
#ifndef TAVO_SRC_CHECK_RESULT_RECORDS_H
#define TAVO_SRC_CHECK_RESULT_RECORDS_H

#include <cstring>
#include <memory>

#include "support/failure.h"
#include "support/owners.h"

namespace tavo {

// For each record of a list: for (const Record &record : Records<Record>(list)).
template <typename Record>
class Records {
  public:
    explicit Records(const TLIBCDList *list) : first_(TLIBCDListFirst(list)) {}

    class Iterator {
      public:
        explicit Iterator(const TLIBCDListNode *node) : node_(node) {}
        const Record &operator*() const {
            return *static_cast<const Record *>(TLIBCDListElement(node_));
        }
        Iterator &operator++() {
            node_ = TLIBCDListNext(node_);
            return *this;
        }
        bool operator==(const Iterator &other) const { return node_ == other.node_; }

      private:
        const TLIBCDListNode *node_;
    };

    Iterator begin() const { return Iterator(first_); }
    Iterator end() const { return Iterator(nullptr); }

  private:
    const TLIBCDListNode *first_;
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
    void operator()(typename Kind::Record *record) const {
        record->*Kind::kText = nullptr;
        Kind::kFree(record);
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
void FreeRecord(typename Kind::Record *record) {
    std::free(record->*Kind::kText);
    std::free(record);
}

template <typename Kind>
typename Kind::Record *CopyRecord(const Place &here, const typename Kind::Record *record) {
    auto *copy = Kind::kAlloc();
    if (copy == nullptr) {
        TAVO_LOG_AT(here, "Failed to allocate %s", Kind::kRecordName);
        return nullptr;
    }
    *copy = *record;
    if (const char *text = record->*Kind::kText) {
        copy->*Kind::kText = strdup(text);
    }
    return copy;
}

template <typename Kind>
TLIBCDList *AllocList() {
    using Record = typename Kind::Record;
    return TLIBCDListAlloc(
        [](const void *element) -> void * {
            return Kind::kCopy(static_cast<const Record *>(element));
        },
        [](void *element) { Kind::kFree(static_cast<Record *>(element)); });
}

// Appends copies of all records of `from`. After a failure, the records appended so far remain.
template <typename Kind>
bool AppendAll(TLIBCDList *to, const TLIBCDList *from) {
    for (const auto &record : Records<typename Kind::Record>(from)) {
        if (TLIBCDListAppend(to, &record) != 0) {
            return false;
        }
    }
    return true;
}

template <typename Kind>
TLIBCDList *CopyList(const Place &here, const TLIBCDList *list) {
    OwnedResults<Kind> copy(Kind::kListAlloc());
    if (!copy || !AppendAll<Kind>(copy.get(), list)) {
        TAVO_LOG_AT(here, "Failed to allocate %s", Kind::kListAllocName);
        return nullptr;
    }
    return copy.release();
}

// Appends copies of the records of a port and protocol. Returns their number, -1 on failure.
template <typename Kind>
int Filter(const Place &here, const TLIBCDList *source, uint16_t port, uint16_t protocol,
           TLIBCDList *filtered) {
    if (source == nullptr) {
        return TAVO_FAIL_AT(here, TLIBC_ERR_BAD_PARAMETER, "pSourceResultList is undefined");
    }
    if (filtered == nullptr) {
        return TAVO_FAIL_AT(here, TLIBC_ERR_BAD_PARAMETER, "pFilteredResultList is undefined");
    }
    int match_count = 0;
    for (const auto &record : Records<typename Kind::Record>(source)) {
        if (record.uPort != port || record.uProtocol != protocol) {
            continue;
        }
        if (TLIBCDListAppend(filtered, &record) != 0) {
            return TAVO_FAIL_ALLOC_AT(here, "pResult");
        }
        ++match_count;
    }
    return match_count;
}

// Appends a record for a port that is not in use.
template <typename Kind>
int AppendNobody(const Place &here, TLIBCDList *results, uint16_t port, uint16_t protocol) {
    if (results == nullptr) {
        return TAVO_FAIL_AT(here, TLIBC_ERR_BAD_PARAMETER, "pResultList is undefined");
    }
    const OwnedResult<Kind> result(Kind::kAlloc());
    if (!result) {
        return TAVO_FAIL_ALLOC_AT(here, "pResult");
    }
    result->uPort = port;
    result->uProtocol = protocol;
    return TLIBCDListAppend(results, result.get()) == 0 ? 0 : TAVO_FAIL_ALLOC_AT(here, "pResult");
}

}  // namespace tavo

#endif
