#include "engine/call_catalogue.h"

#include <algorithm>
#include <charconv>
#include <cstdlib>
#include <cstring>
#include <iterator>

#include "engine/comparison.h"
#include "support/text.h"

namespace tavo {
namespace {

// Up to this many questions search the list without an index.
constexpr int kFewQuestions = 4;

constexpr uint32_t kHighestPort = 65535;

constexpr uint32_t kProtocolBits[] = {TAVO_PROTO_TCP, TAVO_PROTO_UDP};

// Removes a port from the front of the text. As in TAVOServiceConfPortsCheck, only the low 32 bits
// count.
bool TakePort(std::string_view &text, int &nPort) {
    int64_t nValue = -1;
    const auto [pEnd, error] = std::from_chars(text.data(), text.data() + text.size(), nValue);
    if (text.starts_with('-') || error != std::errc() ||
        static_cast<uint32_t>(nValue) > kHighestPort) {
        return false;
    }
    nPort = static_cast<int>(static_cast<uint32_t>(nValue));
    text.remove_prefix(static_cast<std::size_t>(pEnd - text.data()));
    return true;
}

bool ReadPlainToken(std::string_view token, char separator, Range &range) {
    int nStart = 0;
    if (!TakePort(token, nStart)) {
        return false;
    }
    int nEnd = nStart;
    if (token.starts_with(separator)) {
        token.remove_prefix(1);
        if (!TakePort(token, nEnd)) {
            return false;
        }
    }
    range = {std::min(nStart, nEnd), std::max(nStart, nEnd)};
    return token.empty();
}

// Calls enter(range) for each range of a plain text, that is, one that a comparison reads
// completely and without an error. Returns false at the first token that is not plain, when enter
// returns false, and when out of memory.
template <typename Enter>
bool ForEachPlainRange(const char *szText, char separator, Enter enter) {
    const OwnedText copy(strdup(szText));
    if (copy == nullptr || TLIBCStrTrimSpace(copy.get()) < 0) {
        return false;
    }
    for (char *szRest = copy.get(); szRest != nullptr;) {
        char *szToken = CutPiece(szRest, ',');
        Range range{};
        if (*szToken != '\0' && (TLIBCStrTrimSpace(szToken) < 0 ||
                                 !ReadPlainToken(szToken, separator, range) || !enter(range))) {
            return false;
        }
    }
    return true;
}

}  // namespace

bool ServiceIndex::NumberNames(TAVO_FW_SERVICE *pServices) {
    uint32_t nPlace = 0;
    for (TAVO_FW_SERVICE *pService = pServices; pService != nullptr; pService = pService->pNext) {
        if (!names_.Append({FieldText(pService->szName), pService, nPlace++, 0, true})) {
            return false;
        }
    }
    std::sort(names_.begin(), names_.end(), [](const Named &a, const Named &b) {
        return a.name != b.name ? a.name < b.name : a.nPlace < b.nPlace;
    });
    uint32_t nName = 0;
    const Named *pBefore = nullptr;
    for (Named &named : names_) {
        nName += pBefore == nullptr || pBefore->name != named.name ? 1 : 0;
        named.nName = nName;
        pBefore = &named;
    }
    return true;
}

void ServiceIndex::Enter(const Range &range, const Named &named) {
    for (std::size_t row = 0; row < std::size(kProtocolBits); ++row) {
        if ((named.pService->nDstProtocol & kProtocolBits[row]) == 0) {
            continue;
        }
        uint32_t *pFirst = declarers_[row].get() + range.nLow;
        std::for_each(pFirst, pFirst + (range.nHigh - range.nLow + 1), [&](uint32_t &nDeclarer) {
            nDeclarer = nDeclarer == 0 || nDeclarer == named.nName ? named.nName : kSeveral;
        });
    }
}

bool ServiceIndex::EnterPorts(Named &named) {
    GrowingArray<Range> ranges;
    const TLIBCSzList *pTexts = named.pService->pDstPortList;
    bool enough = true;
    for (int i = 0; i < TLIBCSzListCount(pTexts) && named.plain; ++i) {
        named.plain =
            ForEachPlainRange(TLIBCSzListGet(pTexts, i), kDeclaredRangeSeparator,
                              [&](const Range &range) { return enough = ranges.Append(range); });
    }
    GrowingArray<Range> merged;
    // A port that the service declares several times is entered once.
    if (!enough || (named.plain && !MergeRanges(ranges, merged))) {
        return false;
    }
    for (const Range &range : merged) {
        Enter(range, named);
    }
    return true;
}

// Collects the services that are not plain, in list order.
bool ServiceIndex::CollectOdd() {
    GrowingArray<Named> odd;
    for (const Named &named : names_) {
        if (!named.plain && !odd.Append(named)) {
            return false;
        }
    }
    std::sort(odd.begin(), odd.end(),
              [](const Named &a, const Named &b) { return a.nPlace < b.nPlace; });
    return std::all_of(odd.begin(), odd.end(),
                       [this](const Named &named) { return odd_.Append({named.pService}); });
}

bool ServiceIndex::Build(TAVO_FW_SERVICE *pServices) {
    for (Declarers &declarers : declarers_) {
        declarers.reset(static_cast<uint32_t *>(std::calloc(kPorts, sizeof(uint32_t))));
        if (declarers == nullptr) {
            return false;
        }
    }
    return NumberNames(pServices) &&
           std::all_of(names_.begin(), names_.end(),
                       [this](Named &named) { return EnterPorts(named); }) &&
           CollectOdd();
}

const ServiceIndex::Named *ServiceIndex::FirstOf(std::string_view name) const {
    const Named *pFound = std::lower_bound(
        names_.begin(), names_.end(), name,
        [](const Named &named, std::string_view wanted) { return named.name < wanted; });
    return pFound != names_.end() && pFound->name == name ? pFound : nullptr;
}

TAVO_FW_SERVICE *ServiceIndex::Find(const char *szName) const {
    const Named *pFound = FirstOf(szName);
    return pFound != nullptr ? pFound->pService : nullptr;
}

bool ServiceIndex::DeclareNone(const char *szPorts, uint32_t nProtocols,
                               const char *szSkipped) const {
    const Named *pSkipped = szSkipped != nullptr ? FirstOf(szSkipped) : nullptr;
    const uint32_t nSkipped = pSkipped != nullptr ? pSkipped->nName : 0;
    return ForEachPlainRange(szPorts, kQueryRangeSeparator, [&](const Range &range) {
        for (std::size_t row = 0; row < std::size(kProtocolBits); ++row) {
            const uint32_t *pFirst = declarers_[row].get() + range.nLow;
            if ((nProtocols & kProtocolBits[row]) != 0 &&
                !std::all_of(
                    pFirst, pFirst + (range.nHigh - range.nLow + 1),
                    [&](uint32_t nDeclarer) { return nDeclarer == 0 || nDeclarer == nSkipped; })) {
                return false;
            }
        }
        return true;
    });
}

const ServiceCatalogue &CallCatalogue::Get() {
    if (!reusable_) {
        index_.reset();
        catalogue_ = ReadCatalogue();
        reusable_ = catalogue_.count >= 0 && catalogue_.report.LeftNothingOut();
    }
    return catalogue_;
}

// The index, built after the first few questions; null before that, and when out of memory. A
// catalogue that is read again for each question is searched without an index.
const ServiceIndex *CallCatalogue::Index(int &nQuestions) {
    if (!index_ && ++nQuestions > kFewQuestions) {
        nQuestions = 0;
        index_.emplace();
        if (!index_->Build(catalogue_.services.get())) {
            index_.reset();
        }
    }
    return index_ ? &*index_ : nullptr;
}

TAVO_FW_SERVICE *CallCatalogue::Find(const char *szName) {
    const ServiceIndex *pIndex = Index(nFound_);
    return pIndex != nullptr ? pIndex->Find(szName)
                             : TAVOFWServiceFind(catalogue_.services.get(), szName);
}

const OddServices *CallCatalogue::PlainDeclareNone(const char *szPorts, uint32_t nProtocols,
                                                   const TLIBCSzList *pSkipped) {
    const int nSkipped = TLIBCSzListCount(pSkipped);
    const ServiceIndex *pIndex = nSkipped <= 1 ? Index(nCompared_) : nullptr;
    const bool none = pIndex != nullptr &&
                      pIndex->DeclareNone(szPorts, nProtocols,
                                          nSkipped == 1 ? TLIBCSzListGet(pSkipped, 0) : nullptr);
    return none ? &pIndex->Odd() : nullptr;
}

}  // namespace tavo
