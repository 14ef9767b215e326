// The picture of the port space as a file that stands alone, for a browser.
#ifndef TAVO_SERVICETOOL_PICTURE_PORT_SVG_H
#define TAVO_SERVICETOOL_PICTURE_PORT_SVG_H

#include <string>
#include <string_view>
#include <vector>

#include "ports/port_claims.h"

namespace tavo::tool {

// "service web (system/web.sc)", "socket /usr/bin/nginx, pid 812, www-data, LISTEN".
std::string ClaimText(const PortClaim &claim);

// A text as XML holds it: what it has no characters for is written out, as on a terminal.
std::string XmlText(std::string_view text);

// The picture of these claims, each cell with a tooltip that tells all claims to its ports. `all`
// knows which ports are in conflict.
std::string PortSvg(const std::vector<PortClaim> &claims, const PortClaims &all, bool legend);

}  // namespace tavo::tool

#endif
