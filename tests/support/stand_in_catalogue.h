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

}  // namespace tavo

#endif
