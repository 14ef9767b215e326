// Reads a whole service file into a record: the optional [global] section, which describes the
// file, and every other section as a service.
//
// An invalid section is logged and left out, so that a mistake in one service of a component does
// not remove the others from the firewall. A file without any valid service is a failure.
#include <algorithm>
#include <array>
#include <cstdlib>
#include <cstring>
#include <string_view>
#include <utility>

#include "model/service_file_keys.h"
#include "model/service_files.h"
#include "support/failure.h"
#include "support/held_file.h"
#include "support/owners.h"
#include "support/text.h"
#include "tavoserviceconf.h"

namespace {

using tavo::Reading;
using tavo::ReadingReport;

constexpr int32_t kDefaultVersion = 1;

// More than the log line says: upper-case letters and "." have always been allowed.
constexpr auto kIsNameCharacter = [] {
    std::array<bool, 256> set = {};
    for (const char c :
         std::string_view("abcdefghijklmnopqrstuvwxyzABCDEFGHIJKLMNOPQRSTUVWXYZ0123456789-._")) {
        set[static_cast<unsigned char>(c)] = true;
    }
    return set;
}();

bool IsValidName(std::string_view name) {
    return !name.empty() && std::all_of(name.begin(), name.end(), [](char c) {
        return kIsNameCharacter[static_cast<unsigned char>(c)];
    });
}

template <std::size_t Size>
void CopyValue(char (&field)[Size], const TLIBCSzHash *keys, const char *key) {
    if (const char *value = TLIBCSzHashGetValue(keys, key)) {
        tavo::CopyText(field, value);
    }
}

// An unreadable [global] section is logged and ignored: all its keys are optional.
Reading ReadGlobal(const char *path, TAVO_SERVICE_CONF *conf) {
    const tavo::OwnedTable keys(TLIBCSzHashAlloc(tavo::kInitialCapacity));
    if (keys == nullptr) {
        TAVO_LOG_STATE("failed to TLIBCSzHashAlloc, tavoerr=");
        return Reading::Unknown();
    }
    TLIBCSzHash *table = keys.get();
    const int key_count = TLIBCFileGetSection(path, tavo::kGlobalSection, &table);
    if (key_count < 1) {
        TAVO_LOG_STATE(
            "Failed to TLIBCFileGetSection, file: %s, section name: global, nHashRecords: %d, "
            "tavoerr=",
            path, key_count);
        return key_count < 0 ? tavo::WhyUnreadable(path) : Reading::Invalid();
    }
    const char *version = TLIBCSzHashGetValue(table, tavo::kKeyVersion);
    conf->nVersion = version != nullptr ? static_cast<int32_t>(std::strtol(version, nullptr, 10))
                                        : kDefaultVersion;
    CopyValue(conf->szSupportKey, table, tavo::kKeySupportKey);
    CopyValue(conf->szRunKey, table, tavo::kKeyRunKey);
    return Reading::Good();
}

Reading ReadSection(const char *path, const char *name, tavo::OwnedTable &keys,
                    TAVO_SERVICE_CONF *conf) {
    if (!IsValidName(name)) {
        TAVO_FAIL_STATE(
            TLIBC_ERR_BAD_PARAMETER,
            "Section name format error (File: %s, Section Name: [%s])! It can not be empty, "
            "and just can composed of a~z, 0~9, `-`, '_', tavoerr=",
            path, name);
        return Reading::Invalid();
    }
    return std::strcmp(name, tavo::kGlobalSection) == 0
               ? ReadGlobal(path, conf)
               : tavo::ReadServiceSection(path, name, keys, &conf->pSections);
}

void ReadSections(const char *path, const TLIBCSzList *sections, TAVO_SERVICE_CONF *conf,
                  ReadingReport *report) {
    tavo::OwnedTable keys;
    for (int i = 0; i < TLIBCSzListCount(sections); ++i) {
        const char *name = TLIBCSzListGet(sections, i);
        const Reading reading = ReadSection(path, name, keys, conf);
        if (report != nullptr) {
            report->NoteSection(reading, name);
        }
    }
}

}  // namespace

Reading tavo::ReadServiceFile(const char *path, TAVO_SERVICE_CONF **list, ReadingReport *report) {
    const tavo::OwnedNames names(TLIBCSzListAlloc(tavo::kInitialCapacity));
    if (names == nullptr) {
        TAVO_LOG_STATE("Failed to TLIBCSzListAlloc, tavoerr=");
        return Reading::Unknown();
    }
    auto conf = tavo::NewRecord<tavo::OwnedConf>();
    if (conf == nullptr) {
        TAVO_FAIL_NO_MEMORY();
        return Reading::Unknown();
    }
    const tavo::HeldFile held(path);
    TLIBCSzList *sections = names.get();
    const int section_count = TLIBCFileEnumSection(path, &sections);
    if (section_count < 1) {
        TAVO_LOG_STATE("Failed to TLIBCFileEnumSection %s(ret: %d) or 0 section, tavoerr=", path,
                       section_count);
        return section_count < 0 ? tavo::WhyUnreadable(path) : Reading::Invalid();
    }
    if (section_count == 1 && std::strcmp(TLIBCSzListGet(sections, 0), tavo::kGlobalSection) == 0) {
        TAVO_LOG_STATE(
            "Configure file format error! (file: %s) Only [global] section, you should add at "
            "least one service section in the file. tavoerr=",
            path);
        return Reading::Invalid();
    }
    ReadSections(path, sections, conf.get(), report);
    if (conf->pSections == nullptr) {
        TAVO_LOG_STATE("Get service section fail. (file: %s), tavoerr=", path);
        return Reading::Invalid();
    }
    tavo::Prepend(std::move(conf), list);
    return Reading::Good();
}

int TAVOServiceConfGet(const char *szPath, TAVO_SERVICE_CONF **ppList) {
    if (szPath == nullptr || ppList == nullptr) {
        return TAVO_SET_ERROR(TLIBC_ERR_BAD_PARAMETER);
    }
    return tavo::ReadServiceFile(szPath, ppList, nullptr).IsGood() ? 0 : -1;
}

void TAVOServiceConfFree(TAVO_SERVICE_CONF *pList) {
    while (pList != nullptr) {
        TAVOServiceConfSectionFree(pList->pSections);
        std::free(std::exchange(pList, pList->pNext));
    }
}
