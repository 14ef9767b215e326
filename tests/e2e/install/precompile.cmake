# For a build of the library whose objects nobody runs for long: reading the headers of the standard
# library takes most of its time, so they are read once.
cmake_language(DEFER DIRECTORY ${CMAKE_SOURCE_DIR} CALL target_precompile_headers
  tavoserviceconf_objects PRIVATE <algorithm> <charconv> <chrono> <cstdio> <cstdlib> <cstring>
  <memory> <mutex> <optional> <string_view> <sys/stat.h> <unistd.h>)
