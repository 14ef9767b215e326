// Diagnostics about a position in a file, or about a target as a whole. All commands use them, as
// text and as JSON.
#ifndef TAVO_SERVICETOOL_OUTPUT_DIAGNOSTIC_H
#define TAVO_SERVICETOOL_OUTPUT_DIAGNOSTIC_H

#include <cstddef>
#include <string>
#include <string_view>

namespace tavo::tool {

enum class Severity { kError, kWarning };

std::string_view SeverityName(Severity severity);

// A line of a file to print below a diagnostic, not escaped; a long line is cut around the spot.
struct SourceLine {
    std::string text;
    std::size_t spot = 0;  // offset in `text` of the caret
    bool cut_before = false;
    bool cut_after = false;
};

SourceLine AroundSpot(std::string_view line, std::size_t spot);

// Texts are not escaped; they are escaped when they are printed.
struct Diagnostic {
    std::string file = {};   // empty: not about a file
    std::size_t line = 0;    // from 1; 0: the whole file
    std::size_t column = 0;  // from 1, in bytes
    Severity severity = Severity::kError;
    std::string rule = {};     // stable name of the kind of diagnostic
    std::string message = {};  // lower case, no full stop
    std::string fix = {};      // empty: no suggestion
    SourceLine source = {};    // only used if `line` is set
};

// Returns "FILE:LINE:COLUMN: error: MESSAGE [RULE]", the line with a caret below the spot, and the
// fix. The line is cut around the spot to fit into `columns` columns of a terminal.
std::string DiagnosticText(const Diagnostic &diagnostic, bool colour, std::size_t columns);

}  // namespace tavo::tool

#endif
