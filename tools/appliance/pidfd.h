// Descriptors of processes: they name one very process for ever, in whichever process table, while
// its number may soon be another's.
#ifndef TAVO_TOOLS_APPLIANCE_PIDFD_H
#define TAVO_TOOLS_APPLIANCE_PIDFD_H

// glibc 2.36 forgets to declare these as C functions.
extern "C" {
#include <sys/pidfd.h>
}

#endif
