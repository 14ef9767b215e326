// Which ports sockets hold now.
//
// Asked about many ports at once, the library says no more than that one of them is held. So what
// is held is asked for again in halves, down to single ports.
#ifndef TAVO_SERVICETOOL_PORTS_SOCKET_PORTS_H
#define TAVO_SERVICETOOL_PORTS_SOCKET_PORTS_H

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <string>

#include "ports/port_question.h"
#include "ports/port_ranges.h"

namespace tavo::tool {

struct SocketPorts {
    bool known = true;       // false: the library cannot tell, or not in time
    std::string problem;     // why, where that is known
    PortRanges held;         // a set
    PortRanges partly_held;  // where the questions ran out: what was left, with held ports in it
};

// Each question costs the library a look at everything that is declared and at every socket. Beyond
// so many questions a range is not halved any more, and beyond the time nothing is asked.
struct SearchLimits {
    std::size_t questions;
    std::chrono::seconds time;
};

// The ports of a set that sockets of any of these protocols hold.
SocketPorts AskSockets(const PortRanges &set, std::uint32_t protocols, const SkippedNames &skipped,
                       const SearchLimits &limits);

// Whether the library sees sockets of these protocols at all. It takes a table of sockets that it
// cannot read for an empty one, so it is asked for a port that is known to be held.
// Where it cannot be asked, `problem` tells why.
bool SeesSockets(std::uint32_t protocols, std::string &problem);

}  // namespace tavo::tool

#endif
