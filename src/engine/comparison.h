// Compares the ports of a query with declared texts.
#ifndef TAVO_SRC_ENGINE_COMPARISON_H
#define TAVO_SRC_ENGINE_COMPARISON_H

#include <cstddef>
#include <cstdint>

#include "engine/text_ranges.h"
#include "support/growing_array.h"
#include "tavoserviceconf.h"

namespace tavo {

// Declared ranges are written START-END, query ranges START:END.
constexpr char kDeclaredRangeSeparator = '-';
constexpr char kQueryRangeSeparator = ':';

// Prepends a conflict to the list, with both protocols, whatever the query asked for.
int AddConflict(const Range &range, TAVO_SERVICE_CONF_PORT **ppConflictPorts);

// The same for the overlap of two ranges. Returns 1 if they overlap, 0 if not, -1 on failure.
int AddCommonPorts(const Range &a, const Range &b, TAVO_SERVICE_CONF_PORT **ppConflictPorts);

// Each overlapping pair of a query range and a declared range is one conflict. If the conflicts are
// merged into a port set at the end, the pairs are not created: two files of ten thousand ranges
// each would give a hundred million. Instead the declared ranges are kept, in the order of the
// comparisons, so that the pairs can still be created if the merge does not happen.
class Comparison {
  public:
    enum class Keeping {
        kPairs,           // prepended to the caller's list at once
        kDeclaredRanges,  // for Merge or MakePairs
    };

    // Failures are reported for the operation at `place`.
    Comparison(const Place &place, const char *szQuery, Keeping keeping,
               TAVO_SERVICE_CONF_PORT **ppConflictPorts)
        : place_(place),
          query_(place, szQuery, kQueryRangeSeparator),
          keeping_(keeping),
          ppConflicts_(ppConflictPorts) {}

    // Compares with one declared text. Returns 1 if they overlap, 0 if not, -1 on failure.
    int Compare(const char *szDeclared);

    bool HasKept() const { return kept_.Count() > 0; }

    // Adds the ports of all kept conflicts to a set. They are still kept, because later steps with
    // the set may fail.
    int Merge(TAVO_PORT_RANGE *pSet) const;

    // Drops the kept ranges once they are in the caller's list.
    void Forget() { kept_.Clear(); }

    // Prepends the pairs of the kept ranges to the caller's list until memory runs out, and drops
    // the kept ranges.
    int MakePairs();

  private:
    struct Kept {
        uint16_t nLow;
        uint16_t nHigh;
        uint32_t nText;  // number of the declared text
    };

    int ReadQuery();
    int FindMergedQuery();
    bool Meets(const Range &declared) const;
    int Keep(TextRanges &declared, std::size_t nDeclared);
    int MakePairsOf(std::size_t nFirst, std::size_t nEnd, std::size_t nAsked);
    int MergeCommonPorts(TAVO_PORT_RANGE *pSet) const;
    int MergePairs(TAVO_PORT_RANGE *pSet) const;
    int FailToAllocate() const;

    Place place_;
    TextRanges query_;
    Keeping keeping_;
    TAVO_SERVICE_CONF_PORT **ppConflicts_;
    std::size_t nAsked_ = 0;      // number of valid ranges of the query
    bool read_ = false;           // the query was read to its end
    GrowingArray<Range> merged_;  // a long query, ascending and disjoint
    GrowingArray<Kept> kept_;
    uint32_t nText_ = 0;
    std::size_t nAskedOfLast_ = 0;  // number of query ranges compared with the last text
};

}  // namespace tavo

#endif
