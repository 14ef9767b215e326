#include "ports/port_holders.h"

namespace tavo::tool {

std::string HolderText(const PortHolder &holder) {
    if (holder.name.empty() || holder.place.empty()) {
        return holder.name + holder.place;
    }
    return holder.name + " (" + holder.place + ')';
}

}  // namespace tavo::tool
