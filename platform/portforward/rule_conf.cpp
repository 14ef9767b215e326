// Where the port-forwarding rules stand. The path is asked for at run time, since it is the router
// tool's file and not the callers'.
#include "tavopf.h"

const char *TAVOPFRuleConfPathGet(void) {
    return "/usr/tavo/etc/portforward/rule.conf";
}
