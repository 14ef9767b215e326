// Parses ports and ranges in a text: a query ("80,1000:2000") or a declared text ("80,1000-2000").
#ifndef TAVO_SRC_ENGINE_TEXT_RANGES_H
#define TAVO_SRC_ENGINE_TEXT_RANGES_H

#include <cstddef>
#include <iterator>

#include "support/failure.h"
#include "support/growing_array.h"
#include "support/owners.h"

namespace tavo {

struct Range {
    int nLow;
    int nHigh;
};

// Appends the ports of the ranges to `merged`, which is empty: ascending, neither overlapping nor
// touching. Sorts `ranges`. Returns false when out of memory.
bool MergeRanges(GrowingArray<Range> &ranges, GrowingArray<Range> &merged);

// Reports that a text could not be copied, for the operation at `place`.
int FailToCopy(const Place &place, const char *szText);

// The ranges of a comma-separated text; empty tokens are ignored. Each token is parsed once, on
// first use, however often the text is compared: an invalid one is an error only if a comparison
// reaches it.
class TextRanges {
  public:
    // Ranges are written START `separator` END, in any order. The text must outlive the object.
    // Failures are reported for the operation at `place`.
    TextRanges(const Place &place, const char *szText, char separator)
        : place_(place), szText_(szText), separator_(separator) {}
    ~TextRanges();
    TextRanges(const TextRanges &) = delete;
    TextRanges &operator=(const TextRanges &) = delete;

    // Gets range number `index`, which must be an earlier one or the next one. Returns 1; 0 after
    // the last; -1 for an invalid token or when out of memory.
    int Get(std::size_t index, Range &range);

    // The ranges read so far.
    const Range *begin() const { return pRanges_; }

  private:
    int ReadNext();
    int Begin();
    int Append(char *szToken);
    bool Grow();

    Place place_;
    const char *szText_;
    char separator_;
    OwnedText copy_;
    char *szRest_ = nullptr;
    Range inline_[8] = {};  // enough for what services declare
    Range *pRanges_ = inline_;
    std::size_t nCount_ = 0;
    std::size_t nRoom_ = std::size(inline_);
};

}  // namespace tavo

#endif
