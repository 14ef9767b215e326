// For tests that empty the fixed folders, or mount something on them: nobody's own machine is to
// lose its service files.
#ifndef TAVO_TESTS_SUPPORT_REQUIRE_APPLIANCE_H
#define TAVO_TESTS_SUPPORT_REQUIRE_APPLIANCE_H

#include <unistd.h>

#include <filesystem>
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

// Whether this program lies below /tmp, with the build that it is of. What hides /tmp hides it.
inline bool ThisProgramLiesInTmp() {
    return std::filesystem::read_symlink("/proc/self/exe").string().starts_with("/tmp/");
}

}  // namespace tavo::test

#endif
