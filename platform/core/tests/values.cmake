# The core library without files: error state, lists, tables, strings, running of programs.
tavo_add_test(core_values_test
  SOURCES error_test.cpp sz_list_test.cpp sz_hash_test.cpp dlist_test.cpp strings_test.cpp
  LIBRARIES tavocore)
tavo_add_test(core_exec_test SOURCES exec_test.cpp LIBRARIES tavocore)

# The header alone, as strict C99.
add_executable(core_plain_c plain_c.c)
set_target_properties(core_plain_c PROPERTIES C_EXTENSIONS OFF)
target_link_libraries(core_plain_c PRIVATE tavocore)
add_test(NAME CorePlainC.UsesTheHeaderAlone COMMAND core_plain_c)

# tavo_add_exported_names_test(NAME SUITE SUITE LIBRARY TARGET HEADER PATH MARK WORD VERSION NODE)
#
# A test that the shared object TARGET exports exactly what its header declares: see
# exported_names_test.cpp.
function(tavo_add_exported_names_test NAME)
  cmake_parse_arguments(PARSE_ARGV 1 ARG "" "SUITE;LIBRARY;HEADER;MARK;VERSION" "")
  tavo_add_test(${NAME} SOURCES ${CMAKE_CURRENT_FUNCTION_LIST_DIR}/exported_names_test.cpp)
  add_dependencies(${NAME} ${ARG_LIBRARY})
  target_compile_definitions(${NAME} PRIVATE
    TAVO_EXPORTS_SUITE=${ARG_SUITE}
    TAVO_EXPORTS_LIBRARY="$<TARGET_FILE:${ARG_LIBRARY}>"
    TAVO_EXPORTS_HEADER="${ARG_HEADER}"
    TAVO_EXPORTS_MARK="${ARG_MARK}"
    TAVO_EXPORTS_VERSION="${ARG_VERSION}")
endfunction()

tavo_add_exported_names_test(core_exported_names_test
  SUITE ExportedNamesOfTavocore
  LIBRARY tavocore
  HEADER ${PROJECT_SOURCE_DIR}/platform/core/tavocore.h
  MARK TAVOCORE_API
  VERSION TAVOCORE_7)
