// A summary of a port in one sentence.
#ifndef TAVO_SERVICETOOL_PORTS_PORT_SENTENCE_H
#define TAVO_SERVICETOOL_PORTS_PORT_SENTENCE_H

#include <string>

#include "ports/port_claims.h"

namespace tavo::tool {

// "8080/tcp is declared by 'web' in package/web.sc, but nobody listens". Names are not escaped;
// the caller must escape the sentence when printing it. `as_root`: the caller is root, who can
// inspect every process.
std::string PortSentence(const PortAccount &account, bool as_root);

}  // namespace tavo::tool

#endif
