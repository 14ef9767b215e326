// Compares lint with the library, for the tests and the fuzzer.
#ifndef TAVO_TESTS_LINT_ORACLE_H
#define TAVO_TESTS_LINT_ORACLE_H

#include <string>
#include <string_view>

namespace tavo::test {

// Lints the text, reads it as a file with the library and compares the results: the library must
// read exactly the services without lint errors, and it must read all services, at least one, if
// and only if lint reports no error. Returns a description of the difference; empty if there is
// none.
std::string Contradiction(std::string_view text);

}  // namespace tavo::test

#endif
