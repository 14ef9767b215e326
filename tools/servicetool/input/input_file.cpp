#include "input/input_file.h"

#include <dirent.h>
#include <fcntl.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <filesystem>
#include <memory>
#include <system_error>
#include <utility>

#include "base/owners.h"
#include "output/text.h"

namespace tavo::tool {
namespace {

// Much larger than any service file. Limits memory and time for other, possibly endless files.
constexpr std::size_t kLargest = std::size_t{16} << 20;

// Why a file of that mode, which is not a regular one, is not read.
std::string KindProblem(mode_t mode) {
    constexpr std::pair<mode_t, const char *> kKinds[] = {
        {S_IFDIR, "is a folder"}, {S_IFIFO, "is a pipe"}, {S_IFSOCK, "is a socket"}};
    for (const auto &[kind, problem] : kKinds) {
        if ((mode & S_IFMT) == kind) {
            return problem;
        }
    }
    return "is a device";
}

// The result for a path that stat failed on with `error`.
FileContents MissingFile(const std::string &path, int error) {
    struct stat link {};
    const bool found = lstat(path.c_str(), &link) == 0;
    const bool absent = !found && IsAbsence(error) && IsAbsence(errno);
    const bool dangling = found && S_ISLNK(link.st_mode) && error == ENOENT;
    return {{}, dangling ? "is a dangling symbolic link" : ErrorText(error), absent, dangling};
}

}  // namespace

std::string ErrorText(int error) {
    return LowerFirst(std::strerror(error));
}

bool IsAbsence(int error) {
    return error == ENOENT || error == ENOTDIR;
}

// Checks the kind of file before opening it, because opening some devices has side effects, and
// again after that, because the file may have been replaced. O_NONBLOCK prevents waiting for the
// writer of a pipe.
FileContents ReadRegularFile(const std::string &path) {
    struct stat status {};
    if (stat(path.c_str(), &status) != 0) {
        return MissingFile(path, errno);
    }
    Descriptor file;
    if (S_ISREG(status.st_mode)) {
        file.Reset(open(path.c_str(), O_RDONLY | O_NONBLOCK | O_NOCTTY | O_CLOEXEC));
        if (!file.IsOpen()) {
            return MissingFile(path, errno);
        }
        if (fstat(file.Get(), &status) != 0) {
            return {.problem = ErrorText(errno)};
        }
    }
    return S_ISREG(status.st_mode) ? ReadAll(file.Get())
                                   : FileContents{.problem = KindProblem(status.st_mode)};
}

FileContents ReadAll(int descriptor) {
    FileContents contents;
    std::string buffer(std::size_t{1} << 16, '\0');
    for (;;) {
        const ssize_t got =
            Uninterrupted([&] { return read(descriptor, buffer.data(), buffer.size()); });
        if (got < 0) {
            return {.problem = errno == EISDIR ? KindProblem(S_IFDIR) : ErrorText(errno)};
        }
        if (got == 0) {
            return contents;
        }
        contents.text.append(buffer, 0, static_cast<std::size_t>(got));
        if (contents.text.size() > kLargest) {
            return {.problem = "is larger than 16 MiB"};
        }
    }
}

std::string RealPathOf(const std::string &path) {
    std::error_code error;
    return std::filesystem::canonical(path, error);
}

// Checks errno at the end, because readdir returns null both at the end and after an error. The
// iterators of the standard library are not used: they end the program when out of memory.
std::optional<std::vector<std::string>> NamesIn(const std::string &folder) {
    const std::unique_ptr<DIR, FreeWith<closedir>> entries(opendir(folder.c_str()));
    if (entries == nullptr) {
        return {};
    }
    std::vector<std::string> names;
    errno = 0;
    while (const dirent *entry = readdir(entries.get())) {
        const std::string_view name = entry->d_name;
        if (name != "." && name != "..") {
            names.emplace_back(name);
        }
        errno = 0;
    }
    if (errno != 0) {
        return {};
    }
    std::sort(names.begin(), names.end());
    return names;
}

MemoryFile::MemoryFile(std::string_view text) : file_(memfd_create("servicetool", MFD_CLOEXEC)) {
    if (!file_.IsOpen() || !WriteAll(file_.Get(), text)) {
        throw std::system_error(errno, std::generic_category(), "file in memory");
    }
}

}  // namespace tavo::tool
