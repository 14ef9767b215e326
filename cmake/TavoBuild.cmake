# How everything here is compiled and linked: language level, warnings, hardening, sanitizers,
# and the two kinds of thing that the folders build, an ABI-stable shared library and a test.

if(NOT CMAKE_BUILD_TYPE)
  set(CMAKE_BUILD_TYPE Release)  # fortified calls need an optimised build
endif()
set(CMAKE_CXX_STANDARD 20)
set(CMAKE_CXX_STANDARD_REQUIRED ON)
set(CMAKE_CXX_EXTENSIONS OFF)
set(CMAKE_C_STANDARD 99)
set(CMAKE_C_STANDARD_REQUIRED ON)
set(CMAKE_CXX_VISIBILITY_PRESET hidden)
set(CMAKE_C_VISIBILITY_PRESET hidden)
set(CMAKE_VISIBILITY_INLINES_HIDDEN ON)
set(CMAKE_POSITION_INDEPENDENT_CODE ON)
include(CheckPIESupported)
check_pie_supported()

# Programs and libraries find each other in the build tree by one bin/ and one lib/.
set(CMAKE_RUNTIME_OUTPUT_DIRECTORY ${PROJECT_BINARY_DIR}/bin)
set(CMAKE_LIBRARY_OUTPUT_DIRECTORY ${PROJECT_BINARY_DIR}/lib)
set(CMAKE_ARCHIVE_OUTPUT_DIRECTORY ${PROJECT_BINARY_DIR}/lib)

add_compile_options(-Wall -Wextra -Wpedantic -Wshadow -Wconversion)
if(CMAKE_CXX_COMPILER_ID STREQUAL "GNU" AND CMAKE_CXX_COMPILER_VERSION VERSION_LESS 13)
  # GCC 12 takes "text" + std::string for a copy that overlaps itself (its bug 105651).
  add_compile_options($<$<COMPILE_LANGUAGE:CXX>:-Wno-restrict>)
endif()
if(TAVO_WERROR)
  add_compile_options(-Werror)
endif()

add_compile_options(-fstack-protector-strong -fstack-clash-protection)
if(CMAKE_SYSTEM_PROCESSOR MATCHES "x86_64|i[3-6]86")
  add_compile_options(-fcf-protection)
endif()
add_link_options(-Wl,-z,relro -Wl,-z,now -Wl,-z,noexecstack)

if(TAVO_SANITIZE)
  # Fortified calls bypass the sanitizer's checks of the same calls, so they exclude each other.
  add_compile_options(-fsanitize=address,undefined -fno-sanitize-recover=all
                      -fno-omit-frame-pointer -O1)
  # g++ sees uninitialised members in its own <regex> when that is instrumented.
  add_compile_options($<$<CXX_COMPILER_ID:GNU>:-Wno-maybe-uninitialized>)
  add_link_options(-fsanitize=address,undefined)
else()
  add_compile_options($<$<NOT:$<CONFIG:Debug>>:-U_FORTIFY_SOURCE>
                      $<$<NOT:$<CONFIG:Debug>>:-D_FORTIFY_SOURCE=2>)
  add_link_options(-Wl,-z,defs)
endif()
if(TAVO_BUILD_FUZZERS)
  add_compile_options(-fsanitize=fuzzer-no-link)
endif()

# tavo_library_options(TARGET)
#
# For the code of a shared object. It is built without exceptions: none may cross its C face, and out
# of memory is a reported result inside.
#
# Thread-local data is in the initial-exec model, so that a thread has it from its start. In the
# default model the data of a library that was loaded with dlopen is allocated when a thread first
# uses it, and the dynamic linker ends the process when that fails. Keep the data small: all libraries
# that are loaded later share a reserve of 512 bytes (glibc.rtld.optional_static_tls).
function(tavo_library_options TARGET)
  target_compile_options(${TARGET} PRIVATE -fno-exceptions -fno-rtti -ftls-model=initial-exec)
endfunction()

# tavo_quick_build()
#
# For the folders below the one that calls it, whose programs are built far more often than debugged:
# places of functions and lines are enough for a backtrace and for a report of the sanitizers. A
# sanitizer's checks take an optimiser more time than they take a program; only a fuzzer runs them for
# long.
macro(tavo_quick_build)
  add_compile_options($<$<CONFIG:Debug,RelWithDebInfo>:-g1>)
  if(TAVO_SANITIZE AND NOT TAVO_BUILD_FUZZERS)
    add_compile_options(-O0)
  endif()
endmacro()

# tavo_add_shared_library(NAME VERSION_SCRIPT MAP HEADER_DIR DIR SOURCES ...)
#
# A shared object of soname libNAME.so.7 that exports what MAP lists and nothing else.
function(tavo_add_shared_library NAME)
  cmake_parse_arguments(PARSE_ARGV 1 ARG "" "VERSION_SCRIPT;HEADER_DIR" "SOURCES")
  add_library(${NAME} SHARED ${ARG_SOURCES})
  tavo_library_options(${NAME})
  target_include_directories(${NAME} PUBLIC $<BUILD_INTERFACE:${ARG_HEADER_DIR}>
                                            $<INSTALL_INTERFACE:${CMAKE_INSTALL_INCLUDEDIR}>)
  target_link_options(${NAME} PRIVATE -Wl,--version-script=${ARG_VERSION_SCRIPT})
  set_target_properties(${NAME} PROPERTIES VERSION ${PROJECT_VERSION}
                                           SOVERSION ${PROJECT_VERSION_MAJOR}
                                           LINK_DEPENDS ${ARG_VERSION_SCRIPT})
endfunction()

# tavo_test_options(TARGET)
#
# Nearly all of the time that a full run takes goes into optimising matchers that run once. What is
# under test is optimised as ever: it is in the libraries. (Fortified calls need an optimiser.)
function(tavo_test_options TARGET)
  target_compile_options(${TARGET} PRIVATE -O0 -U_FORTIFY_SOURCE)
endfunction()

# tavo_add_test(NAME [APPLIANCE] SOURCES ... [LIBRARIES ...])
#
# A GoogleTest program. With APPLIANCE each of its tests runs in a private appliance of its own.
function(tavo_add_test NAME)
  cmake_parse_arguments(PARSE_ARGV 1 ARG "APPLIANCE" "" "SOURCES;LIBRARIES")
  add_executable(${NAME} ${ARG_SOURCES})
  target_link_libraries(${NAME} PRIVATE ${ARG_LIBRARIES} tavo_test_support GTest::gmock
                                        GTest::gtest_main)
  tavo_test_options(${NAME})
  target_precompile_headers(${NAME} REUSE_FROM tavo_test_headers)
  if(ARG_APPLIANCE)
    add_dependencies(${NAME} appliance)
    set_target_properties(${NAME} PROPERTIES
                          CROSSCOMPILING_EMULATOR "$<TARGET_FILE:appliance>;run;--")
  endif()
  gtest_discover_tests(${NAME} DISCOVERY_MODE PRE_TEST DISCOVERY_TIMEOUT 60)
endfunction()
