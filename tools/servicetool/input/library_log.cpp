#include "input/library_log.h"

#include <unistd.h>

#include <new>
#include <string>

#include "change/program_output.h"
#include "output/text.h"

namespace tavo::tool {
namespace {

bool shown = false;

}  // namespace

void ShowLibraryLog(bool show) {
    shown = show;
}

// Called by the library, which exceptions must not pass through.
void PrintLogLine(std::string_view line) noexcept {
    if (!shown) {
        return;
    }
    try {
        const std::string text = "log: " + Escaped(line) + '\n';
        [[maybe_unused]] const ssize_t written =
            write(ProgramOutput::StandardError(), text.data(), text.size());
    } catch (const std::bad_alloc &) {
        // The line is lost, but the failure itself is reported.
    }
}

}  // namespace tavo::tool
