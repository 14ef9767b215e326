// The directories of service files, and the size of their paths.
#ifndef TAVO_SRC_SUPPORT_SERVICE_DIRECTORY_H
#define TAVO_SRC_SUPPORT_SERVICE_DIRECTORY_H

#include <cstddef>

#include "base/system_files.h"
#include "tavoserviceconf.h"

namespace tavo {

// A folder of service files.
struct ServiceFolder {
    int selector;      // the bit that selects it for TAVOServiceConfEnum
    const char *name;  // for people
    const char *path;
};

// In reading order.
inline constexpr ServiceFolder kServiceFolders[] = {
    {TAVO_SERVICE_CONF_DIR_SYSTEM, "system", kSystemServiceDirectory},
    {TAVO_SERVICE_CONF_DIR_PACKAGE, "package", kPackageServiceDirectory},
};
constexpr int kEveryServiceFolder = TAVO_SERVICE_CONF_DIR_SYSTEM | TAVO_SERVICE_CONF_DIR_PACKAGE;

// The size of a file path, PATH_MAX of Linux.
constexpr std::size_t kPathSize = 4096;

}  // namespace tavo

#endif
