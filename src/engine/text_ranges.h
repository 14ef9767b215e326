// Ports and ranges in a text: what somebody asks for ("80,1000:2000") or has declared
// ("80,1000-2000").
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

// Appends the ports of the ranges to `merged`, which is empty: ascending, and no two of them
// overlap or touch. Sorts the ranges. Returns false when out of memory.
bool MergeRanges(GrowingArray<Range> &ranges, GrowingArray<Range> &merged);

// Reports that a text could not be copied, for the operation at that place.
int FailToCopy(const Place &place, const char *szText);

// The ranges of a text between commas, empty tokens left out. A token is read when it is first
// asked for, and only once however often the text is compared: a bad one is an error where a
// comparison comes to it and nowhere else.
class TextRanges {
  public:
    // Ranges are written START `separator` END, in any order. The text is the caller's. Failures
    // are reported for the operation at `place`.
    TextRanges(const Place &place, const char *szText, char separator)
        : place_(place), szText_(szText), separator_(separator) {}
    ~TextRanges();
    TextRanges(const TextRanges &) = delete;
    TextRanges &operator=(const TextRanges &) = delete;

    // 1 with the range number `index`, which is one that was asked for before or the next one; 0
    // behind the last; -1 when it is none or memory runs out.
    int Get(std::size_t index, Range &range);

    // The ranges that were asked for so far.
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
