// Compares the ports of a query with declared ports, each pair of ranges in turn. It is the
// reference for the engine's comparison, which keeps ranges and merges them.
#ifndef TAVO_TESTS_ENGINE_PLAIN_COMPARISON_H
#define TAVO_TESTS_ENGINE_PLAIN_COMPARISON_H

#include "engine/comparison.h"
#include "engine/text_ranges.h"
#include "tavoserviceconf.h"

namespace tavo::test {

// Returns 1 if the two overlap, 0 if not, -1 on failure. Each overlapping pair is prepended to
// *conflicts.
inline int PlainCompare(const char *query, const char *declared,
                        TAVO_SERVICE_CONF_PORT **conflicts) {
    TextRanges asked(TAVO_HERE, query, kQueryRangeSeparator);
    GrowingArray<Range> ones;
    int answer = 0;
    int got = 0;
    while ((got = asked.ReadNext(ones)) == 1) {
        TextRanges taken(TAVO_HERE, declared, kDeclaredRangeSeparator);
        GrowingArray<Range> others;
        while ((got = taken.ReadNext(others)) == 1) {
            const int pair = AddCommonPorts(*(ones.end() - 1), *(others.end() - 1), conflicts);
            if (pair < 0) {
                return -1;
            }
            answer |= pair;
        }
        if (got < 0) {
            return -1;
        }
    }
    return got < 0 ? -1 : answer;
}

}  // namespace tavo::test

#endif
