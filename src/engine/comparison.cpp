#include "engine/comparison.h"

#include <algorithm>

#include "engine/port_range.h"
#include "support/failure.h"

namespace tavo {

int AddCommonPorts(const Range &a, const Range &b, TAVO_SERVICE_CONF_PORT **conflicts) {
    const int low = std::max(a.low, b.low);
    const int high = std::min(a.high, b.high);
    if (low > high) {
        return 0;
    }
    const bool single = low == high;
    const TAVO_SERVICE_CONF_PORT conflict = {
        .nDirection = TAVO_PORT_DIRECTION_SRC,
        .nPortType = static_cast<uint32_t>(single ? TAVO_PORT_TYPE_SINGLE : TAVO_PORT_TYPE_RANGE),
        .nProtocol = TAVO_PROTO_BOTH,
        .nPortStart = static_cast<uint32_t>(low),
        .nPortEnd = static_cast<uint32_t>(single ? 0 : high),
        .pNext = nullptr,
    };
    return TAVOServiceComposePortInfo(&conflict, conflicts) < 0 ? -1 : 1;
}

int Comparison::FailToAllocate() const {
    return TAVO_FAIL_STATE_AT(place_, TLIBC_ERR_NO_MEMORY, "Failed to allocate for port ranges");
}

// Reads the rest of the query, once. An invalid token is an error of the first comparison that
// reaches it; the ranges before it are still compared.
int Comparison::ReadQuery() {
    if (read_) {
        return 0;
    }
    if (query_.ReadAll(asked_) < 0) {
        return -1;
    }
    if (!merged_.AppendAll(asked_)) {
        return FailToAllocate();
    }
    MergeRanges(merged_);
    read_ = true;
    return 0;
}

// Whether a range overlaps the query, which has been read.
bool Comparison::Meets(const Range &declared) const {
    const Range *found =
        std::lower_bound(merged_.begin(), merged_.end(), declared.low,
                         [](const Range &asked, int port) { return asked.high < port; });
    return found != merged_.end() && found->low <= declared.high;
}

// Keeps the ranges of a text, except those that do not overlap the query. Returns 1 if any is kept.
int Comparison::Keep(const GrowingArray<Range> &declared) {
    ++text_;
    const std::size_t before = kept_.Count();
    for (const Range &range : declared) {
        if (read_ && !Meets(range)) {
            continue;
        }
        if (!kept_.Append(
                {static_cast<uint16_t>(range.low), static_cast<uint16_t>(range.high), text_})) {
            return FailToAllocate();
        }
    }
    return kept_.Count() > before ? 1 : 0;
}

int Comparison::Compare(const char *declared) {
    const int first = asked_.Count() > 0 ? 1 : query_.ReadNext(asked_);
    if (first < 1) {
        return first;
    }
    GrowingArray<Range> ranges;
    if (TextRanges(place_, declared, kDeclaredRangeSeparator).ReadAll(ranges) < 0) {
        // The first range of the query meets the invalid token before the others are compared.
        asked_of_last_ = 1;
        Keep(ranges);
        return -1;
    }
    const int query = ReadQuery();
    asked_of_last_ = asked_.Count();
    const int answer = Keep(ranges);
    return query < 0 ? -1 : answer;
}

int Comparison::MergeCommonPorts(TAVO_PORT_RANGE *set) const {
    GrowingArray<Range> declared;
    const bool copied = std::all_of(kept_.begin(), kept_.end(), [&](const Kept &kept) {
        return declared.Append({kept.low, kept.high});
    });
    if (!copied) {
        return FailToAllocate();
    }
    MergeRanges(declared);
    RangeAdder adder(set);
    const Range *asked = merged_.begin();
    for (const Range &range : declared) {
        while (asked != merged_.end() && asked->high < range.low) {
            ++asked;
        }
        for (const Range *one = asked; one != merged_.end() && one->low <= range.high; ++one) {
            if (adder.Add(static_cast<uint32_t>(std::max(one->low, range.low)),
                          static_cast<uint32_t>(std::min(one->high, range.high))) < 0) {
                return -1;
            }
        }
    }
    return 0;
}

// Adds the pairs one by one, the last one first, which is the order of the caller's list.
int Comparison::MergePairs(TAVO_PORT_RANGE *set) const {
    RangeAdder adder(set);
    for (std::size_t end = kept_.Count(); end > 0;) {
        std::size_t first = end;
        while (first > 0 && kept_[first - 1].text == kept_[end - 1].text) {
            --first;
        }
        for (const Range *asked = asked_.end(); asked-- != asked_.begin();) {
            for (std::size_t i = end; i-- > first;) {
                const int low = std::max<int>(asked->low, kept_[i].low);
                const int high = std::min<int>(asked->high, kept_[i].high);
                if (low <= high &&
                    adder.Add(static_cast<uint32_t>(low), static_cast<uint32_t>(high)) < 0) {
                    return -1;
                }
            }
        }
        end = first;
    }
    return 0;
}

// The result depends on the order of the additions only if the set contains a range with its end
// before its start. The settings produce one if two of them are neighbours and the query names them
// in reverse order.
int Comparison::Merge(TAVO_PORT_RANGE *set) const {
    if (kept_.Count() == 0) {
        return 0;
    }
    return IsWellFormed(set->pRanges) ? MergeCommonPorts(set) : MergePairs(set);
}

// Adds the pairs of one text to the caller's list.
int Comparison::MakePairsOf(std::size_t first, std::size_t end, std::size_t asked,
                            TAVO_SERVICE_CONF_PORT **conflicts) const {
    for (const Range *one = asked_.begin(); one != asked_.begin() + asked; ++one) {
        for (std::size_t i = first; i < end; ++i) {
            if (AddCommonPorts(*one, {kept_[i].low, kept_[i].high}, conflicts) < 0) {
                return -1;
            }
        }
    }
    return 0;
}

int Comparison::MakePairs(TAVO_SERVICE_CONF_PORT **conflicts) {
    int result = 0;
    for (std::size_t first = 0; first < kept_.Count() && result == 0;) {
        std::size_t end = first;
        while (end < kept_.Count() && kept_[end].text == kept_[first].text) {
            ++end;
        }
        const bool last = kept_[first].text == text_;
        result = MakePairsOf(first, end, last ? asked_of_last_ : asked_.Count(), conflicts);
        first = end;
    }
    kept_.Truncate(0);
    return result;
}

}  // namespace tavo
