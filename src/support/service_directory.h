// Where service files live, and the room for their paths.
#ifndef TAVO_SRC_SUPPORT_SERVICE_DIRECTORY_H
#define TAVO_SRC_SUPPORT_SERVICE_DIRECTORY_H

#include <cstddef>

#include "base/system_files.h"

namespace tavo {

// Room for the path of a file in a directory, PATH_MAX of Linux.
constexpr std::size_t kPathSize = 4096;

}  // namespace tavo

#endif
