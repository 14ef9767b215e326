tavo_add_fuzzer(lint LIBRARIES servicetool_lint)
target_sources(fuzz_lint PRIVATE ${PROJECT_SOURCE_DIR}/tests/e2e/servicetool/lint_oracle.cpp)
target_include_directories(fuzz_lint PRIVATE ${PROJECT_SOURCE_DIR}/tests/e2e/servicetool)
tavo_add_fuzzer(port_query LIBRARIES servicetool_lint)
