// A library that cannot read which program a process runs.
#include "tavoserviceconf.h"

char *ProgramCommandFetch(uint32_t) {
    return nullptr;
}
