// The path of the port-forwarding rules. It is queried at run time because the file belongs to the
// router tool.
#include "tavopf.h"

const char *TAVOPFRuleConfPathGet(void) {
    return "/usr/tavo/etc/portforward/rule.conf";
}
