// A query, up to the first newline, against the declared ports after it: the comparison gives the
// same result and the same list as comparing every pair of ranges.
#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>

#include "engine/comparison.h"
#include "fuzz_support.h"
#include "plain_comparison.h"
#include "tavoserviceconf.h"

namespace {

constexpr std::uint32_t kHighestPort = 65535;

struct Result {
    int answer;
    std::unique_ptr<TAVO_SERVICE_CONF_PORT, decltype(&TAVOServiceConfPortsFree)> conflicts;
};

template <typename Compare>
Result ConflictsOf(Compare compare) {
    TAVO_SERVICE_CONF_PORT *conflicts = nullptr;
    const int answer = compare(&conflicts);
    return {answer, {conflicts, TAVOServiceConfPortsFree}};
}

Result Compared(const std::string &query, const std::string &declared) {
    return ConflictsOf([&](TAVO_SERVICE_CONF_PORT **conflicts) {
        tavo::Comparison comparison(TAVO_HERE, query.c_str());
        const int answer = comparison.Compare(declared.c_str());
        Require(comparison.MakePairs(conflicts) == 0);
        return answer;
    });
}

void RequireGoodConflict(const TAVO_SERVICE_CONF_PORT &port) {
    Require(port.nDirection == TAVO_PORT_DIRECTION_SRC && port.nProtocol == TAVO_PROTO_BOTH);
    Require(port.nPortStart <= kHighestPort && port.nPortEnd <= kHighestPort);
    const bool range = port.nPortType == TAVO_PORT_TYPE_RANGE;
    Require(range ? port.nPortStart < port.nPortEnd : port.nPortEnd == 0);
}

void RequireEqual(const Result &a, const Result &b) {
    Require(a.answer == b.answer);
    const TAVO_SERVICE_CONF_PORT *other = b.conflicts.get();
    for (const auto *port = a.conflicts.get(); port != nullptr; port = port->pNext) {
        Require(other != nullptr && port->nPortStart == other->nPortStart &&
                port->nPortEnd == other->nPortEnd);
        other = other->pNext;
    }
    Require(other == nullptr);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size) {
    QuietLog();
    const std::string text(reinterpret_cast<const char *>(data), size);
    const std::size_t newline = std::min(text.find('\n'), text.size());
    const std::string query(text.c_str(), newline);
    const std::string declared(text.c_str() + std::min(newline + 1, text.size()));
    const Result plain = ConflictsOf([&](TAVO_SERVICE_CONF_PORT **conflicts) {
        return tavo::test::PlainCompare(query.c_str(), declared.c_str(), conflicts);
    });
    Require(plain.answer >= -1 && plain.answer <= 1);
    Require(plain.answer != 1 || plain.conflicts != nullptr);
    Require(plain.answer != 0 || plain.conflicts == nullptr);
    for (const auto *port = plain.conflicts.get(); port != nullptr; port = port->pNext) {
        RequireGoodConflict(*port);
    }
    RequireEqual(Compared(query, declared), plain);
    return 0;
}
