// What the fuzzers share.
#ifndef TAVO_TESTS_FUZZ_FUZZ_SUPPORT_H
#define TAVO_TESTS_FUZZ_FUZZ_SUPPORT_H

#include <syslog.h>

#include <cstdlib>

// Ends the run as a finding; assert would vanish from optimised builds.
inline void Require(bool condition) {
    if (!condition) {
        std::abort();
    }
}

// Millions of bad inputs are no news for the system log.
inline void QuietLog() {
    setlogmask(LOG_MASK(LOG_EMERG));
}

#endif
