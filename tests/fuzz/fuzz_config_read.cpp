// Any bytes as a configuration file, through every reader. The readers must agree with each other
// and with a walk over the lines.
#include <fcntl.h>
#include <sys/mman.h>
#include <unistd.h>

#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <string>
#include <string_view>

#include "config_lines.h"
#include "fuzz_support.h"
#include "tavocore.h"

namespace {

// The file has no name but this one.
class MemoryFile {
  public:
    explicit MemoryFile(std::string_view bytes)
        : fd_(memfd_create("config", MFD_CLOEXEC)), path_("/proc/self/fd/" + std::to_string(fd_)) {
        Require(fd_ >= 0 &&
                write(fd_, bytes.data(), bytes.size()) == static_cast<ssize_t>(bytes.size()));
    }
    ~MemoryFile() { close(fd_); }
    MemoryFile(const MemoryFile &) = delete;
    MemoryFile &operator=(const MemoryFile &) = delete;

    const char *Path() const { return path_.c_str(); }

  private:
    int fd_;
    std::string path_;
};

void CheckLines(std::string_view text) {
    tavo::ConfigLineReader walker(text);
    tavo::ConfigLineReader hopper(text);
    tavo::ConfigLine hopped;
    std::size_t end = text.starts_with("\xEF\xBB\xBF") ? 3 : 0;
    for (tavo::ConfigLine line; walker.Next(line);) {
        Require(line.begin == end && line.end > line.begin && line.end <= text.size());
        Require(line.text.data() == text.data() + line.begin);
        Require(line.begin + line.text.size() <= line.end);
        Require(line.text.find('\n') == std::string_view::npos);
        Require(line.kind == tavo::ParseConfigLine(line.text).kind);
        if (line.kind == tavo::ConfigLineKind::kSection) {
            Require(hopper.NextSection(hopped) && hopped.begin == line.begin);
        }
        end = line.end;
    }
    Require(end == text.size() && !hopper.NextSection(hopped));
}

// How many keys the section has, all of them readable again from the table.
void CheckSection(const char *path, const char *section) {
    TLIBCSzHash *keys = TLIBCSzHashAlloc(1);
    const int count = TLIBCFileGetSection(path, section, &keys);
    Require(count == TLIBCSzHashCount(keys));
    for (int i = 0; i < count; ++i) {
        const char *key = nullptr;
        const char *value = nullptr;
        Require(TLIBCSzHashEnum(keys, i, &key, &value) == 0);
        Require(*key != '\0' && std::strchr(key, '=') == nullptr);
        Require(std::strchr(value, '\n') == nullptr);
    }
    TLIBCSzHashFree(keys);
}

void CheckSections(const char *path) {
    TLIBCSzList *names = TLIBCSzListAlloc(1);
    const int count = TLIBCFileEnumSection(path, &names);
    Require(count == TLIBCSzListCount(names));
    for (int i = 0; i < count; ++i) {
        const char *name = TLIBCSzListGet(names, i);
        Require(TLIBCSzListFind(names, name) == i);
        if (i < 20) {
            CheckSection(path, name);
        }
    }
    TLIBCSzListFree(names);
}

// The keys in front of the first section, each as the readers of single keys see it.
void CheckKeysOutsideSections(const char *path, std::string_view text) {
    tavo::ConfigLineReader lines(text);
    tavo::ConfigLine line;
    while (lines.Next(line) && line.kind != tavo::ConfigLineKind::kSection) {
        if (line.kind == tavo::ConfigLineKind::kKeyValue) {
            char value[64];
            const std::string key(line.name);
            Require(TLIBCFileGetKeyValue(path, key.c_str(), value, sizeof(value)) == 1);
            const int equal = TLIBCFileCheckKeyValue(path, key.c_str(), value, 0);
            Require(equal == 1 || std::strlen(value) == sizeof(value) - 1);
        }
    }
}

void CheckReadLines(const char *path, std::string_view text) {
    int expected = text.empty() || text.ends_with('\n') ? 0 : 1;
    for (const char c : text) {
        expected += c == '\n' ? 1 : 0;
    }
    TLIBCSzList *lines = TLIBCSzListAlloc(1);
    Require(TLIBCFileReadLines(path, &lines) == expected);
    TLIBCSzListFree(lines);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size) {
    const std::string_view text(reinterpret_cast<const char *>(data), size);
    const MemoryFile file(text);
    CheckLines(text);
    CheckSections(file.Path());
    CheckSection(file.Path(), "absent\n");
    CheckKeysOutsideSections(file.Path(), text);
    CheckReadLines(file.Path(), text);
    return 0;
}
