// Which of a caller's ports are in a list, and what that list says of them: the check of the
// configuration and that of the running system differ in the list alone.
//
// A check is a kind of result record with the names of its own functions, which its log lines give:
// Known is what its ports are compared with, kAppendNobody says that a port is not in it, kCheck
// fills a result list (kResultListName), kListPorts takes the ports of one, and Show tells them.
//
// `here` is the place of the check's own function, which the log lines and the error state name.
//
// A Known has Fetch, which reads all that is known and logs why it cannot, and an index of it
// (PortIndex). RecordOf makes the result record of an entry of that index.
#ifndef TAVO_SRC_CHECK_PORT_CHECK_H
#define TAVO_SRC_CHECK_PORT_CHECK_H

#include <unistd.h>

#include <bitset>
#include <cstdio>
#include <cstring>

#include "check/port_index.h"
#include "check/result_records.h"

namespace tavo {

// A hint for lists of ports.
constexpr int kPortTextsCapacity = 512;

constexpr char kCollectionName[] = "*ppsdCheckResultCollection";

// A port in decimal.
class PortText {
  public:
    explicit PortText(uint16_t uPort) { std::snprintf(szText_, sizeof(szText_), "%hu", uPort); }
    const char *Get() const { return szText_; }

  private:
    char szText_[sizeof("65535")];
};

// Appends what is known of a port and protocol, or that nothing is.
template <typename Check>
int AppendPort(const Place &here, const typename Check::Known &known, uint16_t uPort,
               uint16_t uProtocol, TLIBCDList *pResultList) {
    const auto *pEntry = known.index.First(uPort, uProtocol);
    if (pEntry == nullptr && Check::kAppendNobody(pResultList, uPort, uProtocol) != 0) {
        return TAVO_LOG_AT(here, "Failed to append no conflict result");
    }
    for (; pEntry != nullptr; pEntry = known.index.After(pEntry)) {
        const typename Check::Record record = Check::RecordOf(*pEntry->source, uPort, uProtocol);
        if (TLIBCDListAppend(pResultList, &record) != 0) {
            TAVO_FAIL_ALLOC_AT(here, "pResult");
            return TAVO_LOG_AT(here, "Failed to filter result list");
        }
    }
    return 0;
}

template <typename Check>
int AppendPorts(const Place &here, const typename Check::Known &known, const AskedPorts &asked,
                const TLIBCSzList *pPortList, uint16_t uProtocol, TLIBCDList *pResultList) {
    for (int i = 0; i < asked.Count(); ++i) {
        // A text that gives no port is read again, for the line that ToUPort logs of it.
        const char *szPort = TLIBCSzListGet(pPortList, i);
        const uint16_t uPort = asked[i] != 0 ? asked[i] : ToUPort(szPort);
        if (uPort == 0) {
            TAVO_LOG_AT(here, "Illegal port: %s", szPort);
            continue;
        }
        for (const uint16_t uOne : {uint16_t{TAVO_PROTO_TCP}, uint16_t{TAVO_PROTO_UDP}}) {
            if ((uProtocol & uOne) != 0 &&
                AppendPort<Check>(here, known, uPort, uOne, pResultList) != 0) {
                return -1;
            }
        }
    }
    return 0;
}

template <typename Check>
int CheckPorts(const Place &here, const TLIBCSzList *pPortList, uint16_t uProtocol,
               TLIBCDList *pResultList) {
    if (!IsLegalProtocol(uProtocol)) {
        return TAVO_FAIL_AT(here, TLIBC_ERR_BAD_PARAMETER, "Illegal protocol: %u",
                            unsigned{uProtocol});
    }
    if (pPortList == nullptr) {
        return TAVO_FAIL_AT(here, TLIBC_ERR_BAD_PARAMETER, "pPortList is undefined");
    }
    if (pResultList == nullptr) {
        return TAVO_FAIL_AT(here, TLIBC_ERR_BAD_PARAMETER, "%s is undefined",
                            Check::kResultListName);
    }
    AskedPorts asked;
    typename Check::Known known;
    if (!asked.Read(pPortList) || !known.index.Init(asked, uProtocol)) {
        return TAVO_FAIL_AT(here, TLIBC_ERR_NO_MEMORY, "Failed to filter result list");
    }
    // Both checks name the one function, which is kept.
    if (!known.Fetch()) {
        return TAVO_LOG_AT(here, "Failed to ServiceConfListFetch");
    }
    return AppendPorts<Check>(here, known, asked, pPortList, uProtocol, pResultList);
}

template <typename Check>
TLIBCDList *AllocAndCheck(const Place &here, const TLIBCSzList *pPortList, uint16_t uProtocol) {
    if (pPortList == nullptr) {
        TAVO_FAIL_AT(here, TLIBC_ERR_BAD_PARAMETER, "pPortList is undefined");
        return nullptr;
    }
    OwnedResults<Check> results(Check::kListAlloc());
    if (!results) {
        TAVO_FAIL_ALLOC_AT(here, Check::kListAllocName);
        return nullptr;
    }
    if (Check::kCheck(pPortList, uProtocol, results.get()) != 0) {
        TAVO_LOG_AT(here, "Failed to %s", Check::kCheckName);
        return nullptr;
    }
    return results.release();
}

// Whether the record's protocol is one of a flag word.
template <typename Record>
bool IsAskedFor(const Record &record, uint16_t uProtocol) {
    return (HasTCP(uProtocol) && record.uProtocol == TAVO_PROTO_TCP) ||
           (HasUDP(uProtocol) && record.uProtocol == TAVO_PROTO_UDP);
}

// Ports by number, so that a list of them is not walked for each that is added.
using PortSet = std::bitset<kHighestPort + 1>;

// The ports that a list names as this library writes them; "080" is another text than "80".
inline PortSet PortsNamedIn(const TLIBCSzList *pPortList) {
    PortSet ports;
    const int nPorts = TLIBCSzListCount(pPortList);
    for (int i = 0; i < nPorts; ++i) {
        const char *szPort = TLIBCSzListGet(pPortList, i);
        const uint16_t uPort = static_cast<uint16_t>(std::strtoul(szPort, nullptr, 10));
        if (std::strcmp(szPort, PortText(uPort).Get()) == 0) {
            ports.set(uPort);
        }
    }
    return ports;
}

template <typename Check>
int ListConflictPorts(const Place &here, const TLIBCDList *pResultList, uint16_t uProtocol,
                      TLIBCSzList *pConflictPortList) {
    if (pResultList == nullptr) {
        return TAVO_FAIL_AT(here, TLIBC_ERR_BAD_PARAMETER, "pResultList is undefined");
    }
    if (pConflictPortList == nullptr) {
        return TAVO_FAIL_AT(here, TLIBC_ERR_BAD_PARAMETER, "pConflictPortList is undefined");
    }
    PortSet listed = PortsNamedIn(pConflictPortList);
    for (const auto &record : Records<typename Check::Record>(pResultList)) {
        if (record.blConflict != 1 || !IsAskedFor(record, uProtocol) || listed[record.uPort]) {
            continue;
        }
        if (TLIBCSzListPush(&pConflictPortList, PortText(record.uPort).Get()) < 0) {
            return TAVO_FAIL_ALLOC_AT(here, "pConflictPortList");
        }
        listed.set(record.uPort);
    }
    return 0;
}

constexpr int kNotListed = -2;

template <typename Check>
int VerifyConflictPort(const Place &here, const TLIBCDList *pResultList, uint16_t uPort,
                       uint16_t uProtocol) {
    if (pResultList == nullptr) {
        return TAVO_FAIL_AT(here, TLIBC_ERR_BAD_PARAMETER, "pResultList is undefined");
    }
    int nResult = kNotListed;
    for (const auto &record : Records<typename Check::Record>(pResultList)) {
        if (record.uPort != uPort || !IsAskedFor(record, uProtocol)) {
            continue;
        }
        if (record.blConflict == 1) {
            return 1;
        }
        nResult = 0;
    }
    return nResult;
}

// The functions below answer yes or no, and no on every failure.

template <typename Check>
int IsAnyInConflict(const Place &here, const TLIBCSzList *pPortList, uint16_t uProtocol) {
    const OwnedResults<Check> results(Check::kListAlloc());
    const OwnedNames conflicts(results ? TLIBCSzListAlloc(kPortTextsCapacity) : nullptr);
    if (!conflicts) {
        TAVO_FAIL_ALLOC_AT(here, kCollectionName);
        return 0;
    }
    if (Check::kCheck(pPortList, uProtocol, results.get()) != 0) {
        TAVO_LOG_AT(here, "Failed to %s", Check::kCheckName);
        return 0;
    }
    if (Check::kListPorts(results.get(), uProtocol, conflicts.get()) != 0) {
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
int IsOneInConflict(const Place &here, uint16_t uPort, uint16_t uProtocol) {
    OwnedNames ports(TLIBCSzListAlloc(kPortTextsCapacity));
    if (!ports || !Push(ports, PortText(uPort).Get())) {
        TAVO_FAIL_ALLOC_AT(here, kCollectionName);
        return 0;
    }
    return Check::kIsAny(ports.get(), uProtocol);
}

[[noreturn]] inline void WaitForever() {
    for (;;) {
        pause();
    }
}

// The port is counted in 16 bits, as the arguments are, so that no port comes behind 65535 and a
// range that ends there never ends: kept, since callers know that they must not ask for it. It
// takes neither memory nor processor time meanwhile.
template <typename Check>
int IsRangeInConflict(const Place &here, uint16_t uFirst, uint16_t uLast, uint16_t uProtocol) {
    OwnedNames ports(TLIBCSzListAlloc(kPortTextsCapacity));
    if (!ports) {
        TAVO_FAIL_ALLOC_AT(here, kCollectionName);
        return 0;
    }
    if (uFirst > uLast) {
        TAVO_FAIL_AT(here, TLIBC_ERR_BAD_PARAMETER, "Illegal port range: %hu~%hu", uFirst, uLast);
        return 0;
    }
    if (uLast == kHighestPort) {
        WaitForever();
    }
    for (uint16_t uPort = uFirst; uPort <= uLast; ++uPort) {
        if (!Push(ports, PortText(uPort).Get())) {
            TAVO_FAIL_ALLOC_AT(here, kCollectionName);
            return 0;
        }
    }
    return Check::kIsAny(ports.get(), uProtocol);
}

}  // namespace tavo

#endif
