// Ports in the notation of users and service files: ranges, sets of ranges, protocols, and queries
// of the form PORTS[/PROTOCOLS]. Also the choice of free ports.
#ifndef TAVO_SERVICETOOL_PORTS_PORT_QUERY_H
#define TAVO_SERVICETOOL_PORTS_PORT_QUERY_H

#include <compare>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "config_lines.h"
#include "model/port_text.h"
#include "tavoserviceconf.h"

namespace tavo::tool {

// ---- Ranges. A set of ports is a list of ascending ranges that neither overlap nor touch. ----

struct PortRange {
    std::uint32_t first;
    std::uint32_t last;  // at least `first`
    auto operator<=>(const PortRange &) const = default;
};

using PortRanges = std::vector<PortRange>;

// The set of the ports in any ranges.
PortRanges Merged(PortRanges ranges);

// Whether any port of a set is in `range`.
bool OverlapsWith(const PortRanges &set, const PortRange &range);

// The ports of a set that are in `range`.
PortRanges Overlap(const PortRanges &set, const PortRange &range);

// The ports of a set that are not in the set `taken`.
PortRanges Without(const PortRanges &set, const PortRanges &taken);

std::size_t PortCount(const PortRanges &set);

// "80", "1000:2000".
std::string PortsText(const PortRange &range);

// The same for several ranges, separated by commas.
std::string PortsText(const PortRanges &ranges);

// ---- Free ports to suggest ----

// Up to `count` blocks of `size` consecutive ports of a set, which may overlap. Those whose first
// port is nearest to `near` come first; of two at the same distance, the lower one.
PortRanges NearestBlocks(const PortRanges &set, std::size_t count, std::size_t size,
                         std::uint32_t near);

// The range of ports for outgoing connections, over IPv4 and IPv6.
inline constexpr char kEphemeralPorts[] = "/proc/sys/net/ipv4/ip_local_port_range";

// Reads the range from a file in the format of kEphemeralPorts. Returns "", or the reason for the
// failure.
std::string ReadEphemeralPorts(const std::string &path, PortRange &range);

// ---- Protocols ----

// The flag of each protocol.
inline constexpr std::uint32_t kProtocols[] = {TAVO_PROTO_TCP, TAVO_PROTO_UDP};

// "tcp", "udp" or both, in the order of the library's protocol map.
std::vector<std::string_view> ProtocolNames(std::uint32_t flags);

// The same separated by commas: "tcp,udp".
std::string ProtocolsText(std::uint32_t flags);

// The flags of protocol words separated by commas, as the library reads them; -1 if one of them is
// invalid.
int ProtocolFlags(std::string_view words);

inline constexpr char kNameProtocols[] = "write tcp, udp or tcp,udp";

// ---- Pieces of port lists ----

// Calls look(piece) for each piece of `text` between commas, without surrounding blanks.
template <typename Look>
void ForEachPiece(std::string_view text, Look look) {
    for (;;) {
        const std::size_t comma = text.find(',');
        look(TrimBlanks(text.substr(0, comma)));
        if (comma == std::string_view::npos) {
            return;
        }
        text.remove_prefix(comma + 1);
    }
}

// The low 32 bits of the number, as the library reads it if there are too many digits.
std::uint32_t PortOf(std::string_view text);

// Whether `text` is decimal digits and nothing else.
bool IsNumber(std::string_view text);

// The digits of a number without its leading zeros.
std::string_view Significant(std::string_view digits);

// An item of a port list: a port, or START:END.
struct PortItem {
    std::string_view start;
    std::string_view end;  // the start of a single port
    bool is_range;

    PortRange Range() const;
};

// Splits an item at its first colon.
PortItem SplitItem(std::string_view text);

// Why a part of a text about ports is invalid.
struct PortProblem {
    std::string_view spot;  // the invalid part; may be empty
    std::string message;
    std::string fix = {};

    // The column of the spot in the text that contains it, from 1, in bytes.
    std::size_t ColumnIn(std::string_view text) const {
        return static_cast<std::size_t>(spot.data() - text.data()) + 1;
    }
};

// Why `number`, alone or on one side of the range `item`, is not a decimal number.
PortProblem WhyNoNumber(std::string_view number, std::string_view item);

// ---- Questions ----

// PORTS[/PROTOCOLS]: the notation of service files, read strictly. Ports that are only a warning of
// lint in a file, such as port 0, are errors here.
struct PortQuery {
    PortRanges items;             // in the order given, each with its lower port first
    std::uint32_t protocols = 0;  // protocol flag word
};

// "80,1000:2000/tcp,udp": protocols are always included.
std::string QueryText(const PortQuery &query);

// Returns the first problem if `text` is invalid; `query` is then unchanged.
std::optional<PortProblem> ReadPortQuery(std::string_view text, PortQuery &query);

// The same for PROTOCOLS alone.
std::optional<PortProblem> ReadProtocols(std::string_view text, std::uint32_t &protocols);

}  // namespace tavo::tool

#endif
