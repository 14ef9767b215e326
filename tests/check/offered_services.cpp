#include "offered_services.h"

#include <cstdio>
#include <cstdlib>

#include "interpose.h"
#include "stand_in_catalogue.h"

namespace {

TAVO_FW_SERVICE *g_offered = nullptr;
bool g_offers = false;
int g_result = 0;
int g_lent = 0;

TAVO_FW_SERVICE *NewService(const tavo::test::OfferedService &from) {
    auto *service = static_cast<TAVO_FW_SERVICE *>(calloc(1, sizeof(TAVO_FW_SERVICE)));
    snprintf(service->szName, sizeof(service->szName), "%s", from.name.c_str());
    service->nDstProtocol = from.protocol;
    service->pDstPortList = TLIBCSzListAlloc(1);
    for (const std::string &ports : from.ports) {
        TLIBCSzListPush(&service->pDstPortList, ports.c_str());
    }
    return service;
}

}  // namespace

TAVO_INTERPOSED int TAVOFwServiceEnum(TAVO_FW_SERVICE **services) {
    static const auto next = TAVO_INTERPOSED_NEXT(TAVOFwServiceEnum);
    if (!g_offers) {
        return next(services);
    }
    if (g_result < 0) {
        TLIBCErrSetEx(0x123, "catalogue.cpp", 1);
    }
    *services = g_offered;
    g_lent += g_offered != nullptr ? 1 : 0;
    return g_result;
}

TAVO_INTERPOSED void TAVOFwServiceFree(TAVO_FW_SERVICE *list) {
    static const auto next = TAVO_INTERPOSED_NEXT(TAVOFwServiceFree);
    if (g_offers && list != nullptr && list == g_offered) {
        --g_lent;
        return;
    }
    next(list);
}

tavo::ServiceCatalogue tavo::StandInCatalogue() {
    return g_offers ? CatalogueOf(TAVOFwServiceEnum) : RealCatalogue();
}

namespace tavo::test {

OfferedServices::OfferedServices(const std::vector<OfferedService> &services, int result) {
    TAVO_FW_SERVICE **end = &g_offered;
    for (const OfferedService &service : services) {
        *end = NewService(service);
        end = &(*end)->pNext;
    }
    g_result = result != 0 ? result : static_cast<int>(services.size());
    g_offers = true;
    g_lent = 0;
}

OfferedServices::~OfferedServices() {
    g_offers = false;
    TAVOFwServiceFree(g_offered);
    g_offered = nullptr;
}

TAVO_FW_SERVICE *OfferedServices::List() const {
    return g_offered;
}

int OfferedServices::Lent() const {
    return g_lent;
}

}  // namespace tavo::test
