// The ports that a caller asks for, compared with the texts of those who declare ports.
#ifndef TAVO_SRC_ENGINE_COMPARISON_H
#define TAVO_SRC_ENGINE_COMPARISON_H

#include <cstddef>
#include <cstdint>

#include "engine/text_ranges.h"
#include "support/growing_array.h"
#include "tavoserviceconf.h"

namespace tavo {

// Declared ranges are written START-END, those of a query START:END.
constexpr char kDeclaredRangeSeparator = '-';
constexpr char kQueryRangeSeparator = ':';

// Puts a conflict in front of the list: of both protocols, whichever was asked for.
int AddConflict(const Range &range, TAVO_SERVICE_CONF_PORT **ppConflictPorts);

// The same for what two ranges have in common: 1 when there is something, 0 when not, -1 on
// failure.
int AddCommonPorts(const Range &a, const Range &b, TAVO_SERVICE_CONF_PORT **ppConflictPorts);

// Every pair of an asked and a declared range that overlap is one conflict. Where the conflicts are
// merged into a set of ports in the end, the pairs are not made: two files of ten thousand ranges
// each would make a hundred million. The declared ranges are kept instead, in the order of the
// comparisons, so that the pairs can still be made when nothing is merged after all.
class Comparison {
  public:
    enum class Keeping {
        kPairs,           // in the caller's list, at once
        kDeclaredRanges,  // for Merge or MakePairs
    };

    // Failures are reported for the operation at `place`.
    Comparison(const Place &place, const char *szQuery, Keeping keeping,
               TAVO_SERVICE_CONF_PORT **ppConflictPorts)
        : place_(place),
          query_(place, szQuery, kQueryRangeSeparator),
          keeping_(keeping),
          ppConflicts_(ppConflictPorts) {}

    // Compares with one declared text. 1 when they collide, 0 when they do not, -1 on failure.
    int Compare(const char *szDeclared);

    bool HasKept() const { return kept_.Count() > 0; }

    // Adds the ports of all conflicts that were kept to a set. They stay kept: what is done with
    // the set may still fail.
    int Merge(TAVO_PORT_RANGE *pSet) const;

    // Forgets what was kept, once it is in the caller's list.
    void Forget() { kept_.Clear(); }

    // Puts the pairs that were kept in front of the caller's list, as far as memory reaches, and
    // forgets them.
    int MakePairs();

  private:
    struct Kept {
        uint16_t nLow;
        uint16_t nHigh;
        uint32_t nText;  // texts are compared one after the other
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
    std::size_t nAsked_ = 0;      // how many ranges of the query could be read
    bool read_ = false;           // the query to its end
    GrowingArray<Range> merged_;  // the query, ascending and disjoint; where it is long
    GrowingArray<Kept> kept_;
    uint32_t nText_ = 0;
    std::size_t nAskedOfLast_ = 0;  // how much of the query the last text was compared with
};

}  // namespace tavo

#endif
