// Functions of the library with others in front of them, for the whole program: they give it
// services of a test's making, and make single steps fail. Where no test asks, the real ones
// answer.
#ifndef TAVO_TESTS_CHECK_STAND_INS_H
#define TAVO_TESTS_CHECK_STAND_INS_H

#include <string>
#include <vector>

#include "tavoserviceconf.h"

namespace tavo::test {

// The function of that name fails for as long as this lives, from its nth call on. stand_ins.cpp
// lists those that can.
class Failing {
  public:
    explicit Failing(const char *function, int nth = 1);
    ~Failing();
    Failing(const Failing &) = delete;
    Failing &operator=(const Failing &) = delete;
};

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
