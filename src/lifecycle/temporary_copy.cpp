#include "lifecycle/temporary_copy.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include "lifecycle/programs.h"
#include "support/descriptor.h"
#include "tavocore.h"

namespace tavo {
namespace {

constexpr std::string_view kTemporaryDirectory = "/tmp/";

// What cp says of a file that it cannot copy, or not to that place.
constexpr int kCopyFailed = 1;

// A folder in /tmp is anybody's, so there is no trusting what lies in it.
bool LiesIn(std::string_view directory, std::string_view path) {
    return path.starts_with(directory) &&
           path.find('/', directory.size()) == std::string_view::npos;
}

// What an earlier process left there, or another user planted, goes; a folder, a pipe or a device
// is left alone.
void RemoveFileOrLink(const char *szPath) {
    struct stat entry;
    if (lstat(szPath, &entry) == 0 && (S_ISLNK(entry.st_mode) || S_ISREG(entry.st_mode))) {
        unlink(szPath);
    }
}

bool TakeName(const char *szPath) {
    if (!LiesIn(kTemporaryDirectory, szPath)) {
        return false;
    }
    RemoveFileOrLink(szPath);
    const Descriptor file(
        open(szPath, O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC, S_IRUSR | S_IWUSR));
    return file.IsOpen();
}

}  // namespace

TemporaryCopy::~TemporaryCopy() {
    if (taken_) {
        unlink(szPath_);
    }
}

int TemporaryCopy::Make(const char *szFile, const char *szPath) {
    if (!IsRegularFile(szFile) || !TakeName(szPath)) {
        return kCopyFailed;
    }
    CopyText(szPath_, szPath);
    taken_ = true;
    return TLIBCExec(kCopyProgram, "-f", szFile, szPath_, nullptr);
}

bool IsRegularFile(const char *szFile) {
    struct stat entry;
    return stat(szFile, &entry) == 0 && S_ISREG(entry.st_mode);
}

}  // namespace tavo
