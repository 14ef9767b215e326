// Any bytes as a configuration file, read with every reader. The results must agree with each other
// and with a walk over the lines.
#include <fcntl.h>
#include <sys/mman.h>
#include <unistd.h>

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "config_lines.h"
#include "fuzz_support.h"
#include "tavocore.h"

namespace {

// A file that has only this path.
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

using Keys = std::vector<std::pair<std::string, std::string>>;
using Sections = std::vector<std::pair<std::string, Keys>>;

// A key keeps its first position and gets its last value.
void Set(Keys &keys, const std::string &key, const std::string &value) {
    const auto known = std::find_if(keys.begin(), keys.end(),
                                    [&](const auto &entry) { return entry.first == key; });
    if (known != keys.end()) {
        known->second = value;
    } else {
        keys.emplace_back(key, value);
    }
}

// The contents of the sections, read slowly, line by line.
Sections WalkSections(std::string_view text) {
    Sections sections;
    Keys *keys = nullptr;
    tavo::ConfigLineReader lines(text);
    for (tavo::ConfigLine line; lines.Next(line);) {
        if (line.kind == tavo::ConfigLineKind::kSection) {
            auto section = std::find_if(sections.begin(), sections.end(),
                                        [&](const auto &one) { return one.first == line.name; });
            if (section == sections.end()) {
                section = sections.insert(section, {std::string(line.name), {}});
            }
            keys = &section->second;
        } else if (line.kind == tavo::ConfigLineKind::kKeyValue && keys != nullptr) {
            Set(*keys, std::string(line.name), std::string(line.value));
        }
    }
    return sections;
}

void CheckSection(const char *path, const char *section, const Keys &expected) {
    TLIBCSzHash *keys = TLIBCSzHashAlloc(1);
    const int count = TLIBCFileGetSection(path, section, &keys);
    Require(count == static_cast<int>(expected.size()) && count == TLIBCSzHashCount(keys));
    for (int i = 0; i < count; ++i) {
        const char *key = nullptr;
        const char *value = nullptr;
        Require(TLIBCSzHashEnum(keys, i, &key, &value) == 0);
        const auto &entry = expected[static_cast<std::size_t>(i)];
        Require(entry.first == key && entry.second == value);
    }
    TLIBCSzHashFree(keys);
}

void CheckSections(const char *path, const Sections &expected) {
    TLIBCSzList *names = TLIBCSzListAlloc(1);
    const int count = TLIBCFileEnumSection(path, &names);
    Require(count == static_cast<int>(expected.size()) && count == TLIBCSzListCount(names));
    for (int i = 0; i < count; ++i) {
        const auto &[name, keys] = expected[static_cast<std::size_t>(i)];
        Require(name == TLIBCSzListGet(names, i));
        CheckSection(path, name.c_str(), keys);
    }
    TLIBCSzListFree(names);
    CheckSection(path, "absent\n", {});
}

// The keys before the first section, each as returned by the readers of single keys.
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
    const Sections sections = WalkSections(text);
    CheckSections(file.Path(), sections);
    Require(TLIBCFileHold(file.Path()) == 0);
    CheckSections(file.Path(), sections);
    TLIBCFileRelease();
    CheckKeysOutsideSections(file.Path(), text);
    CheckReadLines(file.Path(), text);
    return 0;
}
