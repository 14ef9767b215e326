// Everything that servicetool says goes through its Report: results to standard output, findings to
// standard error, or both into the one JSON document on standard output.
#ifndef TAVO_SERVICETOOL_OUTPUT_REPORT_H
#define TAVO_SERVICETOOL_OUTPUT_REPORT_H

#include <cstddef>
#include <string>
#include <string_view>
#include <vector>

#include "output/diagnostic.h"
#include "output/json.h"

namespace tavo::tool {

enum class Status : int {
    kOk = 0,      // done; for a question: free, valid, found
    kNo = 1,      // the answer is no: taken, invalid, not found
    kUsage = 2,   // the command line is wrong
    kFailed = 3,  // it failed, or the answer is unknown
};

// How a change ends that was not made.
inline constexpr std::string_view kSoUnchanged = ", so nothing was changed";

// Of a terminal; what is not known is 0.
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

    // The terminal that standard output goes to; all is 0 when it goes elsewhere.
    WindowSize Window() const;

    // How wide that is.
    std::size_t Columns() const;

    // Whether it shows colours, and nobody has said that there are to be none.
    bool Colour() const;

    // Tells a finding. It has no effect on the exit status.
    void Tell(Diagnostic diagnostic);

    // Tells an error about `file`, or about none, that has no place in a file.
    void TellError(std::string file, std::string rule, std::string message, std::string fix = {});

    // Tells that the command line is wrong, and raises the status.
    void TellUsage(std::string message, std::string fix);

    // Prints text for people, already escaped; nothing in JSON mode.
    void Print(std::string_view text);

    // Prints a line about what was changed, which is not lost where it cannot be printed, or is not
    // because of JSON and the document cannot be.
    void PrintDone(const std::string &line);

    // Adds an element to "results"; nothing outside JSON mode.
    void AddResult(const Json &result);

    // Whether one was added.
    bool HasResult() const { return !results_.empty(); }

    // The worst status of all targets counts.
    void Raise(Status status);
    Status Worst() const { return status_; }

    // Writes what is left to write and gives the exit status.
    int Finish();

  private:
    std::string Document() const;

    bool json_;
    Status status_ = Status::kOk;
    std::vector<Diagnostic> diagnostics_;  // JSON mode only
    std::vector<std::string> results_;     // JSON mode only, each a JSON text
    std::string done_;                     // what was changed; empty where nothing was
};

}  // namespace tavo::tool

#endif
