// Describes lists of result records as text.
#ifndef TAVO_TESTS_CHECK_CHECK_TEST_H
#define TAVO_TESTS_CHECK_CHECK_TEST_H

#include <memory>
#include <string>
#include <vector>

#include "library_test.h"

namespace tavo::test {

struct FreeElements {
    void operator()(TLIBCDList *list) const { TLIBCDListFree(list); }
};
using Elements = std::unique_ptr<TLIBCDList, FreeElements>;

inline std::string PortAndProtocol(uint16_t port, uint16_t protocol) {
    const std::string name = protocol == TAVO_PROTO_TCP   ? "tcp"
                             : protocol == TAVO_PROTO_UDP ? "udp"
                                                          : std::to_string(protocol);
    return std::to_string(port) + " " + name;
}

// "80 tcp web", "80 udp free".
inline std::string Describe(const TAVO_CONF_PORT_CONFLICT_RESULT &record) {
    return PortAndProtocol(record.uPort, record.uProtocol) +
           (record.szService != nullptr ? " " + std::string(record.szService) : "") +
           (record.blConflict == 0 ? " free" : "");
}

// "80 tcp 812 in state 10 /usr/bin/httpd", "80 udp free".
inline std::string Describe(const TAVO_RUNTIME_PORT_CONFLICT_RESULT &record) {
    std::string text = PortAndProtocol(record.uPort, record.uProtocol);
    if (record.uPid != 0 || record.uState != 0) {
        text += " " + std::to_string(record.uPid) + " in state " + std::to_string(record.uState);
    }
    return text + (record.szProgram != nullptr ? " " + std::string(record.szProgram) : "") +
           (record.blConflict == 0 ? " free" : "");
}

// The records of a list, in list order.
template <typename Record>
std::vector<std::string> Describe(const TLIBCDList *list) {
    std::vector<std::string> texts;
    for (const auto *node = TLIBCDListFirst(list); node != nullptr; node = TLIBCDListNext(node)) {
        texts.push_back(Describe(*static_cast<const Record *>(TLIBCDListElement(node))));
    }
    return texts;
}

}  // namespace tavo::test

#endif
