// What servicetool has to say about a place in a file, or about a target as a whole. One kind of
// finding serves every command, as text for people and as JSON for programs.
#ifndef TAVO_SERVICETOOL_OUTPUT_DIAGNOSTIC_H
#define TAVO_SERVICETOOL_OUTPUT_DIAGNOSTIC_H

#include <cstddef>
#include <string>
#include <string_view>

namespace tavo::tool {

enum class Severity { kError, kWarning };

std::string_view SeverityName(Severity severity);

// A line of a file as it is shown below a finding: as written, a long one cut around the spot.
struct SourceLine {
    std::string text;
    std::size_t spot = 0;  // offset in `text` of what is meant
    bool cut_before = false;
    bool cut_after = false;
};

SourceLine AroundSpot(std::string_view line, std::size_t spot);

// Texts are kept as they came; they are escaped when they are printed.
struct Diagnostic {
    std::string file;        // empty: about no file
    std::size_t line = 0;    // from 1; 0: about the file as a whole
    std::size_t column = 0;  // from 1, in bytes
    Severity severity = Severity::kError;
    std::string rule;     // a stable name of the kind of finding
    std::string message;  // lower case, no full stop
    std::string fix;      // empty: none is plain
    SourceLine source;    // looked at where `line` is set
};

// FILE:LINE:COLUMN: error: MESSAGE [RULE], the line with a caret below the spot, and the fix. The
// line is cut around the spot to fit into `columns` columns of a terminal.
std::string DiagnosticText(const Diagnostic &diagnostic, bool colour, std::size_t columns);

}  // namespace tavo::tool

#endif
