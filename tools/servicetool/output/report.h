// All output of servicetool: results to standard output, diagnostics to standard error, or both in
// one JSON document to standard output.
#ifndef TAVO_SERVICETOOL_OUTPUT_REPORT_H
#define TAVO_SERVICETOOL_OUTPUT_REPORT_H

#include <unistd.h>

#include <algorithm>
#include <concepts>
#include <cstddef>
#include <cstdint>
#include <initializer_list>
#include <string>
#include <string_view>
#include <vector>

#include "config_lines.h"
#include "output/json.h"

namespace tavo::tool {

// ---- Diagnostics about a position in a file, or about a target as a whole

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

// An error about `file` as a whole, or about no file if it is empty.
Diagnostic Error(std::string file, std::string rule, std::string message, std::string fix = {});

// The diagnostic as a warning.
Diagnostic Warning(Diagnostic diagnostic);

// The diagnostic at `spot`, the part of the line to mark.
Diagnostic AtSpot(const ConfigLine &line, std::string_view spot, Diagnostic diagnostic);

// Returns "FILE:LINE:COLUMN: error: MESSAGE [RULE]", the line with a caret below the spot, and the
// fix. The line is cut around the spot to fit into `columns` columns of a terminal.
std::string DiagnosticText(const Diagnostic &diagnostic, bool colour, std::size_t columns);

// ---- The report of a command

enum class Status : int {
    kOk = 0,      // success; for queries: free, valid, found
    kNo = 1,      // taken, invalid, not found
    kUsage = 2,   // usage error
    kFailed = 3,  // failure, or the answer is unknown
};

// Suffix of messages about a change that was not made.
inline constexpr char kSoUnchanged[] = ", so nothing was changed";

// The size of a terminal; 0 if unknown.
struct WindowSize {
    std::size_t columns;
    std::size_t lines;
};

class Report {
  public:
    explicit Report(bool json) : json_(json) {}
    Report(const Report &) = delete;
    Report &operator=(const Report &) = delete;

    bool PrintsJson() const { return json_; }

    // The size of the terminal on an output stream; 0 if it is not a terminal.
    WindowSize Window(int descriptor = STDOUT_FILENO) const;

    // The width of the terminal on standard output.
    std::size_t Columns() const { return Window().columns; }

    // Whether to use colours on an output stream: it supports them and they are not disabled.
    bool Colour(int descriptor = STDOUT_FILENO) const;

    // Reports a diagnostic. Does not raise the exit status.
    void Add(const Diagnostic &diagnostic);

    // Reports an Error and raises the status.
    void AddError(std::string file, std::string rule, std::string message, std::string fix = {},
                  Status status = Status::kFailed);

    // The same for a warning.
    void AddWarning(std::string file, std::string rule, std::string message, std::string fix,
                    Status status);

    // Reports a usage error.
    void AddUsageError(std::string message, std::string fix = {});

    // Prints text, which must be escaped; nothing in JSON mode.
    void Print(std::string_view text);

    // Prints a line about a completed change; nothing in JSON mode. In both modes, if standard
    // output cannot be written, Finish prints the line to standard error.
    void PrintDone(const std::string &line);

    // Adds an element to "results"; only in JSON mode. A function is then called to make it.
    void AddResult(const Json &result);
    void AddResult(const std::invocable auto &make) {
        if (json_) {
            AddResult(make());
        }
    }

    bool HasResult() const { return !results_.empty(); }

    // Raises the exit status if `status` is worse.
    void Raise(Status status) { status_ = std::max(status_, status); }
    Status Worst() const { return status_; }

    // Writes the remaining output and returns the exit status.
    int Finish();

  private:
    bool json_;
    Status status_ = Status::kOk;
    std::vector<std::string> diagnostics_;  // JSON mode only, each a JSON text
    std::vector<std::string> results_;      // the same
    std::string done_;                      // completed changes
};

// ---- Tables: a header in capitals, one line per row, columns as wide as their longest cell

class Table {
  public:
    explicit Table(const std::vector<std::string> &header);

    // Adds a row, one cell per column. Cells are escaped here; an empty one is printed as "-".
    void Row(std::initializer_list<std::string_view> cells);
    void Row(const std::vector<std::string> &cells);

    bool HasRows() const { return cells_.size() > columns_; }

    // The lines of the table. If they are wider than `columns` (0: no limit), the last column is
    // cut to fit and ends with "...".
    std::string Text(bool header, std::size_t columns) const;

  private:
    struct Cell {
        std::uint32_t end;  // offset in the text
        std::uint32_t width;
    };

    void AddCell(std::string_view cell);
    std::string_view CellText(std::size_t number) const;

    std::size_t columns_;
    std::string text_;         // the escaped texts of all cells; the header is the first row
    std::vector<Cell> cells_;  // by row
};

// ---- Output files given on the command line

// The FILE argument for standard output.
inline constexpr std::string_view kStandardOutput = "-";

// Whether the path refers to the same file as standard output, as /dev/stdout does.
bool IsStandardOutput(const std::string &path);

// Writes `text` to the file. A regular file is replaced atomically, so it is unchanged after a
// failure. A symbolic link is followed; a device or a pipe is written to. Returns the reason for a
// failure, such as "cannot be written: permission denied", else "".
std::string WriteWholeFile(const std::string &path, std::string_view text);

}  // namespace tavo::tool

#endif
