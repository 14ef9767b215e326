# What compares texts is compiled in: the library keeps it to itself.
tavo_add_fuzzer(declared_ports LIBRARIES tavoserviceconf tavocore tavoftp tavonet tavopf)
file(GLOB engine ${PROJECT_SOURCE_DIR}/src/engine/*.cpp)
target_sources(fuzz_declared_ports PRIVATE
               ${engine} ${PROJECT_SOURCE_DIR}/src/catalogue/firewall_service_enum.cpp)
target_include_directories(fuzz_declared_ports PRIVATE ${PROJECT_SOURCE_DIR}/src)
tavo_add_fuzzer(forwarding_rules APPLIANCE LIBRARIES tavoserviceconf)
tavo_add_fuzzer(conflict_query APPLIANCE LIBRARIES tavoserviceconf)
