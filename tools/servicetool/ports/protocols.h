// Protocol flag words as names and as text.
#ifndef TAVO_SERVICETOOL_PORTS_PROTOCOLS_H
#define TAVO_SERVICETOOL_PORTS_PROTOCOLS_H

#include <cstdint>
#include <string>
#include <vector>

#include "tavoserviceconf.h"

namespace tavo::tool {

// The flag words of one protocol each.
inline constexpr std::uint32_t kProtocols[] = {TAVO_PROTO_TCP, TAVO_PROTO_UDP};

// "tcp", "udp" or both, in the order of the library's protocol map.
inline std::vector<std::string> ProtocolNames(std::uint32_t flags) {
    std::vector<std::string> names;
    for (const TAVO_PROTO_TYPE_MAPPING &row : gProtoTypeMapping) {
        if ((flags & static_cast<std::uint32_t>(row.nProto)) != 0) {
            names.emplace_back(row.szName);
        }
    }
    return names;
}

// The same with commas between: "tcp,udp".
inline std::string ProtocolsText(std::uint32_t flags) {
    std::string text;
    for (const std::string &name : ProtocolNames(flags)) {
        text += (text.empty() ? "" : ",") + name;
    }
    return text;
}

}  // namespace tavo::tool

#endif
