// For tests that empty the fixed folders: nobody's own machine is to lose its service files.
#ifndef TAVO_TESTS_SUPPORT_REQUIRE_APPLIANCE_H
#define TAVO_TESTS_SUPPORT_REQUIRE_APPLIANCE_H

#include <unistd.h>

#include <stdexcept>
#include <string_view>

namespace tavo::test {

// Throws anywhere but in a private appliance, which it knows by its host name.
inline void RequireAppliance() {
    char name[64] = {};
    gethostname(name, sizeof(name) - 1);
    if (name != std::string_view("appliance")) {
        throw std::runtime_error("this test runs in a private appliance only");
    }
}

}  // namespace tavo::test

#endif
