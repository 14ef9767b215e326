// Process descriptors: unlike a process ID, which may be reused, a descriptor always refers to the
// same process, and it is valid in every PID namespace.
#ifndef TAVO_TOOLS_APPLIANCE_PIDFD_H
#define TAVO_TOOLS_APPLIANCE_PIDFD_H

// glibc 2.36 does not declare these as C functions.
extern "C" {
#include <sys/pidfd.h>
}

#endif
