#include "stand_ins.h"

#include <dlfcn.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string_view>

#include "stand_in_catalogue.h"

namespace {

const char *g_failing = "";
int g_calls_left = 0;

TAVO_FW_SERVICE *g_offered = nullptr;
bool g_offers = false;
int g_result = 0;
int g_lent = 0;

bool Fails(std::string_view function) {
    return function == g_failing && --g_calls_left <= 0;
}

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

#define STAND_IN_FRONT extern "C" __attribute__((visibility("default")))
#define NEXT(function) reinterpret_cast<decltype(&(function))>(dlsym(RTLD_NEXT, #function))

// NOLINTBEGIN(bugprone-macro-parentheses): neither a type nor parameters can stand in them
// Defines a function that gives `failure` where it is to fail, else what the real one gives.
#define MAY_FAIL(failure, result, function, parameters, arguments) \
    STAND_IN_FRONT result function parameters {                    \
        static const auto next = NEXT(function);                   \
        return Fails(#function) ? failure : next arguments;        \
    }
// NOLINTEND(bugprone-macro-parentheses)

// clang-format off
MAY_FAIL(nullptr, TLIBCDList *, TAVOConfPortConflictResultListAlloc, (void), ())
MAY_FAIL(nullptr, PTAVO_CONF_PORT_CONFLICT_RESULT, TAVOConfPortConflictResultAlloc, (void), ())
MAY_FAIL(nullptr, TLIBCDList *, SysConfListFetch, (void), ())
MAY_FAIL(nullptr, TLIBCDList *, PkgConfListFetch, (void), ())
MAY_FAIL(-1, int, TAVOConfListConflictPorts,
         (const TLIBCDList *results, uint16_t protocol, TLIBCSzList *ports),
         (results, protocol, ports))
MAY_FAIL(nullptr, TLIBCSzList *, TLIBCSzListAlloc, (int capacity), (capacity))
MAY_FAIL(-1, int, TLIBCSzListPush, (TLIBCSzList **list, const char *item), (list, item))
// clang-format on

STAND_IN_FRONT int TAVOFwServiceEnum(TAVO_FW_SERVICE **services) {
    static const auto next = NEXT(TAVOFwServiceEnum);
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

STAND_IN_FRONT void TAVOFwServiceFree(TAVO_FW_SERVICE *list) {
    static const auto next = NEXT(TAVOFwServiceFree);
    if (g_offers && list != nullptr && list == g_offered) {
        --g_lent;
        return;
    }
    next(list);
}

tavo::ServiceCatalogue tavo::StandInCatalogue() {
    if (!g_offers) {
        return RealCatalogue();
    }
    TAVO_FW_SERVICE *services = nullptr;
    ServiceCatalogue catalogue;
    catalogue.count = TAVOFwServiceEnum(&services);
    catalogue.services.reset(services);
    return catalogue;
}

namespace tavo::test {

Failing::Failing(const char *function, int nth) {
    g_failing = function;
    g_calls_left = nth;
}

Failing::~Failing() {
    g_failing = "";
}

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
