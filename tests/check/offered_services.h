// A catalogue of a test's making in the place of the library's. Where no test asks, the real one
// answers.
#ifndef TAVO_TESTS_CHECK_OFFERED_SERVICES_H
#define TAVO_TESTS_CHECK_OFFERED_SERVICES_H

#include <string>
#include <vector>

#include "tavoserviceconf.h"

namespace tavo::test {

// Destination ports of a service and their protocol.
struct OfferedService {
    std::string name;
    uint32_t protocol;
    std::vector<std::string> ports;
};

// What the catalogue lists for as long as this lives, with `result` as its answer (0 stands for
// how many they are) and the error state of that call.
class OfferedServices {
  public:
    explicit OfferedServices(const std::vector<OfferedService> &services, int result = 0);
    ~OfferedServices();
    OfferedServices(const OfferedServices &) = delete;
    OfferedServices &operator=(const OfferedServices &) = delete;

    // The list itself, to change.
    TAVO_FW_SERVICE *List() const;

    // How often the list was asked for and not given back.
    int Lent() const;
};

}  // namespace tavo::test

#endif
