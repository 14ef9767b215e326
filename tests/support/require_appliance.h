// For tests that empty the fixed folders or mount something on them. Outside of a private appliance
// they would delete the service files of the machine.
#ifndef TAVO_TESTS_SUPPORT_REQUIRE_APPLIANCE_H
#define TAVO_TESTS_SUPPORT_REQUIRE_APPLIANCE_H

#include <unistd.h>

#include <filesystem>
#include <stdexcept>
#include <string_view>

namespace tavo::test {

// Throws outside of a private appliance, which is recognised by its host name.
inline void RequireAppliance() {
    char name[64] = {};
    gethostname(name, sizeof(name) - 1);
    if (name != std::string_view("appliance")) {
        throw std::runtime_error("this test runs in a private appliance only");
    }
}

// Whether this program is below /tmp, with the build that it belongs to. Hiding /tmp then hides the
// program as well.
inline bool ThisProgramLiesInTmp() {
    return std::filesystem::read_symlink("/proc/self/exe").string().starts_with("/tmp/");
}

}  // namespace tavo::test

#endif
