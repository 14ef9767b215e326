// Replaces the library's service catalogue by one that a test provides. Without an OfferedServices
// object, the real catalogue is used.
#ifndef TAVO_TESTS_CHECK_OFFERED_SERVICES_H
#define TAVO_TESTS_CHECK_OFFERED_SERVICES_H

#include <string>
#include <vector>

#include "tavoserviceconf.h"

namespace tavo::test {

// A service with its destination ports and their protocol.
struct OfferedService {
    std::string name;
    uint32_t protocol;
    std::vector<std::string> ports;
};

// The content of the catalogue during the lifetime of this object. `result` is the result of the
// call (0: the number of services), with an error state if it is negative.
class OfferedServices {
  public:
    explicit OfferedServices(const std::vector<OfferedService> &services, int result = 0);
    ~OfferedServices();
    OfferedServices(const OfferedServices &) = delete;
    OfferedServices &operator=(const OfferedServices &) = delete;

    // The list, which the test may modify.
    TAVO_FW_SERVICE *List() const;

    // How often the list was fetched and not freed.
    int Lent() const;
};

}  // namespace tavo::test

#endif
