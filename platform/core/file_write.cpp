// Changes configuration files: lock the file, edit its text in memory, check the new parts, and
// replace the file unless it is unchanged.
#include "config_edit.h"
#include "core_support.h"
#include "file_hold.h"
#include "file_replace.h"
#include "file_text.h"
#include "text_buffer.h"

namespace tavo {
namespace {

// `edit` appends the new text of the file to the buffer; it returns false on failure with the error
// set.
template <typename Edit>
int ChangeFile(const char *path, Edit edit) {
    LockedFile file;
    FileText old_text;
    TextBuffer new_text;
    if (!file.Lock(path) || !file.Read(old_text) || !edit(old_text.View(), new_text)) {
        return -1;
    }
    if (new_text.View() == old_text.View()) {
        return 0;
    }
    // A replacement that fails late may still have changed the file.
    const bool replaced = file.Replace(new_text.View());
    const UnchangedErrno unchanged;
    ReleaseChangedFile(path);
    return replaced ? 0 : -1;
}

int SetKeys(const char *path, const char *section, const TLIBCSzHash *keys, OtherKeys others,
            MissingSection missing, KeptLines kept) {
    if (section == nullptr || keys == nullptr) {
        return TAVO_PLATFORM_FAIL(TLIBC_ERR_BAD_PARAMETER);
    }
    if (!CheckSectionName(section)) {
        return -1;
    }
    return ChangeFile(path, [&](std::string_view text, TextBuffer &out) {
        return SetSectionKeys(text, section, keys, others, missing, kept, out);
    });
}

}  // namespace
}  // namespace tavo

using namespace tavo;

int TLIBCFileSetSection(const char *szPath, const char *szSection, const char * /*szReserved*/,
                        const TLIBCSzHash *pHash, int /*nFlags*/) {
    return SetKeys(szPath, szSection, pHash, OtherKeys::kTakeOut, MissingSection::kAdd,
                   KeptLines::kSameValue);
}

int TLIBCFileAddSection(const char *szPath, const char *szSection, const TLIBCSzHash *pHash,
                        int /*nFlags*/) {
    return SetKeys(szPath, szSection, pHash, OtherKeys::kKeep, MissingSection::kAdd,
                   KeptLines::kSameValue);
}

int TLIBCFileSetSectionValue(const char *szPath, const char *szSection, const char *szKey,
                             const char *szValue) {
    if (szKey == nullptr || szValue == nullptr) {
        return TAVO_PLATFORM_FAIL(TLIBC_ERR_BAD_PARAMETER);
    }
    TLIBCSzHash *key = TLIBCSzHashAlloc(1);
    if (key == nullptr) {
        return -1;
    }
    int result = TLIBCSzHashSetValue(key, szKey, szValue);
    if (result == 0) {
        result = SetKeys(szPath, szSection, key, OtherKeys::kKeep, MissingSection::kRefuse,
                         KeptLines::kSameText);
    }
    TLIBCSzHashFree(key);
    return result;
}

int TLIBCFileRemoveSection(const char *szPath, const char *szSection) {
    if (szSection == nullptr) {
        return TAVO_PLATFORM_FAIL(TLIBC_ERR_BAD_PARAMETER);
    }
    if (!CheckSectionName(szSection)) {
        return -1;
    }
    return ChangeFile(szPath, [&](std::string_view text, TextBuffer &out) {
        return TakeOutSection(text, szSection, out);
    });
}
