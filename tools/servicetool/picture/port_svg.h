// The map of all ports as a self-contained SVG file for a browser.
#ifndef TAVO_SERVICETOOL_PICTURE_PORT_SVG_H
#define TAVO_SERVICETOOL_PICTURE_PORT_SVG_H

#include <string>
#include <string_view>
#include <vector>

#include "ports/port_claims.h"

namespace tavo::tool {

// "service web (system/web.sc)", "socket /usr/bin/nginx, pid 812, www-data, LISTEN".
std::string ClaimText(const PortClaim &claim);

// The text as XML. Characters that XML does not allow are written as escapes, as on a terminal.
std::string XmlText(std::string_view text);

// The map of these claims as SVG. Each cell has a tooltip with all claims to its ports. `all`
// contains the ports in conflict.
std::string PortSvg(const std::vector<PortClaim> &claims, const PortClaims &all, bool legend);

}  // namespace tavo::tool

#endif
