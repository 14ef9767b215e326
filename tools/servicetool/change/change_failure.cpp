#include "change/change_failure.h"

#include <sys/statvfs.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstring>
#include <iterator>
#include <string_view>

#include "input/input_file.h"

namespace tavo::tool {
namespace {

// ---- The library's error codes

// What the codes mean to somebody who changes a file.
struct ErrorCode {
    unsigned int code;
    bool of_folder;  // whether the state of the folder may be the reason
    std::string_view words;
};

constexpr ErrorCode kErrorCodes[] = {
    {0, true, "the library does not say why"},
    {0xD00, false, "the library does not take it"},
    {0x200, false, "out of memory"},
    {0x600, true, "a path is no folder or regular file"},
    {0x700, true, "a file does not exist"},
    {0x900, true, "a file cannot be opened or used"},
    {0x2800, true, "a file cannot be renamed"},
    {0x3B00, true, "a file cannot be copied"},
    {0x3C00, true, "a folder cannot be made"},
    {0xBF00, false, "it is too long"},
};

const ErrorCode &MeaningOf(unsigned int code) {
    const auto *known = std::find_if(std::begin(kErrorCodes), std::end(kErrorCodes),
                                     [code](const ErrorCode &one) { return one.code == code; });
    return known == std::end(kErrorCodes) ? kErrorCodes[0] : *known;
}

// What keeps a file from being replaced; empty where nothing is seen.
std::string FolderProblem(const std::string &path) {
    const std::string folder = path.substr(0, path.rfind('/'));
    struct statvfs system {};
    if (access(folder.c_str(), W_OK) != 0) {
        return "the folder: " + ErrorText(errno);
    }
    const bool full = statvfs(folder.c_str(), &system) == 0 && system.f_bavail == 0;
    return full ? "the folder: " + ErrorText(ENOSPC) : "";
}

// ---- The programs that the library runs

constexpr std::string_view kFileTools[] = {"/bin/cp", "/bin/mv", "/bin/rm", "/bin/mkdir"};
constexpr std::string_view kOtherTools[] = {"/usr/tavo/sbin/tavoroutertool",
                                            "/usr/tavo/bin/tavofirewall"};

// Why a program cannot be run; empty where it can.
std::string ToolProblem(std::string_view tool) {
    const std::string path(tool);
    if (access(path.c_str(), X_OK) == 0) {
        return {};
    }
    return path + (errno == ENOENT ? " is missing" : ": " + ErrorText(errno));
}

std::string FileToolProblem() {
    for (const std::string_view tool : kFileTools) {
        if (const std::string problem = ToolProblem(tool); !problem.empty()) {
            return problem;
        }
    }
    return {};
}

// "cp: error writing '/tmp/chat.sc': No space left on device", with or without "/bin/".
bool IsComplaint(const LoggedLine &line) {
    const auto says = [&line](std::string_view tool) {
        const std::string_view name = tool.substr(tool.rfind('/') + 1);
        return line.text.starts_with(std::string(tool) + ": ") ||
               line.text.starts_with(std::string(name) + ": ");
    };
    return !line.of_library && std::any_of(std::begin(kFileTools), std::end(kFileTools), says);
}

// ---- The lines

// Whether a line ends in words of the system for an error.
bool NamesCause(std::string_view line) {
    constexpr std::array kCauses = {EPERM,  ENOENT, EIO,          ENOMEM,  EACCES, EBUSY,  EEXIST,
                                    EXDEV,  EINVAL, ENFILE,       ENOTDIR, EISDIR, EMFILE, EFBIG,
                                    ENOSPC, EROFS,  ENAMETOOLONG, ELOOP,   EDQUOT};
    return std::any_of(kCauses.begin(), kCauses.end(),
                       [line](int error) { return line.ends_with(std::strerror(error)); });
}

// What led to a failure is logged before what came of it, and behind what has nothing to do with
// it.
std::string ReasonOf(const std::vector<LoggedLine> &lines) {
    std::vector<std::string> texts;
    for (const LoggedLine &line : lines) {
        if (line.of_library && (texts.empty() || texts.back() != line.text)) {
            texts.push_back(ReasonInLine(line.text));
        }
    }
    const auto cause = std::find_if(texts.rbegin(), texts.rend(), NamesCause);
    if (texts.empty() || cause != texts.rend()) {
        return texts.empty() ? "" : *cause;
    }
    return (texts.size() > 1 ? texts[texts.size() - 2] + "; " : "") + texts.back();
}

}  // namespace

std::string ReasonOf(const Outcome &outcome, const std::string &path) {
    if (!outcome.problem.empty()) {
        return outcome.problem;
    }
    if (const std::string problem = FileToolProblem(); !problem.empty()) {
        return problem;
    }
    const auto complaint = std::find_if(outcome.lines.rbegin(), outcome.lines.rend(), IsComplaint);
    if (complaint != outcome.lines.rend()) {
        return complaint->text;
    }
    const ErrorCode &code = MeaningOf(outcome.code);
    const std::string problem = code.of_folder ? FolderProblem(path) : "";
    const std::string logged = problem.empty() ? ReasonOf(outcome.lines) : problem;
    return logged.empty() ? std::string(code.words) : logged;
}

std::string ReasonInLine(const std::string &line) {
    for (const std::string_view tool : kOtherTools) {
        if (line.find(tool) != std::string::npos) {
            const std::string problem = ToolProblem(tool);
            return problem.empty() ? line : problem;
        }
    }
    return line;
}

}  // namespace tavo::tool
