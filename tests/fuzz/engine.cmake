# What compares texts is compiled in: the library keeps it to itself.
tavo_add_fuzzer(declared_ports LIBRARIES tavoserviceconf tavocore tavoftp tavonet tavopf
                                          tavossh)
target_sources(fuzz_declared_ports PRIVATE
               ${PROJECT_SOURCE_DIR}/src/engine/service_is_port_conflict.cpp
               ${PROJECT_SOURCE_DIR}/src/engine/text_ranges.cpp
               ${PROJECT_SOURCE_DIR}/src/engine/comparison.cpp
               ${PROJECT_SOURCE_DIR}/src/engine/call_catalogue.cpp
               ${PROJECT_SOURCE_DIR}/src/engine/service_port_range_add.cpp
               ${PROJECT_SOURCE_DIR}/src/catalogue/firewall_service_enum.cpp
               ${PROJECT_SOURCE_DIR}/src/catalogue/firewall_service_register.cpp)
target_include_directories(fuzz_declared_ports PRIVATE ${PROJECT_SOURCE_DIR}/src)
tavo_add_fuzzer(forwarding_rules APPLIANCE LIBRARIES tavoserviceconf)
tavo_add_fuzzer(conflict_query APPLIANCE LIBRARIES tavoserviceconf)
