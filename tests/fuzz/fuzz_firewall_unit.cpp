// Any bytes as a unit of the service manager: its firewall sections are the trimmed names between
// the commas of the value that the core library reads.
#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

#include "fuzz_appliance.h"
#include "tavocsystemd.h"

namespace {

constexpr char kUnit[] = "/etc/systemd/system/fuzz.service";

std::vector<std::string> ExpectedSections() {
    TLIBCSzHash *keys = TLIBCSzHashAlloc(1);
    Require(TLIBCFileGetSection(kUnit, "X-TavoFirewall", &keys) >= 0);
    const char *value = TLIBCSzHashGetValue(keys, "Sections");
    TLIBCSzList *pieces = TLIBCSzListAlloc(1);
    Require(TLIBCStrSep(value == nullptr ? "" : value, ",", &pieces) > 0);
    std::vector<std::string> sections;
    for (int i = 0; i < TLIBCSzListCount(pieces); ++i) {
        std::string name = TLIBCSzListGet(pieces, i);
        Require(TLIBCStrTrimSpace(name.data()) == 0);
        if (name[0] != '\0') {
            sections.emplace_back(name.c_str());
        }
    }
    TLIBCSzListFree(pieces);
    TLIBCSzHashFree(keys);
    return sections;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size) {
    PlaceFile(kUnit, {reinterpret_cast<const char *>(data), size});
    const std::vector<std::string> expected = ExpectedSections();
    TLIBCSzList *list = TLIBCSzListAlloc(1);
    Require(TAVOCSystemdFirewallSectionsGet("fuzz", &list) == (expected.empty() ? 0 : 1));
    Require(TLIBCSzListCount(list) == static_cast<int>(expected.size()));
    for (std::size_t i = 0; i < expected.size(); ++i) {
        Require(expected[i] == TLIBCSzListGet(list, static_cast<int>(i)));
    }
    TLIBCSzListFree(list);
    return 0;
}
