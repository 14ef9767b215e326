// The catalogue of firewall services as one call of the conflict engine sees it.
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

// Services whose texts have to be compared, to report what is wrong with them.
struct OddService {
    const TAVO_FW_SERVICE *pService;
};
using OddServices = GrowingArray<OddService>;

// Finds services by name and ports by number. A service file of N sections asks N times about
// N services, so what one question would walk is put in order once.
class ServiceIndex {
  public:
    // The first service of that name; null when there is none.
    TAVO_FW_SERVICE *Find(const char *szName) const;

    // Whether it is certain that no service declares one of the ports that `szPorts` asks for, on
    // one of the protocols, but for services of the name `szSkipped` (null: none) and odd ones.
    // False when a service does, and when `szPorts` is such that only comparing tells.
    bool DeclareNone(const char *szPorts, uint32_t nProtocols, const char *szSkipped) const;

    // In the order of the list.
    const OddServices &Odd() const { return odd_; }

    // False when out of memory.
    bool Build(TAVO_FW_SERVICE *pServices);

  private:
    static constexpr std::size_t kPorts = 65536;
    static constexpr uint32_t kSeveral = UINT32_MAX;  // names that declare the port

    struct Named {
        std::string_view name;
        TAVO_FW_SERVICE *pService;
        uint32_t nPlace;  // in the list
        uint32_t nName;   // the same number for the same name, from 1 on
        bool plain;       // whether no declared text is odd
    };

    // Who declares each port for one protocol: a number of a name, 0 or kSeveral.
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

// Reads the catalogue, at most once where that shows nowhere. A reading that leaves something out
// logs it, so each question for the catalogue then reads it anew. Whatever is read once is of one
// moment: the call does not see what is installed meanwhile.
class CallCatalogue {
  public:
    const ServiceCatalogue &Get();

    TAVO_FW_SERVICE *Find(const char *szName);

    // When ServiceIndex is certain that none of the services that Get gave last declares the ports,
    // the odd ones that have to be compared all the same. Null otherwise, and while it costs less
    // to compare all.
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
