// Where service files live.
#ifndef TAVO_SRC_SUPPORT_SERVICE_DIRECTORY_H
#define TAVO_SRC_SUPPORT_SERVICE_DIRECTORY_H

#include <cstddef>

namespace tavo {

constexpr char kSystemServiceDirectory[] = "/usr/tavo/etc/services.d";
constexpr char kPackageServiceDirectory[] = "/usr/local/etc/services.d";

// Room for the path of a file in a directory, PATH_MAX of Linux.
constexpr std::size_t kPathSize = 4096;

}  // namespace tavo

#endif
