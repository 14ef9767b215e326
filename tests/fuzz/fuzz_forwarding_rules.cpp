// Any bytes as the file of forwarding rules.
#include <cstddef>
#include <cstdint>
#include <string_view>

#include "fuzz_appliance.h"
#include "tavoserviceconf.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size) {
    QuietLog();
    PlaceFile("/usr/tavo/etc/portforward/rule.conf", {reinterpret_cast<const char *>(data), size});
    TAVO_SERVICE_CONF_PORT *conflicts = nullptr;
    const int answer = TLIBIsPortConflict("skipped", "80,1000:2000,65535", "tcp",
                                          TAVO_PORT_CHECK_PORT_FORWARD, &conflicts);
    Require(answer >= -1 && answer <= 1);
    Require(answer == -1 || (answer == 1) == (conflicts != nullptr));
    TAVOServiceConfPortsFree(conflicts);
    return 0;
}
