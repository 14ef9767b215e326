# What compares texts is compiled in: the library keeps it to itself.
tavo_add_fuzzer(declared_ports LIBRARIES tavoserviceconf tavocore)
target_sources(fuzz_declared_ports PRIVATE ${tavo_comparison})
target_include_directories(fuzz_declared_ports PRIVATE
                           ${PROJECT_SOURCE_DIR}/src ${PROJECT_SOURCE_DIR}/tests/engine)
tavo_add_fuzzer(forwarding_rules APPLIANCE LIBRARIES tavoserviceconf)
tavo_add_fuzzer(conflict_query APPLIANCE LIBRARIES tavoserviceconf)
