tavo_add_fuzzer(socket_table)
target_sources(fuzz_socket_table PRIVATE ${PROJECT_SOURCE_DIR}/platform/net/socket_tables.cpp)
target_include_directories(fuzz_socket_table PRIVATE ${PROJECT_SOURCE_DIR}/platform
                                                      ${PROJECT_SOURCE_DIR}/platform/net)
