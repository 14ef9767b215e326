# Common compiler and linker options: language level, warnings, hardening, sanitizers. Also the
# functions that define the two kinds of target, ABI-stable shared libraries and tests.

if(NOT CMAKE_BUILD_TYPE)
  set(CMAKE_BUILD_TYPE Release)  # fortified calls need optimisation
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

# All programs of the build tree are in one bin/ and all libraries in one lib/, so that they find
# each other.
set(CMAKE_RUNTIME_OUTPUT_DIRECTORY ${PROJECT_BINARY_DIR}/bin)
set(CMAKE_LIBRARY_OUTPUT_DIRECTORY ${PROJECT_BINARY_DIR}/lib)
set(CMAKE_ARCHIVE_OUTPUT_DIRECTORY ${PROJECT_BINARY_DIR}/lib)

add_compile_options(-Wall -Wextra -Wpedantic -Wshadow -Wconversion)
if(CMAKE_CXX_COMPILER_ID STREQUAL "GNU" AND CMAKE_CXX_COMPILER_VERSION VERSION_LESS 13)
  # GCC 12 reports "text" + std::string as an overlapping copy (GCC bug 105651).
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
  # Fortified calls bypass the sanitizer's checks of the same calls, so only one of them can be
  # used. A test may link objects of a library that it also loads: without the indicator, the
  # sanitizer reports the internal tables in them as defined twice. Tests also replace functions of
  # libraries, which clang++ by default assumes that nobody does.
  add_compile_options(-fsanitize=address,undefined -fno-sanitize-recover=all
                      -fsanitize-address-use-odr-indicator -fsemantic-interposition
                      -fno-omit-frame-pointer -O1)
  add_link_options(-fsanitize=address,undefined)
  if(NOT TAVO_BUILD_FUZZERS)
    # Tests put their own allocator before the sanitizer's, which must be in a shared object for that.
    execute_process(COMMAND ${CMAKE_CXX_COMPILER} -print-runtime-dir
                    OUTPUT_VARIABLE sanitizer_libraries OUTPUT_STRIP_TRAILING_WHITESPACE
                    COMMAND_ERROR_IS_FATAL ANY)
    add_link_options(-shared-libasan -Wl,-rpath,${sanitizer_libraries})
  endif()
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
# Options for the code of a shared object. It is built without exceptions: they must not cross the C
# interface, and inside it out of memory is a reported result.
#
# Thread-local data uses the initial-exec model, so that it exists when a thread starts. In the
# default model the data of a library that was loaded with dlopen is allocated when a thread first
# uses it, and the dynamic linker ends the process if that fails. Keep the data small: all libraries
# that are loaded later share a reserve of 512 bytes (glibc.rtld.optional_static_tls).
#
# Functions of other libraries are called without the procedure linkage table, which saves a jump in
# each call: all are bound when the library is loaded (-z now), so the table has no other use.
function(tavo_library_options TARGET)
  target_compile_options(${TARGET} PRIVATE -fno-exceptions -fno-rtti -ftls-model=initial-exec
                                           -fno-plt)
endfunction()

# tavo_quick_build()
#
# For the subdirectories of the caller, whose programs are built far more often than debugged:
# function and line information is enough for a backtrace and for sanitizer reports. Optimising the
# checks of a sanitizer takes longer than running them; only fuzzers run long enough to benefit.
macro(tavo_quick_build)
  add_compile_options($<$<CONFIG:Debug,RelWithDebInfo>:-g1>)
  if(TAVO_SANITIZE AND NOT TAVO_BUILD_FUZZERS)
    add_compile_options(-O0)
  endif()
endmacro()

# tavo_add_shared_library(NAME VERSION_SCRIPT MAP HEADER_DIR DIR SOURCES ...)
#
# A shared object with soname libNAME.so.7 that exports only the symbols listed in MAP.
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

# tavo_not_instrumented(TARGET)
#
# For a program that starts thousands of others: an instrumented one takes several times as long to
# start.
function(tavo_not_instrumented TARGET)
  if(TAVO_SANITIZE)
    target_compile_options(${TARGET} PRIVATE -fno-sanitize=all)
    target_link_options(${TARGET} PRIVATE -fno-sanitize=all)
  endif()
endfunction()

# gold links a test in half the time of the default linker.
find_program(TAVO_GOLD ld.gold)
mark_as_advanced(TAVO_GOLD)

# tavo_test_options(TARGET)
#
# Most of the time of a full run would be spent on optimising matchers that run once. The code under
# test is still optimised: it is in the libraries. (Fortified calls need optimisation.)
#
# For the same reason, a sanitizer does not check each pointer of a test for null and alignment, nor
# the type that it points to, which doubles the time to compile the matchers. A null pointer is still
# reported when it is used.
function(tavo_test_options TARGET)
  target_compile_options(${TARGET} PRIVATE -O0 -U_FORTIFY_SOURCE)
  if(CMAKE_CXX_COMPILER_ID STREQUAL "GNU")
    # Start to collect garbage at 1 GiB, which no test needs to compile, instead of 128 MiB.
    target_compile_options(${TARGET} PRIVATE --param=ggc-min-heapsize=1048576)
  endif()
  if(TAVO_SANITIZE)
    target_compile_options(${TARGET} PRIVATE -fno-sanitize=null,alignment,vptr)
    target_compile_definitions(${TARGET} PRIVATE TAVO_SANITIZED)
  endif()
endfunction()

# tavo_add_test(NAME [APPLIANCE] SOURCES ... [LIBRARIES ...])
#
# A GoogleTest program. With APPLIANCE, each test runs in its own private appliance.
#
# The test files of a program, NAME_test.cpp, are compiled together, eight at a time: they use the
# same matchers, and compiling these once halves the time. So the test files of a program must not
# define the same name twice. CMAKE_UNITY_BUILD=OFF compiles each file on its own.
function(tavo_add_test NAME)
  cmake_parse_arguments(PARSE_ARGV 1 ARG "APPLIANCE" "" "SOURCES;LIBRARIES")
  add_executable(${NAME} ${ARG_SOURCES})
  if(NOT DEFINED CMAKE_UNITY_BUILD)
    set_target_properties(${NAME} PROPERTIES UNITY_BUILD ON)
    list(FILTER ARG_SOURCES EXCLUDE REGEX "_test\\.cpp$")
    set_source_files_properties(${ARG_SOURCES} PROPERTIES SKIP_UNITY_BUILD_INCLUSION ON)
  endif()
  target_link_libraries(${NAME} PRIVATE ${ARG_LIBRARIES} tavo_test_support GTest::gmock
                                        GTest::gtest_main)
  tavo_test_options(${NAME})
  target_precompile_headers(${NAME} REUSE_FROM tavo_test_headers)
  if(TAVO_GOLD)
    target_link_options(${NAME} PRIVATE -fuse-ld=gold)
  endif()
  if(ARG_APPLIANCE)
    add_dependencies(${NAME} appliance)
    set_target_properties(${NAME} PROPERTIES
                          CROSSCOMPILING_EMULATOR "$<TARGET_FILE:appliance>;run;--")
  endif()
  gtest_discover_tests(${NAME} DISCOVERY_MODE PRE_TEST DISCOVERY_TIMEOUT 60)
endfunction()
