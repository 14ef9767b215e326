// The library as the judge of lint, for the tests and the fuzzer.
#ifndef TAVO_TESTS_LINT_ORACLE_H
#define TAVO_TESTS_LINT_ORACLE_H

#include <string>
#include <string_view>

namespace tavo::test {

// Lints the text, has the library read it as a file, and compares what they say: the library reads
// exactly the services that lint finds no error in, and the file as a whole when there is one. The
// contradiction in words; empty when they agree.
std::string Contradiction(std::string_view text);

}  // namespace tavo::test

#endif
