#include "output/report.h"

#include <sys/ioctl.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <utility>

#include "input/input_file.h"
#include "output/text.h"

namespace tavo::tool {
namespace {

constexpr int kSchema = 1;

bool WantsColour(int descriptor) {
    const char *no_colour = std::getenv("NO_COLOR");
    const char *terminal = std::getenv("TERM");
    return (no_colour == nullptr || *no_colour == '\0') && terminal != nullptr &&
           std::strcmp(terminal, "dumb") != 0 && isatty(descriptor) == 1;
}

// The window size of the terminal of the descriptor; 0 if it is not a terminal.
WindowSize WindowOf(int descriptor) {
    winsize size{};
    return isatty(descriptor) == 1 && ioctl(descriptor, TIOCGWINSZ, &size) == 0
               ? WindowSize{size.ws_col, size.ws_row}
               : WindowSize{};
}

Json NumberOrNull(std::size_t number) {
    return number == 0 ? Json(nullptr) : Json(number);
}

Json DiagnosticJson(const Diagnostic &diagnostic) {
    return {{"file", TextOrNull(diagnostic.file)},
            {"line", NumberOrNull(diagnostic.line)},
            {"column", NumberOrNull(diagnostic.column)},
            {"severity", SeverityName(diagnostic.severity)},
            {"rule", diagnostic.rule},
            {"message", Utf8Text(diagnostic.message)},
            {"fix", TextOrNull(diagnostic.fix)}};
}

}  // namespace

WindowSize Report::Window() const {
    return WindowOf(STDOUT_FILENO);
}

bool Report::Colour() const {
    return WantsColour(STDOUT_FILENO);
}

void Report::Tell(Diagnostic diagnostic) {
    if (json_) {
        diagnostics_.push_back(std::move(diagnostic));
        return;
    }
    // Keeps the order of output if both streams go to one terminal.
    std::fflush(stdout);
    // If standard error is not a terminal, diagnostics have the width of an ordinary one.
    constexpr std::size_t kOrdinary = 80;
    const std::size_t columns = WindowOf(STDERR_FILENO).columns;
    const std::string text =
        DiagnosticText(diagnostic, WantsColour(STDERR_FILENO), columns == 0 ? kOrdinary : columns);
    std::fwrite(text.data(), 1, text.size(), stderr);
}

void Report::TellError(std::string file, std::string rule, std::string message, std::string fix,
                       Status status) {
    Raise(status);
    Tell({.file = std::move(file),
          .rule = std::move(rule),
          .message = std::move(message),
          .fix = std::move(fix)});
}

void Report::TellWarning(std::string file, std::string rule, std::string message, std::string fix,
                         Status status) {
    Raise(status);
    Tell({.file = std::move(file),
          .severity = Severity::kWarning,
          .rule = std::move(rule),
          .message = std::move(message),
          .fix = std::move(fix)});
}

void Report::TellUsage(std::string message, std::string fix) {
    TellError("", "usage", std::move(message), std::move(fix), Status::kUsage);
}

void Report::Print(std::string_view text) {
    if (!json_) {
        std::fwrite(text.data(), 1, text.size(), stdout);
    }
}

void Report::PrintDone(const std::string &line) {
    Print(line + '\n');
    done_ += "; " + line;
}

void Report::AddResult(const Json &result) {
    if (json_) {
        results_.push_back(result.Text());
    }
}

int Report::Finish() {
    if (json_) {
        const std::string document = Document();
        std::fwrite(document.data(), 1, document.size(), stdout);
    }
    if (std::fflush(stdout) != 0 || std::ferror(stdout) != 0) {
        std::fprintf(stderr, "servicetool: error: standard output: %s%s [failed]\n",
                     ErrorText(errno).c_str(), done_.c_str());
        return static_cast<int>(Status::kFailed);
    }
    return static_cast<int>(status_);
}

// Prints one element per line, so that diff and grep can be used on the document.
std::string Report::Document() const {
    std::string text = "{\"schema\":" + std::to_string(kSchema) +
                       ",\"ok\":" + (status_ == Status::kOk ? "true" : "false") + ",\"results\":[";
    const char *separator = "\n";
    for (const std::string &result : results_) {
        text += std::exchange(separator, ",\n") + result;
    }
    text += "],\"diagnostics\":[";
    separator = "\n";
    for (const Diagnostic &diagnostic : diagnostics_) {
        text += std::exchange(separator, ",\n") + DiagnosticJson(diagnostic).Text();
    }
    return text + "]}\n";
}

}  // namespace tavo::tool
