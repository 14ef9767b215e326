// Where service files live.
#ifndef TAVO_SRC_SUPPORT_SERVICE_DIRECTORY_H
#define TAVO_SRC_SUPPORT_SERVICE_DIRECTORY_H

#include <cstddef>

#include "tavoserviceconf.h"

namespace tavo {

constexpr char kSystemServiceDirectory[] = "/usr/tavo/etc/services.d";
constexpr char kPackageServiceDirectory[] = "/usr/local/etc/services.d";

// A folder of service files, and the bit that selects it for TAVOServiceConfEnum.
struct ServiceFolder {
    int flag;
    const char *path;
};

// In the order of reading.
inline constexpr ServiceFolder kServiceFolders[] = {
    {TAVO_SERVICE_CONF_DIR_SYSTEM, kSystemServiceDirectory},
    {TAVO_SERVICE_CONF_DIR_PACKAGE, kPackageServiceDirectory},
};
constexpr int kEveryServiceFolder = TAVO_SERVICE_CONF_DIR_SYSTEM | TAVO_SERVICE_CONF_DIR_PACKAGE;

// Room for the path of a file in a directory, PATH_MAX of Linux.
constexpr std::size_t kPathSize = 4096;

}  // namespace tavo

#endif
