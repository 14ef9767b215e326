// Any change to any file: the requested contents are read back, other sections keep every byte,
// repeating the change changes nothing, and a rejected change leaves the file unchanged.
//
// An input is the writer (one byte: S, A, V or R), a section, a key, a value and a second key and
// value, each NUL-terminated; the rest is the file.
#include <unistd.h>

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <fstream>
#include <iterator>
#include <map>
#include <string>
#include <string_view>

#include "config_lines.h"
#include "fuzz_support.h"
#include "tavocore.h"

namespace {

using Keys = std::map<std::string, std::string>;

// A file in memory in a folder of its own, used for all inputs.
const std::string &Path() {
    static const std::string path = [] {
        std::string folder = access("/dev/shm", W_OK) == 0 ? "/dev/shm" : "/tmp";
        folder += "/fuzz_config_write_XXXXXX";
        Require(mkdtemp(folder.data()) != nullptr);
        static std::string made = folder;
        std::atexit([] {
            unlink((made + "/file").c_str());
            rmdir(made.c_str());
        });
        return folder + "/file";
    }();
    return path;
}

void Write(std::string_view text) {
    std::ofstream(Path(), std::ios::binary)
        .write(text.data(), static_cast<std::streamsize>(text.size()));
}

std::string Read() {
    std::ifstream file(Path(), std::ios::binary);
    return {std::istreambuf_iterator<char>(file), {}};
}

class Table {
  public:
    Table() : hash_(TLIBCSzHashAlloc(1)) {}
    ~Table() { TLIBCSzHashFree(hash_); }
    Table(const Table &) = delete;
    Table &operator=(const Table &) = delete;

    void Set(const std::string &key, const std::string &value) {
        Require(TLIBCSzHashSetValue(hash_, key.c_str(), value.c_str()) == 0);
    }

    void ReadSection(const std::string &section) {
        Require(TLIBCFileGetSection(Path().c_str(), section.c_str(), &hash_) >= 0);
    }

    Keys Contents() const {
        Keys keys;
        const char *key = nullptr;
        const char *value = nullptr;
        for (int i = 0; TLIBCSzHashEnum(hash_, i, &key, &value) == 0; ++i) {
            keys[key] = value;
        }
        return keys;
    }

    const TLIBCSzHash *Get() const { return hash_; }

  private:
    TLIBCSzHash *hash_;
};

struct Change {
    char writer = 'S';
    std::string section;
    Table keys;

    // Takes the fields from the start of the input.
    explicit Change(std::string_view &input) {
        if (!input.empty()) {
            writer = input.front();
            input.remove_prefix(1);
        }
        section = Field(input);
        const std::string key = Field(input);
        keys.Set(key, Field(input));
        const std::string second = Field(input);
        const std::string value = Field(input);
        if (writer != 'V' && !second.empty()) {
            keys.Set(second, value);
        }
    }

    static std::string Field(std::string_view &input) {
        const std::string field(input.substr(0, input.find('\0')));
        input.remove_prefix(std::min(input.size(), field.size() + 1));
        return field;
    }

    int Make() const {
        const char *path = Path().c_str();
        const Keys wanted = keys.Contents();
        switch (writer) {
            case 'R':
                return TLIBCFileRemoveSection(path, section.c_str());
            case 'V':
                return TLIBCFileSetSectionValue(path, section.c_str(),
                                                wanted.begin()->first.c_str(),
                                                wanted.begin()->second.c_str());
            case 'A':
                return TLIBCFileAddSection(path, section.c_str(), keys.Get(), 0);
            default:
                return TLIBCFileSetSection(path, section.c_str(), nullptr, keys.Get(), 0);
        }
    }
};

// The bytes of the file outside the section.
std::string Beside(std::string_view text, std::string_view section) {
    std::string beside;
    tavo::ConfigLineReader lines(text);
    bool inside = false;
    for (tavo::ConfigLine line; lines.Next(line);) {
        if (line.kind == tavo::ConfigLineKind::kSection) {
            inside = line.name == section;
        }
        if (!inside) {
            beside += text.substr(line.begin, line.end - line.begin);
        }
    }
    return beside;
}

std::string Unquoted(std::string_view value) {
    value = tavo::TrimBlanks(value);
    return std::string(tavo::IsQuoted(value) ? value.substr(1, value.size() - 2) : value);
}

void CheckKeys(const Change &change, const Keys &before) {
    Table read;
    read.ReadSection(change.section);
    const Keys after = read.Contents();
    const Keys wanted = change.writer == 'R' ? Keys() : change.keys.Contents();
    for (const auto &[key, value] : wanted) {
        Require(after.count(key) == 1);
        // A line that is already read as the value keeps its spelling.
        const bool kept = change.writer != 'V' && !tavo::IsQuoted(value) &&
                          before.count(key) == 1 && before.at(key) == value;
        Require(after.at(key) == (kept ? value : Unquoted(value)));
    }
    const bool keeps_others = change.writer == 'A' || change.writer == 'V';
    for (const auto &[key, value] : before) {
        Require(wanted.count(key) == 1 || after.count(key) == (keeps_others ? 1 : 0));
        Require(wanted.count(key) == 1 || !keeps_others || after.at(key) == value);
    }
    Require(after.size() >= wanted.size());
}

void CheckChange(const Change &change, const std::string &before) {
    Table section;
    section.ReadSection(change.section);
    const int result = change.Make();
    const std::string after = Read();
    if (result != 0) {
        Require(result == -1 && after == before);
        return;
    }
    CheckKeys(change, section.Contents());
    const std::string beside = Beside(before, change.section);
    // A new section at the end is preceded by at most a line end and a blank line; the comments
    // after a removed section remain.
    const std::string beside_after = Beside(after, change.section);
    Require(change.writer == 'R' || beside_after.starts_with(beside));
    Require(change.writer == 'R' || beside_after.size() <= beside.size() + 4);
    Require(change.Make() == (change.writer == 'R' ? 0 : result) && Read() == after);
}

void CheckWritingBack(const std::string &section, const std::string &before) {
    Table keys;
    keys.ReadSection(section);
    for (const auto &[key, value] : keys.Contents()) {
        keys.Set(key, tavo::NeedsQuotes(value) ? '"' + value + '"' : value);
    }
    if (!keys.Contents().empty()) {
        Require(TLIBCFileSetSection(Path().c_str(), section.c_str(), nullptr, keys.Get(), 0) == 0);
        Require(Read() == before);
    }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size) {
    std::string_view input(reinterpret_cast<const char *>(data), size);
    const Change change(input);
    const std::string before(input);
    Write(before);
    CheckWritingBack(change.section, before);
    CheckChange(change, before);
    return 0;
}
