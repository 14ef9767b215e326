// Ranges of ports: parsing them in a text, merging them, and finding those that overlap. A text is
// a query ("80,1000:2000") or a declared text ("80,1000-2000").
#ifndef TAVO_SRC_ENGINE_TEXT_RANGES_H
#define TAVO_SRC_ENGINE_TEXT_RANGES_H

#include <algorithm>
#include <cstddef>
#include <optional>

#include "support/failure.h"
#include "support/growing_array.h"
#include "support/owners.h"

namespace tavo {

struct Range {
    int low;
    int high;
};

// Declared ranges are written START-END, query ranges START:END.
constexpr char kDeclaredRangeSeparator = '-';
constexpr char kQueryRangeSeparator = ':';

// Sorts the ranges, and merges those that overlap or touch.
void MergeRanges(GrowingArray<Range> &ranges);

// Finds numbered ranges by their ports.
class RangeIndex {
  public:
    // Returns false when out of memory.
    bool Add(const Range &range, std::size_t number) { return entries_.Append({range, number, 0}); }

    // Must be called after the last Add.
    void Sort();

    // Calls take(range, number) for each range that overlaps this one, those with the highest start
    // first. Goes back from the last range that starts at or below the end of this one, as long as
    // an earlier range can reach its start.
    template <typename Take>
    void ForEachOverlap(const Range &range, Take take) const {
        const Entry *entry = FirstAbove(range.high);
        while (entry != entries_.begin() && (--entry)->highest >= range.low) {
            if (entry->range.high >= range.low) {
                take(entry->range, entry->number);
            }
        }
    }

    // Whether any range overlaps this one.
    bool HasOverlap(const Range &range) const {
        const Entry *entry = FirstAbove(range.high);
        return entry != entries_.begin() && (entry - 1)->highest >= range.low;
    }

  private:
    struct Entry {
        Range range;
        std::size_t number;
        int highest;  // the highest port of this range and of all before it
    };

    // The first entry that starts above the port.
    const Entry *FirstAbove(int port) const {
        return std::upper_bound(entries_.begin(), entries_.end(), port,
                                [](int low, const Entry &one) { return low < one.range.low; });
    }

    GrowingArray<Entry> entries_;
};

// Reports that a text could not be copied, for the operation at `place`.
int FailToCopy(const Place &place, const char *text);

// Reads the ranges of a comma-separated text; empty tokens are ignored.
class TextRanges {
  public:
    // Ranges are written START `separator` END, in any order. The text must outlive the object.
    // Failures are reported for the operation at `place`; without a place they are not reported.
    TextRanges(const std::optional<Place> &place, const char *text, char separator)
        : place_(place), text_(text), separator_(separator) {}

    // Appends the next range. Returns 1; 0 after the last; -1 for an invalid token or when out of
    // memory.
    int ReadNext(GrowingArray<Range> &ranges);

    // Appends all ranges that follow, up to the first invalid token. Returns 0 or -1.
    int ReadAll(GrowingArray<Range> &ranges);

  private:
    bool ReadToken(char *token, Range &range) const;
    bool ReadPort(const char *text, int &port) const;
    int FailToAllocate() const;

    std::optional<Place> place_;
    const char *text_;
    char separator_;
    OwnedText copy_;
    char *rest_ = nullptr;
};

}  // namespace tavo

#endif
