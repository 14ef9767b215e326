#include "engine/call_catalogue.h"

#include <algorithm>

namespace tavo {

// A port that the service declares several times is entered once.
bool ServiceIndex::AddPorts(const TAVO_FW_SERVICE &service, std::size_t place) {
    GrowingArray<Range> ranges;
    for (int i = 0; i < TLIBCSzListCount(service.pDstPortList); ++i) {
        TextRanges text(std::nullopt, TLIBCSzListGet(service.pDstPortList, i),
                        kDeclaredRangeSeparator);
        if (text.ReadAll(ranges) < 0) {
            return invalid_.Append(place);
        }
    }
    MergeRanges(ranges);
    return std::all_of(ranges.begin(), ranges.end(),
                       [&](const Range &range) { return declared_.Add(range, place); });
}

bool ServiceIndex::Build(const TAVO_FW_SERVICE *services) {
    for (; services != nullptr; services = services->pNext) {
        if (!services_.Append(services) || !AddPorts(*services, services_.Count() - 1)) {
            return false;
        }
    }
    declared_.Sort();
    return true;
}

const Services *ServiceIndex::Candidates(const char *ports) {
    GrowingArray<Range> asked;
    if (TextRanges(std::nullopt, ports, kQueryRangeSeparator).ReadAll(asked) < 0) {
        return &services_;
    }
    MergeRanges(asked);
    GrowingArray<std::size_t> places;
    bool enough = true;
    const auto add = [&](std::size_t place) {
        // More places than services are not worth sorting.
        enough = enough && (places.Count() > services_.Count() || places.Append(place));
    };
    std::for_each(invalid_.begin(), invalid_.end(), add);
    for (const Range &range : asked) {
        declared_.ForEachOverlap(range, [&](const Range &, std::size_t place) { add(place); });
    }
    if (places.Count() > services_.Count()) {
        return &services_;
    }
    std::sort(places.begin(), places.end());
    candidates_.Truncate(0);
    const std::size_t *end = std::unique(places.begin(), places.end());
    for (const std::size_t *place = places.begin(); place != end; ++place) {
        enough = enough && candidates_.Append(services_[*place]);
    }
    return enough ? &candidates_ : nullptr;
}

const ServiceCatalogue &CallCatalogue::Get() {
    if (!reusable_) {
        index_.reset();
        catalogue_ = ReadCatalogue();
        reusable_ = catalogue_.count >= 0 && catalogue_.report.LeftNothingOut();
    }
    return catalogue_;
}

const Services *CallCatalogue::Candidates(const char *ports) {
    if (!index_) {
        index_.emplace();
        if (!index_->Build(catalogue_.services.get())) {
            index_.reset();
            return nullptr;
        }
    }
    return index_->Candidates(ports);
}

}  // namespace tavo
