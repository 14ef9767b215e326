// Reading of configuration files. Each call loads the file again and maps its sections, so that the
// lines of other sections are not examined; a file that the caller holds was loaded and mapped
// once.
#include <cstring>

#include "config_lines.h"
#include "core_support.h"
#include "file_hold.h"
#include "file_text.h"

namespace tavo {
namespace {

// The text of the file `path`: the held one, or loaded into `room`; null on failure.
const FileText *TextOf(const char *path, FileText &room) {
    if (const MappedFile *held = FindHeldFile(path)) {
        return &held->text;
    }
    return room.Load(path) ? &room : nullptr;
}

// Passes the file `path` with the map of its sections to `use` and returns the result of that;
// false on failure.
template <typename Use>
bool WithSections(const char *path, Use use) {
    if (const MappedFile *held = FindHeldFile(path)) {
        return use(*held);
    }
    MappedFile file;
    if (!file.text.Load(path)) {
        return false;
    }
    if (!file.sections.Build(file.text)) {
        return TAVO_PLATFORM_FAIL(TLIBC_ERR_NO_MEMORY);
    }
    return use(file);
}

bool PushNames(const SectionMap &sections, TLIBCSzList *list) {
    for (int i = 0; i < sections.SectionCount(); ++i) {
        if (ListPush(list, sections.Name(i)) < 0) {
            return false;
        }
    }
    return true;
}

// The lines of the section are copied at once, and the table keeps the copy.
bool FillFromSection(const MappedFile &file, std::string_view section, TLIBCSzHash *hash) {
    const SectionMap::Block *const first = file.sections.FirstBlock(section);
    std::size_t size = 0;
    for (auto *block = first; block != nullptr; block = file.sections.NextBlock(*block)) {
        size += block->lines.size() + 1;  // for the terminator of a value that ends the block
    }
    char *copy = size == 0 ? nullptr : HashTexts(hash, size);
    if (copy == nullptr) {
        return size == 0;
    }
    for (auto *block = first; block != nullptr; block = file.sections.NextBlock(*block)) {
        const std::string_view lines(copy, block->lines.copy(copy, block->lines.size()));
        copy += lines.size() + 1;
        auto reader = ConfigLineReader::OfLines(lines, file.text.HoldsNul());
        for (ConfigLine line; reader.Next(line);) {
            if (line.kind == ConfigLineKind::kKeyValue &&
                HashAdopt(hash, line.name, line.value) < 0) {
                return false;
            }
        }
    }
    return true;
}

// Finds the value of `key` outside any section in `path`, which may be loaded into `room`. Returns
// 1 if found, 0 if absent, -1 on failure.
int FindKeyValue(const char *path, std::string_view key, FileText &room, std::string_view &value) {
    const FileText *file = TextOf(path, room);
    if (file == nullptr) {
        return -1;
    }
    int found = 0;
    ConfigLineReader lines(file->View(), file->HoldsNul());
    ConfigLine line;
    while (lines.Next(line) && line.kind != ConfigLineKind::kSection) {
        if (line.kind == ConfigLineKind::kKeyValue && line.name == key) {
            value = line.value;
            found = 1;
        }
    }
    return found;
}

bool PushLines(std::string_view text, TLIBCSzList *list) {
    while (!text.empty()) {
        const std::size_t newline = text.find('\n');
        std::string_view line = text.substr(0, newline);
        text.remove_prefix(newline == std::string_view::npos ? text.size() : newline + 1);
        if (newline != std::string_view::npos && line.ends_with('\r')) {
            line.remove_suffix(1);
        }
        if (ListPush(list, line.substr(0, line.find('\0'))) < 0) {
            return false;
        }
    }
    return true;
}

// Appends the strings that `push` appends, all or none. Returns their number; -1 on failure.
template <typename Push>
int AppendAll(TLIBCSzList *list, Push push) {
    const int before = TLIBCSzListCount(list);
    if (!push()) {
        ListShorten(list, before);
        return -1;
    }
    return TLIBCSzListCount(list) - before;
}

bool EqualIgnoringCase(std::string_view a, std::string_view b) {
    if (a.size() != b.size()) {
        return false;
    }
    for (std::size_t i = 0; i < a.size(); ++i) {
        if (Lowered(a[i]) != Lowered(b[i])) {
            return false;
        }
    }
    return true;
}

}  // namespace
}  // namespace tavo

using namespace tavo;

int TLIBCFileEnumSection(const char *szPath, TLIBCSzList **ppNames) {
    if (ppNames == nullptr || *ppNames == nullptr) {
        return TAVO_PLATFORM_FAIL(TLIBC_ERR_BAD_PARAMETER);
    }
    return AppendAll(*ppNames, [&] {
        return WithSections(
            szPath, [&](const MappedFile &file) { return PushNames(file.sections, *ppNames); });
    });
}

int TLIBCFileReadLines(const char *szPath, TLIBCSzList **ppLines) {
    if (ppLines == nullptr || *ppLines == nullptr) {
        return TAVO_PLATFORM_FAIL(TLIBC_ERR_BAD_PARAMETER);
    }
    FileText room;
    const FileText *file = TextOf(szPath, room);
    if (file == nullptr) {
        return -1;
    }
    return AppendAll(*ppLines, [&] { return PushLines(file->View(), *ppLines); });
}

int TLIBCFileGetSection(const char *szPath, const char *szSection, TLIBCSzHash **ppHash) {
    if (ppHash == nullptr || *ppHash == nullptr) {
        return TAVO_PLATFORM_FAIL(TLIBC_ERR_BAD_PARAMETER);
    }
    TLIBCSzHashClear(*ppHash);
    if (szSection == nullptr) {
        return TAVO_PLATFORM_FAIL(TLIBC_ERR_BAD_PARAMETER);
    }
    const bool filled = WithSections(
        szPath, [&](const MappedFile &file) { return FillFromSection(file, szSection, *ppHash); });
    if (!filled) {
        TLIBCSzHashClear(*ppHash);
        return -1;
    }
    return TLIBCSzHashCount(*ppHash);
}

int TLIBCFileGetKeyValue(const char *szPath, const char *szKey, char *szBuf, int cbBuf) {
    if (szBuf == nullptr || cbBuf < 1) {
        return TAVO_PLATFORM_FAIL(TLIBC_ERR_BAD_PARAMETER);
    }
    szBuf[0] = '\0';
    if (szKey == nullptr) {
        return TAVO_PLATFORM_FAIL(TLIBC_ERR_BAD_PARAMETER);
    }
    FileText room;
    std::string_view value;
    const int found = FindKeyValue(szPath, szKey, room, value);
    if (found == 1) {
        szBuf[value.copy(szBuf, static_cast<std::size_t>(cbBuf) - 1)] = '\0';
    }
    return found;
}

int TLIBCFileCheckKeyValue(const char *szPath, const char *szKey, const char *szValue,
                           int blIgnoreCase) {
    if (szKey == nullptr || szValue == nullptr) {
        TAVO_PLATFORM_FAIL(TLIBC_ERR_BAD_PARAMETER);
        return 0;
    }
    FileText room;
    std::string_view value;
    if (FindKeyValue(szPath, szKey, room, value) != 1) {
        return 0;
    }
    const bool equal = blIgnoreCase != 0 ? EqualIgnoringCase(value, szValue) : value == szValue;
    return equal ? 1 : 0;
}
