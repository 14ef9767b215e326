// A program that links tavoserviceconf_seams instead of the library supplies the catalogue: the
// library calls the program's StandInCatalogue in place of ReadCatalogue.
#ifndef TAVO_TESTS_SUPPORT_STAND_IN_CATALOGUE_H
#define TAVO_TESTS_SUPPORT_STAND_IN_CATALOGUE_H

#include "catalogue/firewall_service.h"

namespace tavo {

// Defined by the test program. The linker option --wrap redirects ReadCatalogue to this name.
__attribute__((visibility("default"))) ServiceCatalogue StandInCatalogue() asm(
    "__wrap__ZN4tavo13ReadCatalogueEv");

// The library's own ReadCatalogue.
__attribute__((visibility("default"))) ServiceCatalogue RealCatalogue();

// A catalogue of the list and count that `enumerate` returns, a stand-in for TAVOFwServiceEnum.
template <typename Enumerate>
ServiceCatalogue CatalogueOf(Enumerate enumerate) {
    TAVO_FW_SERVICE *services = nullptr;
    ServiceCatalogue catalogue;
    catalogue.count = enumerate(&services);
    catalogue.services.reset(services);
    return catalogue;
}

}  // namespace tavo

#endif
