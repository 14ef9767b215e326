// Asked ports against declared ones, every pair of ranges in turn: what the engine's comparison,
// which keeps ranges and merges them, is judged by.
#ifndef TAVO_TESTS_ENGINE_PLAIN_COMPARISON_H
#define TAVO_TESTS_ENGINE_PLAIN_COMPARISON_H

#include <cstddef>

#include "engine/comparison.h"
#include "engine/text_ranges.h"
#include "tavoserviceconf.h"

namespace tavo::test {

// 1 when the two share a port, 0 when they do not, -1 on failure; each pair that does is put in
// front of *conflicts.
inline int PlainCompare(const char *query, const char *declared,
                        TAVO_SERVICE_CONF_PORT **conflicts) {
    TextRanges asked(TAVO_HERE, query, kQueryRangeSeparator);
    TextRanges taken(TAVO_HERE, declared, kDeclaredRangeSeparator);
    Range one{};
    Range other{};
    int answer = 0;
    int got = 0;
    for (std::size_t i = 0; (got = asked.Get(i, one)) == 1; ++i) {
        for (std::size_t j = 0; (got = taken.Get(j, other)) == 1; ++j) {
            const int pair = AddCommonPorts(one, other, conflicts);
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
