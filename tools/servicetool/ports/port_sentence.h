// What a person needs to know of a port, in one sentence.
#ifndef TAVO_SERVICETOOL_PORTS_PORT_SENTENCE_H
#define TAVO_SERVICETOOL_PORTS_PORT_SENTENCE_H

#include <string>

#include "ports/port_claims.h"

namespace tavo::tool {

// "8080/tcp is declared by 'web' in package/web.sc, but nobody listens". With names as they came:
// it is escaped when it is printed. `as_root` says whether root asks, who sees every process.
std::string PortSentence(const PortAccount &account, bool as_root);

}  // namespace tavo::tool

#endif
