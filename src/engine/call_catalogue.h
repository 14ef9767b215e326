// The catalogue of firewall services, read for one call of the conflict engine.
#ifndef TAVO_SRC_ENGINE_CALL_CATALOGUE_H
#define TAVO_SRC_ENGINE_CALL_CATALOGUE_H

#include <cstddef>
#include <cstdint>
#include <memory>
#include <optional>
#include <string_view>

#include "catalogue/firewall_service.h"
#include "engine/text_ranges.h"
#include "support/growing_array.h"

namespace tavo {

// A service that must be compared even if no port matches: the comparison reports the error in its
// text.
struct OddService {
    const TAVO_FW_SERVICE *pService;
};
using OddServices = GrowingArray<OddService>;

// Finds services by name and ports by number. A service file of N sections asks N times about N
// services; the index avoids searching the list each time.
class ServiceIndex {
  public:
    // The first service of that name; null if there is none.
    TAVO_FW_SERVICE *Find(const char *szName) const;

    // True if no service declares a port of `szPorts` on one of the protocols, apart from services
    // named `szSkipped` (null: none) and odd ones. False if a service does, and if `szPorts` is not
    // plain, so that it must be compared.
    bool DeclareNone(const char *szPorts, uint32_t nProtocols, const char *szSkipped) const;

    // In list order.
    const OddServices &Odd() const { return odd_; }

    // Returns false when out of memory.
    bool Build(TAVO_FW_SERVICE *pServices);

  private:
    static constexpr std::size_t kPorts = 65536;
    static constexpr uint32_t kSeveral = UINT32_MAX;  // several names declare the port

    struct Named {
        std::string_view name;
        TAVO_FW_SERVICE *pService;
        uint32_t nPlace;  // position in the list
        uint32_t nName;   // number of the name, from 1; equal names have equal numbers
        bool plain;       // no declared text is odd
    };

    // For one protocol, the number of the name that declares each port, 0 or kSeveral.
    using Declarers = std::unique_ptr<uint32_t, FreeWith<std::free>>;

    const Named *FirstOf(std::string_view name) const;
    bool NumberNames(TAVO_FW_SERVICE *pServices);
    bool EnterPorts(Named &named);
    bool CollectOdd();
    void Enter(const Range &range, const Named &named);

    GrowingArray<Named> names_;
    Declarers declarers_[2];  // by protocol bit
    OddServices odd_;
};

// Reads the catalogue once per call if it is complete. Reading an incomplete catalogue logs what is
// missing, and the log must show this for each question, so it is then read again for each one. A
// catalogue that is read once is a snapshot: services that are installed later are not seen.
class CallCatalogue {
  public:
    const ServiceCatalogue &Get();

    TAVO_FW_SERVICE *Find(const char *szName);

    // If ServiceIndex is certain that no service of the last Get declares the ports: the odd
    // services, which must be compared in any case. Null otherwise, and as long as comparing all
    // services is cheaper.
    const OddServices *PlainDeclareNone(const char *szPorts, uint32_t nProtocols,
                                        const TLIBCSzList *pSkipped);

  private:
    const ServiceIndex *Index(int &nQuestions);

    ServiceCatalogue catalogue_;
    bool reusable_ = false;
    int nFound_ = 0;
    int nCompared_ = 0;
    std::optional<ServiceIndex> index_;
};

}  // namespace tavo

#endif
