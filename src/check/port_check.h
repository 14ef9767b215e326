// Checks which of the caller's ports are in use. The check of the configuration and the check of
// the running system share this code and differ in the list that the ports are compared with.
//
// A Check is a kind of result record with the names of its own functions, which its log lines show.
// Known is the data that the ports are compared with, kAppendNobody adds a record for a port that
// is not in it, kCheck fills a result list (kResultListName), kListPorts extracts the conflicting
// ports, and Show prints them.
//
// `here` is the source location of the check's own function, which the log lines and the error
// state show.
//
// A Known has a function Fetch, which reads the data and logs a failure, and an index of the data
// (PortIndex). RecordOf converts an index entry to a result record.
#ifndef TAVO_SRC_CHECK_PORT_CHECK_H
#define TAVO_SRC_CHECK_PORT_CHECK_H

#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <cstring>

#include "check/result_records.h"
#include "model/port_text.h"
#include "support/growing_array.h"
#include "support/text.h"

namespace tavo {

// ---- The index

// An index of the entries for the requested ports, so that a check of many ports does not search
// all entries for each of them. A range is not expanded: only its requested ports use memory and
// time, since a service file of one kilobyte can declare millions of ports.
//
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

// ---- The checks

// Initial capacity of lists of ports.
constexpr int kPortTextsCapacity = 512;

constexpr char kCollectionName[] = "*ppsdCheckResultCollection";

// Appends all records for a port and protocol, or a record without a conflict if there are none.
template <typename Check>
int AppendPort(const Place &here, const typename Check::Known &known, uint16_t port,
               uint16_t protocol, TLIBCDList *results) {
    const auto *entry = known.index.First(port, protocol);
    if (entry == nullptr && Check::kAppendNobody(results, port, protocol) != 0) {
        return TAVO_LOG_AT(here, "Failed to append no conflict result");
    }
    for (; entry != nullptr; entry = known.index.After(entry)) {
        const typename Check::Record record = Check::RecordOf(*entry->source, port, protocol);
        if (TLIBCDListAppend(results, &record) != 0) {
            TAVO_FAIL_ALLOC_AT(here, "pResult");
            return TAVO_LOG_AT(here, "Failed to filter result list");
        }
    }
    return 0;
}

template <typename Check>
int AppendPorts(const Place &here, const typename Check::Known &known, const TLIBCSzList *ports,
                uint16_t protocols, TLIBCDList *results) {
    for (int i = 0; i < TLIBCSzListCount(ports); ++i) {
        const char *text = TLIBCSzListGet(ports, i);
        const uint16_t port = ToUPort(text);
        if (port == 0) {
            TAVO_LOG_AT(here, "Illegal port: %s", text);
            continue;
        }
        for (const uint16_t protocol : {uint16_t{TAVO_PROTO_TCP}, uint16_t{TAVO_PROTO_UDP}}) {
            if ((protocols & protocol) != 0 &&
                AppendPort<Check>(here, known, port, protocol, results) != 0) {
                return -1;
            }
        }
    }
    return 0;
}

template <typename Check>
int CheckPorts(const Place &here, const TLIBCSzList *ports, uint16_t protocols,
               TLIBCDList *results) {
    if (!IsLegalProtocol(protocols)) {
        return TAVO_FAIL_AT(here, TLIBC_ERR_BAD_PARAMETER, "Illegal protocol: %u",
                            unsigned{protocols});
    }
    if (ports == nullptr) {
        return TAVO_FAIL_AT(here, TLIBC_ERR_BAD_PARAMETER, "pPortList is undefined");
    }
    if (results == nullptr) {
        return TAVO_FAIL_AT(here, TLIBC_ERR_BAD_PARAMETER, "%s is undefined",
                            Check::kResultListName);
    }
    typename Check::Known known;
    if (!known.index.Init(ports, protocols)) {
        return TAVO_FAIL_AT(here, TLIBC_ERR_NO_MEMORY, "Failed to filter result list");
    }
    // Both checks log the same function name; the log line must not change.
    if (!known.Fetch()) {
        return TAVO_LOG_AT(here, "Failed to ServiceConfListFetch");
    }
    return AppendPorts<Check>(here, known, ports, protocols, results);
}

template <typename Check>
TLIBCDList *AllocAndCheck(const Place &here, const TLIBCSzList *ports, uint16_t protocols) {
    if (ports == nullptr) {
        TAVO_FAIL_AT(here, TLIBC_ERR_BAD_PARAMETER, "pPortList is undefined");
        return nullptr;
    }
    OwnedResults<Check> results(Check::kListAlloc());
    if (!results) {
        TAVO_FAIL_ALLOC_AT(here, Check::kListAllocName);
        return nullptr;
    }
    if (Check::kCheck(ports, protocols, results.get()) != 0) {
        TAVO_LOG_AT(here, "Failed to %s", Check::kCheckName);
        return nullptr;
    }
    return results.release();
}

// True if `protocols`, a set of flags, includes the record's protocol.
template <typename Record>
bool IsAskedFor(const Record &record, uint16_t protocols) {
    return (HasTCP(protocols) && record.uProtocol == TAVO_PROTO_TCP) ||
           (HasUDP(protocols) && record.uProtocol == TAVO_PROTO_UDP);
}

// The ports that a list contains in the form that this library writes: "080" is not the same entry
// as "80".
inline PortSet PortsNamedIn(const TLIBCSzList *list) {
    PortSet ports;
    const int count = TLIBCSzListCount(list);
    for (int i = 0; i < count; ++i) {
        const char *text = TLIBCSzListGet(list, i);
        const uint16_t port = static_cast<uint16_t>(std::strtoul(text, nullptr, 10));
        if (std::strcmp(text, Decimal(port).Get()) == 0) {
            ports.set(port);
        }
    }
    return ports;
}

template <typename Check>
int ListConflictPorts(const Place &here, const TLIBCDList *results, uint16_t protocols,
                      TLIBCSzList *conflict_ports) {
    if (results == nullptr) {
        return TAVO_FAIL_AT(here, TLIBC_ERR_BAD_PARAMETER, "pResultList is undefined");
    }
    if (conflict_ports == nullptr) {
        return TAVO_FAIL_AT(here, TLIBC_ERR_BAD_PARAMETER, "pConflictPortList is undefined");
    }
    PortSet listed = PortsNamedIn(conflict_ports);
    for (const auto &record : Records<typename Check::Record>(results)) {
        if (record.blConflict != 1 || !IsAskedFor(record, protocols) || listed[record.uPort]) {
            continue;
        }
        if (TLIBCSzListPush(&conflict_ports, Decimal(record.uPort).Get()) < 0) {
            return TAVO_FAIL_ALLOC_AT(here, "pConflictPortList");
        }
        listed.set(record.uPort);
    }
    return 0;
}

constexpr int kNotListed = -2;

template <typename Check>
int VerifyConflictPort(const Place &here, const TLIBCDList *results, uint16_t port,
                       uint16_t protocols) {
    if (results == nullptr) {
        return TAVO_FAIL_AT(here, TLIBC_ERR_BAD_PARAMETER, "pResultList is undefined");
    }
    int answer = kNotListed;
    for (const auto &record : Records<typename Check::Record>(results)) {
        if (record.uPort != port || !IsAskedFor(record, protocols)) {
            continue;
        }
        if (record.blConflict == 1) {
            return 1;
        }
        answer = 0;
    }
    return answer;
}

// The functions below return 1 for a conflict, and 0 for none and on every failure.

template <typename Check>
int IsAnyInConflict(const Place &here, const TLIBCSzList *ports, uint16_t protocols) {
    const OwnedResults<Check> results(Check::kListAlloc());
    const OwnedNames conflicts(results ? TLIBCSzListAlloc(kPortTextsCapacity) : nullptr);
    if (!conflicts) {
        TAVO_FAIL_ALLOC_AT(here, kCollectionName);
        return 0;
    }
    if (Check::kCheck(ports, protocols, results.get()) != 0) {
        TAVO_LOG_AT(here, "Failed to %s", Check::kCheckName);
        return 0;
    }
    if (Check::kListPorts(results.get(), protocols, conflicts.get()) != 0) {
        TAVO_LOG_AT(here, "Failed to %s", Check::kListPortsName);
        return 0;
    }
    if (TLIBCSzListCount(conflicts.get()) == 0) {
        return 0;
    }
    Check::Show(conflicts.get());
    return 1;
}

template <typename Check>
int IsOneInConflict(const Place &here, uint16_t port, uint16_t protocols) {
    OwnedNames ports(TLIBCSzListAlloc(kPortTextsCapacity));
    if (!ports || !Push(ports, Decimal(port).Get())) {
        TAVO_FAIL_ALLOC_AT(here, kCollectionName);
        return 0;
    }
    return Check::kIsAny(ports.get(), protocols);
}

[[noreturn]] inline void WaitForever() {
    for (;;) {
        pause();
    }
}

// The loop over the ports has a 16-bit counter, like the arguments, so a range that ends at 65535
// never ends. Callers know this and do not pass one. WaitForever has the same effect without using
// memory or processor time.
template <typename Check>
int IsRangeInConflict(const Place &here, uint16_t first, uint16_t last, uint16_t protocols) {
    OwnedNames ports(TLIBCSzListAlloc(kPortTextsCapacity));
    if (!ports) {
        TAVO_FAIL_ALLOC_AT(here, kCollectionName);
        return 0;
    }
    if (first > last) {
        TAVO_FAIL_AT(here, TLIBC_ERR_BAD_PARAMETER, "Illegal port range: %hu~%hu", first, last);
        return 0;
    }
    if (last == kHighestPort) {
        WaitForever();
    }
    for (uint16_t port = first; port <= last; ++port) {
        if (!Push(ports, Decimal(port).Get())) {
            TAVO_FAIL_ALLOC_AT(here, kCollectionName);
            return 0;
        }
    }
    return Check::kIsAny(ports.get(), protocols);
}

}  // namespace tavo

#endif
