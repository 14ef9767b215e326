// Any arguments of a check for conflicts: flags (first byte), then skipped names, ports and
// protocols, one line each.
#include <cstddef>
#include <cstdint>
#include <sstream>
#include <string>

#include "fuzz_appliance.h"
#include "tavoserviceconf.h"

namespace {

// The query of the sockets needs a slot for each port of a range, so that a range of billions needs
// too much memory. The fuzzer skips such ranges.
bool HasHugeNumber(const std::string &ports) {
    std::size_t digits = 0;
    for (const char c : ports) {
        digits = c >= '0' && c <= '9' ? digits + 1 : 0;
        if (digits > 7) {
            return true;
        }
    }
    return false;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size) {
    QuietLog();
    tavo::test::RequireAppliance();
    std::istringstream lines(std::string(reinterpret_cast<const char *>(data), size));
    int flags = lines.get() & 31;
    std::string skip;
    std::string ports;
    std::string protocols;
    std::getline(lines, skip);
    std::getline(lines, ports);
    std::getline(lines, protocols);
    if (HasHugeNumber(ports)) {
        flags &= ~TAVO_PORT_CHECK_RUNTIME;
    }
    TAVO_SERVICE_CONF_PORT *conflicts = nullptr;
    const int answer =
        TLIBIsPortConflict(skip.c_str(), ports.c_str(), protocols.c_str(), flags, &conflicts);
    Require(answer >= -1 && answer <= 1);
    Require(answer != 0 || conflicts == nullptr);
    Require(answer == -1 || flags != 0);
    TAVOServiceConfPortsFree(conflicts);
    return 0;
}
