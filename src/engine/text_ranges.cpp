#include "engine/text_ranges.h"

#include <cstring>
#include <utility>

#include "model/port_text.h"
#include "support/text.h"
#include "tavoserviceconf.h"

namespace tavo {

void MergeRanges(GrowingArray<Range> &ranges) {
    std::sort(ranges.begin(), ranges.end(),
              [](const Range &a, const Range &b) { return a.low < b.low; });
    std::size_t merged = 0;
    for (const Range &range : ranges) {
        if (merged > 0 && range.low <= ranges[merged - 1].high + 1) {
            int &high = ranges[merged - 1].high;
            high = std::max(high, range.high);
        } else {
            ranges[merged++] = range;
        }
    }
    ranges.Truncate(merged);
}

void RangeIndex::Sort() {
    std::sort(entries_.begin(), entries_.end(),
              [](const Entry &a, const Entry &b) { return a.range.low < b.range.low; });
    int highest = 0;
    for (Entry &entry : entries_) {
        highest = std::max(highest, entry.range.high);
        entry.highest = highest;
    }
}

int FailToCopy(const Place &place, const char *text) {
    return TAVO_FAIL_STATE_AT(place, TLIBC_ERR_NO_MEMORY, "strdup fail for %s", text);
}

int TextRanges::FailToAllocate() const {
    return place_ ? FailToCopy(*place_, text_) : -1;
}

int TextRanges::ReadNext(GrowingArray<Range> &ranges) {
    if (copy_ == nullptr) {
        copy_.reset(strdup(text_));
        rest_ = copy_.get();
        if (copy_ == nullptr) {
            return FailToAllocate();
        }
        if (TLIBCStrTrimSpace(rest_) < 0) {
            return -1;
        }
    }
    while (rest_ != nullptr) {
        char *token = CutPiece(rest_, ',');
        if (*token == '\0') {
            continue;
        }
        Range range{};
        if (TLIBCStrTrimSpace(token) < 0 || !ReadToken(token, range)) {
            return -1;
        }
        return ranges.Append(range) ? 1 : FailToAllocate();
    }
    return 0;
}

int TextRanges::ReadAll(GrowingArray<Range> &ranges) {
    int got = 1;
    while (got == 1) {
        got = ReadNext(ranges);
    }
    return got;
}

// Parses one token, PORT or a range. Modifies the token.
bool TextRanges::ReadToken(char *token, Range &range) const {
    const std::size_t length = std::strlen(token);
    if (length > 0 && (token[0] == separator_ || token[length - 1] == separator_)) {
        if (place_) {
            TAVO_SET_ERROR_AT(*place_, TLIBC_ERR_BAD_PARAMETER);
        }
        return false;
    }
    char *end = token;
    const char *start = CutPiece(end, separator_);
    if (!ReadPort(start, range.low) || !ReadPort(end != nullptr ? end : start, range.high)) {
        return false;
    }
    if (range.low > range.high) {
        std::swap(range.low, range.high);
    }
    return true;
}

bool TextRanges::ReadPort(const char *text, int &port) const {
    uint32_t number = 0;
    const bool valid = ReadPortNumber(text, number);
    if (!valid && place_) {
        TAVOServiceConfPortsCheck(text);  // reports the error
    }
    port = static_cast<int>(number);
    return valid;
}

}  // namespace tavo
