// Any bytes as the two mapping tables of firewall services; the factory's one follows a line of
// dashes. The tables are read once more here, line by line. A service without sections in either
// table gets those of the package.
#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "config_lines.h"
#include "fuzz_appliance.h"
#include "tavoserviceconf.h"

namespace {

constexpr char kTable[] = "/usr/tavo/etc/firewall_service_mapping_table";
constexpr char kFactoryTable[] = "/usr/tavo/etc.defaults/firewall_service_mapping_table";
constexpr char kPackageFile[] = "/usr/local/etc/services.d/fuzz.sc";
constexpr std::string_view kDivider = "\n----\n";
constexpr std::size_t kLongestValue = 1023;

std::string_view ValueOf(std::string_view table, std::string_view key) {
    std::string_view value;
    tavo::ConfigLineReader lines(table);
    tavo::ConfigLine line;
    while (lines.Next(line) && line.kind != tavo::ConfigLineKind::kSection) {
        if (line.kind == tavo::ConfigLineKind::kKeyValue && line.name == key) {
            value = line.value;
        }
    }
    return value.substr(0, kLongestValue);
}

std::vector<std::string> Pieces(std::string_view text) {
    std::vector<std::string> pieces(1);
    for (const char c : text) {
        if (c == ',') {
            pieces.emplace_back();
        } else {
            pieces.back() += c;
        }
    }
    std::erase(pieces, "");
    return pieces;
}

std::vector<std::string> ExpectedSections(std::string_view table, std::string_view factory_table) {
    for (const std::string_view text : {table, factory_table}) {
        const std::string_view value = ValueOf(text, "fuzz");
        if (!value.empty()) {
            return Pieces(value);
        }
    }
    return {"package"};
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size) {
    const std::string_view text(reinterpret_cast<const char *>(data), size);
    const std::size_t divider = text.find(kDivider);
    const std::string_view table = text.substr(0, divider);
    const std::string_view factory_table =
        divider == std::string_view::npos ? "" : text.substr(divider + kDivider.size());
    PlaceFile(kTable, table);
    PlaceFile(kFactoryTable, factory_table);
    PlaceFile(kPackageFile, "[package]\n");

    const std::vector<std::string> expected = ExpectedSections(table, factory_table);
    TLIBCSzList *list = TLIBCSzListAlloc(1);
    Require(TAVOFwSectionNameEnum("fuzz", &list) == static_cast<int>(expected.size()));
    Require(TLIBCSzListCount(list) == static_cast<int>(expected.size()));
    for (std::size_t i = 0; i < expected.size(); ++i) {
        Require(expected[i] == TLIBCSzListGet(list, static_cast<int>(i)));
    }
    TLIBCSzListFree(list);
    return 0;
}
