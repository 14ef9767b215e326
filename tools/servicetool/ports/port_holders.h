// One that declares ports: a service, a rule or a setting.
#ifndef TAVO_SERVICETOOL_PORTS_PORT_HOLDERS_H
#define TAVO_SERVICETOOL_PORTS_PORT_HOLDERS_H

#include <compare>
#include <string>

namespace tavo::tool {

// Someone who declares ports.
struct PortHolder {
    std::string name;   // what leaves it out of a comparison; empty where nothing does
    std::string file;   // that declares it; empty for a built-in one
    std::string entry;  // of the file: a section or a key
    std::string place;  // file and entry in short, as tables show them
    auto operator<=>(const PortHolder &) const = default;
};

// "web_http (system/web.sc)".
std::string HolderText(const PortHolder &holder);

}  // namespace tavo::tool

#endif
