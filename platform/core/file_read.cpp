// Reading of configuration files. Each call loads the file again and reads its text once, without
// examining the lines of other sections. A file that the caller holds has a map of its sections, so
// that only the needed lines are read.
#include <cstring>

#include "config_lines.h"
#include "core_support.h"
#include "file_hold.h"
#include "file_text.h"
#include "text_index.h"

namespace tavo {
namespace {

// The text of the file `path`: the held one, or loaded into `room`; null on failure.
const FileText *TextOf(const char *path, FileText &room) {
    if (const MappedFile *held = FindHeldFile(path)) {
        return &held->text;
    }
    return room.Load(path) ? &room : nullptr;
}

bool PushMappedNames(const SectionMap &sections, TLIBCSzList *list) {
    for (int i = 0; i < sections.SectionCount(); ++i) {
        if (ListPush(list, sections.Name(i)) < 0) {
            return false;
        }
    }
    return true;
}

bool PushNames(const FileText &file, TLIBCSzList *list) {
    TextIndex seen;
    ConfigLineReader lines(file.View(), file.HoldsNul());
    for (ConfigLine line; lines.NextSection(line);) {
        const std::size_t before = seen.Count();
        const std::size_t number = seen.Add(line.name);
        if (number == TextIndex::kNone) {
            return TAVO_PLATFORM_FAIL(TLIBC_ERR_NO_MEMORY);
        }
        if (number == before && ListPush(list, line.name) < 0) {
            return false;
        }
    }
    return true;
}

// Stores the key and value of a key=value line. Returns false when out of memory.
bool TakeOver(const ConfigLine &line, TLIBCSzHash *hash) {
    return line.kind != ConfigLineKind::kKeyValue || HashSet(hash, line.name, line.value) == 0;
}

bool FillFromMappedSection(const MappedFile &file, std::string_view section, TLIBCSzHash *hash) {
    ConfigLine line;
    for (const SectionMap::Block *block = file.sections.FirstBlock(section); block != nullptr;
         block = file.sections.NextBlock(*block)) {
        auto lines = ConfigLineReader::OfLines(block->lines, file.text.HoldsNul());
        while (lines.Next(line)) {
            if (!TakeOver(line, hash)) {
                return false;
            }
        }
    }
    return true;
}

bool FillFromSection(const FileText &file, std::string_view section, TLIBCSzHash *hash) {
    ConfigLineReader lines(file.View(), file.HoldsNul());
    ConfigLine line;
    bool inside = false;
    while (inside ? lines.Next(line) : lines.NextSection(line)) {
        if (line.kind == ConfigLineKind::kSection) {
            inside = line.name == section;
        } else if (!TakeOver(line, hash)) {
            return false;
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
    if (const MappedFile *held = FindHeldFile(szPath)) {
        return AppendAll(*ppNames, [&] { return PushMappedNames(held->sections, *ppNames); });
    }
    FileText file;
    if (!file.Load(szPath)) {
        return -1;
    }
    return AppendAll(*ppNames, [&] { return PushNames(file, *ppNames); });
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
    bool filled = false;
    if (const MappedFile *held = FindHeldFile(szPath)) {
        filled = FillFromMappedSection(*held, szSection, *ppHash);
    } else {
        FileText file;
        filled = file.Load(szPath) && FillFromSection(file, szSection, *ppHash);
    }
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
