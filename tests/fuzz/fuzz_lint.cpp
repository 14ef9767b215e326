// Compares lint with the library: any bytes, read as a file, must mean the same to both.
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <string>
#include <string_view>

#include "lint/lint.h"
#include "lint_oracle.h"
#include "output/report.h"

namespace {

[[noreturn]] void Fail(const std::string &what) {
    std::fprintf(stderr, "%s\n", what.c_str());
    std::abort();
}

// Whatever the file contains, only printable text is written to a terminal.
void CheckPrinted(std::string_view text) {
    for (const tavo::tool::Diagnostic &diagnostic :
         tavo::tool::LintText(text, "input").diagnostics) {
        const std::string printed = tavo::tool::DiagnosticText(diagnostic, false, 80);
        for (const char c : printed) {
            if ((static_cast<unsigned char>(c) < 0x20 && c != '\n') || c == 0x7F) {
                Fail("a control byte is printed: " + printed);
            }
        }
        if (diagnostic.line != 0 && diagnostic.source.spot > diagnostic.source.text.size()) {
            Fail("the caret is beyond the line: " + printed);
        }
    }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size) {
    const std::string_view text(reinterpret_cast<const char *>(data), size);
    const std::string contradiction = tavo::test::Contradiction(text);
    if (!contradiction.empty()) {
        Fail(contradiction);
    }
    CheckPrinted(text);
    return 0;
}
