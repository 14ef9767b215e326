#include "engine/text_ranges.h"

#include <algorithm>
#include <cstdlib>
#include <cstring>

#include "support/text.h"
#include "tavoserviceconf.h"

namespace tavo {
namespace {

// Parses one token, PORT or a range. Modifies the token.
bool ReadToken(const Place &place, char *szToken, char separator, Range &range) {
    const std::size_t nLength = std::strlen(szToken);
    if (nLength > 0 && (szToken[0] == separator || szToken[nLength - 1] == separator)) {
        TAVO_SET_ERROR_AT(place, TLIBC_ERR_BAD_PARAMETER);
        return false;
    }
    char *szEnd = szToken;
    const char *szStart = CutPiece(szEnd, separator);
    if (TAVOServiceConfPortsCheck(szStart) != 1) {
        return false;
    }
    const int nStart = static_cast<int>(std::strtol(szStart, nullptr, 10));
    if (szEnd == nullptr) {
        range = {nStart, nStart};
        return true;
    }
    if (TAVOServiceConfPortsCheck(szEnd) != 1) {
        return false;
    }
    const int nEnd = static_cast<int>(std::strtol(szEnd, nullptr, 10));
    range = {std::min(nStart, nEnd), std::max(nStart, nEnd)};
    return true;
}

}  // namespace

bool MergeRanges(GrowingArray<Range> &ranges, GrowingArray<Range> &merged) {
    std::sort(ranges.begin(), ranges.end(),
              [](const Range &a, const Range &b) { return a.nLow < b.nLow; });
    for (const Range &range : ranges) {
        if (merged.Count() > 0 && range.nLow <= merged[merged.Count() - 1].nHigh + 1) {
            int &nHigh = merged[merged.Count() - 1].nHigh;
            nHigh = std::max(nHigh, range.nHigh);
        } else if (!merged.Append(range)) {
            return false;
        }
    }
    return true;
}

int FailToCopy(const Place &place, const char *szText) {
    return TAVO_FAIL_STATE_AT(place, TLIBC_ERR_NO_MEMORY, "strdup fail for %s", szText);
}

TextRanges::~TextRanges() {
    if (pRanges_ != inline_) {
        std::free(pRanges_);
    }
}

int TextRanges::Get(std::size_t index, Range &range) {
    if (index == nCount_) {
        const int nRead = ReadNext();
        if (nRead < 1) {
            return nRead;
        }
    }
    range = pRanges_[index];
    return 1;
}

int TextRanges::ReadNext() {
    if (copy_ == nullptr && Begin() < 0) {
        return -1;
    }
    while (szRest_ != nullptr) {
        char *szToken = CutPiece(szRest_, ',');
        if (*szToken != '\0') {
            return Append(szToken);
        }
    }
    return 0;
}

int TextRanges::Begin() {
    copy_.reset(strdup(szText_));
    if (copy_ == nullptr) {
        return FailToCopy(place_, szText_);
    }
    szRest_ = copy_.get();
    return TLIBCStrTrimSpace(szRest_);
}

int TextRanges::Append(char *szToken) {
    Range range{};
    if (TLIBCStrTrimSpace(szToken) < 0 || !ReadToken(place_, szToken, separator_, range)) {
        return -1;
    }
    if (nCount_ == nRoom_ && !Grow()) {
        return FailToCopy(place_, szText_);
    }
    pRanges_[nCount_++] = range;
    return 1;
}

bool TextRanges::Grow() {
    const std::size_t nBytes = nRoom_ * sizeof(Range);
    void *pGrown = std::realloc(pRanges_ == inline_ ? nullptr : pRanges_, 2 * nBytes);
    if (pGrown == nullptr) {
        return false;
    }
    if (pRanges_ == inline_) {
        std::memcpy(pGrown, inline_, nBytes);
    }
    pRanges_ = static_cast<Range *>(pGrown);
    nRoom_ *= 2;
    return true;
}

}  // namespace tavo
