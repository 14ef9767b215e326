// For fuzzers of readers of fixed paths, which run in a private appliance.
#ifndef TAVO_TESTS_FUZZ_FUZZ_APPLIANCE_H
#define TAVO_TESTS_FUZZ_FUZZ_APPLIANCE_H

#include <fcntl.h>
#include <unistd.h>

#include <string_view>

#include "fuzz_support.h"
#include "require_appliance.h"

// Creates or replaces the file `path` of the appliance, whose folder must exist.
inline void PlaceFile(const char *path, std::string_view bytes) {
    tavo::test::RequireAppliance();
    const int fd = open(path, O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0644);
    Require(fd >= 0);
    Require(write(fd, bytes.data(), bytes.size()) == static_cast<ssize_t>(bytes.size()));
    close(fd);
}

#endif
