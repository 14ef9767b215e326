tavo_add_test(core_files_test
  SOURCES
    config_lines_test.cpp
    file_bad_input_test.cpp
    file_entry_test.cpp
    file_memory_test.cpp
    file_read_test.cpp
    file_replace_test.cpp
    file_write_property_test.cpp
    file_write_test.cpp
  LIBRARIES tavocore tavoconfiglines)

# Separate tests, because a platform may lack holding of files, locking of folders, and programs
# with an input.
tavo_add_test(core_exec_input_test SOURCES exec_input_test.cpp LIBRARIES tavocore)
tavo_add_test(core_hold_test SOURCES file_hold_test.cpp LIBRARIES tavocore)
tavo_add_test(core_folder_lock_test SOURCES folder_lock_test.cpp LIBRARIES tavocore)

# Loads the library, so it is not linked with it.
tavo_add_test(core_loaded_late_test SOURCES loaded_late_test.cpp)
add_dependencies(core_loaded_late_test tavocore tavoserviceconf)
target_include_directories(core_loaded_late_test PRIVATE ..)
target_compile_definitions(core_loaded_late_test PRIVATE
  TAVO_CORE_LIBRARY="$<TARGET_FILE:tavocore>"
  TAVO_SERVICE_CONF_LIBRARY="$<TARGET_FILE:tavoserviceconf>")

# Functions that the library does not export.
tavo_add_test(core_internals_test
  SOURCES
    config_edit_test.cpp
    locked_file_test.cpp
    section_map_test.cpp
    text_index_test.cpp
    $<TARGET_OBJECTS:tavocore>
  LIBRARIES tavoconfiglines)
target_include_directories(core_internals_test PRIVATE .. ../..)
