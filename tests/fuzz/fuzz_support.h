// Common parts of the fuzzers.
#ifndef TAVO_TESTS_FUZZ_FUZZ_SUPPORT_H
#define TAVO_TESTS_FUZZ_FUZZ_SUPPORT_H

#include <syslog.h>

#include <cstdlib>

// Ends the run as a finding; assert would be removed from optimised builds.
inline void Require(bool condition) {
    if (!condition) {
        std::abort();
    }
}

// Keeps the errors of millions of invalid inputs out of the system log.
inline void QuietLog() {
    setlogmask(LOG_MASK(LOG_EMERG));
}

#endif
