// The catalogue of firewall services, read for one call of the conflict engine.
#ifndef TAVO_SRC_ENGINE_CALL_CATALOGUE_H
#define TAVO_SRC_ENGINE_CALL_CATALOGUE_H

#include <cstddef>
#include <optional>

#include "catalogue/firewall_service.h"
#include "engine/text_ranges.h"
#include "support/growing_array.h"

namespace tavo {

using Services = GrowingArray<const TAVO_FW_SERVICE *>;

// Finds services by the ports that they declare. A service file of N sections asks N times about N
// services; the index avoids comparing each section with all of them.
class ServiceIndex {
  public:
    // Returns false when out of memory.
    bool Build(const TAVO_FW_SERVICE *services);

    // The services that must be compared with the ports, in list order: those that declare one of
    // them, and those with an invalid text, because the comparison reports the error. All services
    // if the ports are invalid. Null when out of memory.
    const Services *Candidates(const char *ports);

  private:
    bool AddPorts(const TAVO_FW_SERVICE &service, std::size_t place);

    Services services_;                  // in list order
    RangeIndex declared_;                // the ports of valid services, by place in the list
    GrowingArray<std::size_t> invalid_;  // the places of the others
    Services candidates_;
};

// Reads the catalogue once per call if it is complete. Reading an incomplete catalogue logs what is
// missing, and the log must show this for each question, so it is then read again for each one. A
// catalogue that is read once is a snapshot: services that are installed later are not seen.
class CallCatalogue {
  public:
    const ServiceCatalogue &Get();

    // Candidates of the index of the last Get.
    const Services *Candidates(const char *ports);

  private:
    ServiceCatalogue catalogue_;
    bool reusable_ = false;
    std::optional<ServiceIndex> index_;
};

}  // namespace tavo

#endif
