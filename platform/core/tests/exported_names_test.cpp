// A shared object exports exactly the functions that its public header declares, each with the
// version of the library's linker script.
//
// Compiled once for each library, with these definitions:
//   TAVO_EXPORTS_SUITE    name of the test suite, as ExportedNamesOfTavocore
//   TAVO_EXPORTS_LIBRARY  path of the shared object
//   TAVO_EXPORTS_HEADER   path of its public header
//   TAVO_EXPORTS_MARK     the word that marks exported functions in the header, as "TAVOCORE_API"
//   TAVO_EXPORTS_VERSION  version node of the linker script, as "TAVOCORE_7"
#include <gmock/gmock.h>

#include <set>
#include <sstream>
#include <string>

#include "run_program.h"
#include "temporary_folder.h"

namespace {

using Names = std::set<std::string>;

std::string WithoutComments(const std::string &code) {
    std::string kept;
    std::size_t from = 0;
    for (std::size_t begin; (begin = code.find("/*", from)) != std::string::npos;) {
        kept.append(code, from, begin - from).append(" ");
        from = code.find("*/", begin) + 2;
    }
    return kept.append(code, from);
}

std::string WithoutPreprocessorLines(const std::string &code) {
    std::string kept;
    std::istringstream lines(code);
    for (std::string line; std::getline(lines, line);) {
        if (!line.starts_with('#')) {
            kept.append(line).append("\n");
        }
    }
    return kept;
}

// The names of the declarations: the word before the first parenthesis, bracket or semicolon.
Names DeclaredNames(const std::string &header, const std::string &mark) {
    const std::string code = WithoutPreprocessorLines(WithoutComments(header));
    Names names;
    for (std::size_t at = 0; (at = code.find(mark, at)) != std::string::npos;) {
        at = code.find_first_of("([;", at);
        const std::size_t begin = code.find_last_of(" *\n", at) + 1;
        names.insert(code.substr(begin, at - begin));
    }
    return names;
}

// The symbols that nm lists as defined, as NAME@@VERSION, without the version nodes themselves.
Names ExportedNames(const std::string &library) {
    const tavo::test::ProgramResult nm = tavo::test::RunProgram(
        {"nm", "--dynamic", "--defined-only", "--with-symbol-versions", library});
    EXPECT_EQ(nm.status, 0) << nm.err;
    Names names;
    std::istringstream lines(nm.out);
    for (std::string address, type, name; lines >> address >> type >> name;) {
        if (type != "A") {
            names.insert(name);
        }
    }
    return names;
}

TEST(TAVO_EXPORTS_SUITE, AreThoseThatTheHeaderDeclares) {
    Names declared;
    for (const std::string &name :
         DeclaredNames(tavo::test::ReadFile(TAVO_EXPORTS_HEADER), TAVO_EXPORTS_MARK)) {
        declared.insert(name + "@@" + TAVO_EXPORTS_VERSION);
    }
    ASSERT_FALSE(declared.empty());
    EXPECT_EQ(ExportedNames(TAVO_EXPORTS_LIBRARY), declared);
}

}  // namespace
