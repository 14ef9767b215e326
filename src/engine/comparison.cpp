#include "engine/comparison.h"

#include <algorithm>

#include "engine/port_range.h"
#include "support/failure.h"
#include "support/owners.h"

namespace tavo {
namespace {

// Up to this many ranges are compared one by one, without allocating memory.
constexpr std::size_t kFewRanges = 8;

// Reads a text to its end or to the first invalid token. Returns the number of ranges read; `whole`
// is set if the end was reached.
std::size_t ReadAll(TextRanges &ranges, bool &whole) {
    std::size_t nCount = 0;
    Range range{};
    int nGot = 0;
    while ((nGot = ranges.Get(nCount, range)) == 1) {
        ++nCount;
    }
    whole = nGot == 0;
    return nCount;
}

// Adds ranges in any order to an empty set.
int FillSet(PendingRanges &ranges, TAVO_PORT_RANGE *pSet) {
    ranges.Sort();
    return ranges.AddTo(pSet);
}

}  // namespace

int AddConflict(const Range &range, TAVO_SERVICE_CONF_PORT **ppConflictPorts) {
    const bool single = range.nLow == range.nHigh;
    const TAVO_SERVICE_CONF_PORT conflict = {
        .nDirection = TAVO_PORT_DIRECTION_SRC,
        .nPortType = static_cast<uint32_t>(single ? TAVO_PORT_TYPE_SINGLE : TAVO_PORT_TYPE_RANGE),
        .nProtocol = TAVO_PROTO_BOTH,
        .nPortStart = static_cast<uint32_t>(range.nLow),
        .nPortEnd = static_cast<uint32_t>(single ? 0 : range.nHigh),
        .pNext = nullptr,
    };
    return TAVOServiceComposePortInfo(&conflict, ppConflictPorts);
}

int AddCommonPorts(const Range &a, const Range &b, TAVO_SERVICE_CONF_PORT **ppConflictPorts) {
    const Range both = {std::max(a.nLow, b.nLow), std::min(a.nHigh, b.nHigh)};
    if (both.nLow > both.nHigh) {
        return 0;
    }
    return AddConflict(both, ppConflictPorts) < 0 ? -1 : 1;
}

int Comparison::FailToAllocate() const {
    return TAVO_FAIL_STATE_AT(place_, TLIBC_ERR_NO_MEMORY, "Failed to allocate for port ranges");
}

// Reads the query once. An invalid token is an error of the first comparison that reaches it; the
// ranges before it are still compared.
int Comparison::ReadQuery() {
    if (!read_) {
        nAsked_ = ReadAll(query_, read_);
    }
    return read_ ? FindMergedQuery() : -1;
}

int Comparison::FindMergedQuery() {
    if (nAsked_ <= kFewRanges || merged_.Count() > 0) {
        return 0;
    }
    GrowingArray<Range> sorted;
    for (std::size_t i = 0; i < nAsked_; ++i) {
        Range range{};
        query_.Get(i, range);
        if (!sorted.Append(range)) {
            return FailToAllocate();
        }
    }
    return MergeRanges(sorted, merged_) ? 0 : FailToAllocate();
}

// Whether a range overlaps the query, which has been read.
bool Comparison::Meets(const Range &declared) const {
    const Range *pBegin = merged_.Count() > 0 ? merged_.begin() : query_.begin();
    const Range *pEnd = merged_.Count() > 0 ? merged_.end() : pBegin + nAsked_;
    if (merged_.Count() == 0) {
        return std::any_of(pBegin, pEnd, [&](const Range &asked) {
            return asked.nLow <= declared.nHigh && declared.nLow <= asked.nHigh;
        });
    }
    const Range *pFound =
        std::lower_bound(pBegin, pEnd, declared.nLow,
                         [](const Range &asked, int nPort) { return asked.nHigh < nPort; });
    return pFound != pEnd && pFound->nLow <= declared.nHigh;
}

// Keeps the first `nDeclared` ranges of a text, except those that do not overlap the query. Returns
// 1 if any does.
int Comparison::Keep(TextRanges &declared, std::size_t nDeclared) {
    ++nText_;
    const std::size_t nFirst = kept_.Count();
    for (std::size_t i = 0; i < nDeclared; ++i) {
        const Range &range = declared.begin()[i];
        if (read_ && !Meets(range)) {
            continue;
        }
        if (!kept_.Append(
                {static_cast<uint16_t>(range.nLow), static_cast<uint16_t>(range.nHigh), nText_})) {
            return FailToAllocate();
        }
    }
    if (kept_.Count() == nFirst) {
        return 0;
    }
    return keeping_ == Keeping::kDeclaredRanges || MakePairs() == 0 ? 1 : -1;
}

int Comparison::Compare(const char *szDeclared) {
    Range first{};
    const int nGot = query_.Get(0, first);
    if (nGot < 1) {
        return nGot;
    }
    TextRanges declared(place_, szDeclared, kDeclaredRangeSeparator);
    bool whole = false;
    const std::size_t nDeclared = ReadAll(declared, whole);
    if (!whole) {
        // The first range of the query meets the invalid token before the others are compared.
        nAskedOfLast_ = 1;
        Keep(declared, nDeclared);
        return -1;
    }
    const int nQuery = ReadQuery();
    nAskedOfLast_ = nAsked_;
    const int nAnswer = Keep(declared, nDeclared);
    return nQuery < 0 ? -1 : nAnswer;
}

int Comparison::MergeCommonPorts(TAVO_PORT_RANGE *pSet) const {
    const OwnedRanges asked(TLIBPortRangeCreate());
    const OwnedRanges declared(TLIBPortRangeCreate());
    PendingRanges query(place_);
    PendingRanges ranges(place_);
    const auto add = [](PendingRanges &to, int nLow, int nHigh) {
        return to.Append(static_cast<uint32_t>(nLow), static_cast<uint32_t>(nHigh));
    };
    const bool added =
        std::all_of(query_.begin(), query_.begin() + nAsked_,
                    [&](const Range &range) { return add(query, range.nLow, range.nHigh); }) &&
        std::all_of(kept_.begin(), kept_.end(),
                    [&](const Kept &kept) { return add(ranges, kept.nLow, kept.nHigh); });
    if (!added || asked == nullptr || declared == nullptr || FillSet(query, asked.get()) < 0 ||
        FillSet(ranges, declared.get()) < 0) {
        return -1;
    }
    return TLIBPortRangeOverlap(asked.get(), declared.get(), pSet);
}

// Adds the pairs one by one, the last one first, which is the order of the caller's list.
int Comparison::MergePairs(TAVO_PORT_RANGE *pSet) const {
    RangeAdder adder(pSet);
    for (std::size_t nEnd = kept_.Count(); nEnd > 0;) {
        std::size_t nFirst = nEnd;
        while (nFirst > 0 && kept_[nFirst - 1].nText == kept_[nEnd - 1].nText) {
            --nFirst;
        }
        for (const Range *pAsked = query_.begin() + nAsked_; pAsked-- != query_.begin();) {
            for (std::size_t i = nEnd; i-- > nFirst;) {
                const int nLow = std::max<int>(pAsked->nLow, kept_[i].nLow);
                const int nHigh = std::min<int>(pAsked->nHigh, kept_[i].nHigh);
                if (nLow <= nHigh &&
                    adder.Add(static_cast<uint32_t>(nLow), static_cast<uint32_t>(nHigh)) < 0) {
                    return -1;
                }
            }
        }
        nEnd = nFirst;
    }
    return 0;
}

// The result depends on the order of the additions only if the set contains a range with its end
// before its start. The settings produce one if two of them are neighbours and the query names them
// in reverse order.
int Comparison::Merge(TAVO_PORT_RANGE *pSet) const {
    return IsWellFormed(pSet->pRanges) ? MergeCommonPorts(pSet) : MergePairs(pSet);
}

// Adds the pairs of one text to the caller's list.
int Comparison::MakePairsOf(std::size_t nFirst, std::size_t nEnd, std::size_t nAsked) {
    for (const Range *pAsked = query_.begin(); pAsked != query_.begin() + nAsked; ++pAsked) {
        for (std::size_t i = nFirst; i < nEnd; ++i) {
            if (AddCommonPorts(*pAsked, {kept_[i].nLow, kept_[i].nHigh}, ppConflicts_) < 0) {
                return -1;
            }
        }
    }
    return 0;
}

int Comparison::MakePairs() {
    int nResult = 0;
    for (std::size_t nFirst = 0; nFirst < kept_.Count() && nResult == 0;) {
        std::size_t nEnd = nFirst;
        while (nEnd < kept_.Count() && kept_[nEnd].nText == kept_[nFirst].nText) {
            ++nEnd;
        }
        const bool last = kept_[nFirst].nText == nText_;
        nResult = MakePairsOf(nFirst, nEnd, last ? nAskedOfLast_ : nAsked_);
        nFirst = nEnd;
    }
    kept_.Clear();
    return nResult;
}

}  // namespace tavo
