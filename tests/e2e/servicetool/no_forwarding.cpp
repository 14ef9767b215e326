// The port-forwarding library of an appliance that cannot forward ports.
#include "tavopf.h"

const char *TAVOPFRuleConfPathGet(void) {
    return nullptr;
}
