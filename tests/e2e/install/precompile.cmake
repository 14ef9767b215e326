# For test builds of the library: reading the headers of the standard library takes most of the
# build time, so they are precompiled.
cmake_language(DEFER DIRECTORY ${CMAKE_SOURCE_DIR} CALL target_precompile_headers
  tavoserviceconf_objects PRIVATE <algorithm> <charconv> <chrono> <cstdio> <cstdlib> <cstring>
  <memory> <mutex> <optional> <string_view> <sys/stat.h> <unistd.h>)
