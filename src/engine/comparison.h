// Compares the ports of a query with declared texts.
#ifndef TAVO_SRC_ENGINE_COMPARISON_H
#define TAVO_SRC_ENGINE_COMPARISON_H

#include <cstddef>
#include <cstdint>

#include "engine/text_ranges.h"
#include "support/growing_array.h"
#include "tavoserviceconf.h"

namespace tavo {

// Prepends the overlap of two ranges to the list, with both protocols, whatever the query asked
// for. Returns 1 if they overlap, 0 if not, -1 on failure.
int AddCommonPorts(const Range &a, const Range &b, TAVO_SERVICE_CONF_PORT **conflicts);

// Each overlapping pair of a query range and a declared range is one conflict. If the conflicts are
// merged into a port set at the end, the pairs are not created: two files of ten thousand ranges
// each would give a hundred million. Therefore only the declared ranges are kept, in the order of
// the comparisons, until Merge or MakePairs.
class Comparison {
  public:
    // Failures are reported for the operation at `place`.
    Comparison(const Place &place, const char *query)
        : place_(place), query_(place, query, kQueryRangeSeparator) {}

    // Compares with one declared text. Returns 1 if they overlap, 0 if not, -1 on failure.
    int Compare(const char *declared);

    // Adds the ports of all conflicts to a set. The declared ranges are still kept, because later
    // steps with the set may fail.
    int Merge(TAVO_PORT_RANGE *set) const;

    // Drops the kept ranges once they are in the caller's list.
    void Forget() { kept_.Truncate(0); }

    // Prepends the pairs to the caller's list until memory runs out, and drops the kept ranges.
    int MakePairs(TAVO_SERVICE_CONF_PORT **conflicts);

  private:
    struct Kept {
        uint16_t low;
        uint16_t high;
        uint32_t text;  // number of the declared text
    };

    int ReadQuery();
    bool Meets(const Range &declared) const;
    int Keep(const GrowingArray<Range> &declared);
    int MakePairsOf(std::size_t first, std::size_t end, std::size_t asked,
                    TAVO_SERVICE_CONF_PORT **conflicts) const;
    int MergeCommonPorts(TAVO_PORT_RANGE *set) const;
    int MergePairs(TAVO_PORT_RANGE *set) const;
    int FailToAllocate() const;

    Place place_;
    TextRanges query_;
    GrowingArray<Range> asked_;   // the valid ranges of the query, as far as it was read
    GrowingArray<Range> merged_;  // the same in ascending order and disjoint, once all are read
    bool read_ = false;           // the query was read to its end
    GrowingArray<Kept> kept_;
    uint32_t text_ = 0;
    std::size_t asked_of_last_ = 0;  // number of query ranges compared with the last text
};

}  // namespace tavo

#endif
