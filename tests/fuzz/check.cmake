# What reads a line of a table is compiled in: the library keeps it to itself.
tavo_add_fuzzer(socket_line)
target_sources(fuzz_socket_line PRIVATE ${PROJECT_SOURCE_DIR}/src/check/socket_line.cpp)
target_include_directories(fuzz_socket_line PRIVATE ${PROJECT_SOURCE_DIR}/src
                                                    ${PROJECT_SOURCE_DIR}/include
                                                    ${PROJECT_SOURCE_DIR}/platform/core
                                                    ${PROJECT_SOURCE_DIR}/tests/support)
tavo_add_fuzzer(raw_socket_table LIBRARIES tavoserviceconf tavocore)
target_include_directories(fuzz_raw_socket_table PRIVATE ${PROJECT_SOURCE_DIR}/tests/support)
