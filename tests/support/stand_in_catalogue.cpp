#include "stand_in_catalogue.h"

namespace tavo {

ServiceCatalogue LinkedCatalogue() asm("__real__ZN4tavo13ReadCatalogueEv");

ServiceCatalogue RealCatalogue() {
    return LinkedCatalogue();
}

}  // namespace tavo
