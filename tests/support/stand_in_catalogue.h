// A program that links tavoserviceconf_seams in the place of the library gives it the catalogue:
// where the library would call ReadCatalogue, it calls the program's StandInCatalogue.
#ifndef TAVO_TESTS_SUPPORT_STAND_IN_CATALOGUE_H
#define TAVO_TESTS_SUPPORT_STAND_IN_CATALOGUE_H

#include "catalogue/firewall_service.h"

namespace tavo {

// Defined by the test program. The linker's option --wrap makes this name out of ReadCatalogue's.
__attribute__((visibility("default"))) ServiceCatalogue StandInCatalogue() asm(
    "__wrap__ZN4tavo13ReadCatalogueEv");

// The library's own.
__attribute__((visibility("default"))) ServiceCatalogue RealCatalogue();

}  // namespace tavo

#endif
