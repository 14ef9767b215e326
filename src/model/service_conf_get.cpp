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
void CopyValue(char (&field)[Size], const TLIBCSzHash *pKeys, const char *szKey) {
    if (const char *szValue = TLIBCSzHashGetValue(pKeys, szKey)) {
        tavo::CopyText(field, szValue);
    }
}

// An unreadable [global] section is logged and ignored: all its keys are optional.
Reading ReadGlobal(const char *szPath, TAVO_SERVICE_CONF *pConf) {
    const tavo::OwnedTable keys(TLIBCSzHashAlloc(tavo::kInitialCapacity));
    if (keys == nullptr) {
        TAVO_LOG_STATE("failed to TLIBCSzHashAlloc, tavoerr=");
        return Reading::Unknown();
    }
    TLIBCSzHash *pKeys = keys.get();
    const int nKeys = TLIBCFileGetSection(szPath, tavo::kGlobalSection, &pKeys);
    if (nKeys < 1) {
        TAVO_LOG_STATE(
            "Failed to TLIBCFileGetSection, file: %s, section name: global, nHashRecords: %d, "
            "tavoerr=",
            szPath, nKeys);
        return nKeys < 0 ? tavo::WhyUnreadable(szPath) : Reading::Invalid();
    }
    const char *szVersion = TLIBCSzHashGetValue(pKeys, tavo::kKeyVersion);
    pConf->nVersion = szVersion != nullptr
                          ? static_cast<int32_t>(std::strtol(szVersion, nullptr, 10))
                          : kDefaultVersion;
    CopyValue(pConf->szSupportKey, pKeys, tavo::kKeySupportKey);
    CopyValue(pConf->szRunKey, pKeys, tavo::kKeyRunKey);
    return Reading::Good();
}

Reading ReadSection(const char *szPath, const char *szName, tavo::OwnedTable &keys,
                    TAVO_SERVICE_CONF *pConf) {
    if (!IsValidName(szName)) {
        TAVO_FAIL_STATE(
            TLIBC_ERR_BAD_PARAMETER,
            "Section name format error (File: %s, Section Name: [%s])! It can not be empty, "
            "and just can composed of a~z, 0~9, `-`, '_', tavoerr=",
            szPath, szName);
        return Reading::Invalid();
    }
    return std::strcmp(szName, tavo::kGlobalSection) == 0
               ? ReadGlobal(szPath, pConf)
               : tavo::ReadServiceSection(szPath, szName, keys, &pConf->pSections);
}

void ReadSections(const char *szPath, const TLIBCSzList *pNames, TAVO_SERVICE_CONF *pConf,
                  ReadingReport *report) {
    tavo::OwnedTable keys;
    for (int i = 0; i < TLIBCSzListCount(pNames); ++i) {
        const char *szName = TLIBCSzListGet(pNames, i);
        const Reading reading = ReadSection(szPath, szName, keys, pConf);
        if (report != nullptr) {
            report->NoteSection(reading, szName);
        }
    }
}

}  // namespace

Reading tavo::ReadServiceFile(const char *szPath, TAVO_SERVICE_CONF **ppList,
                              ReadingReport *report) {
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
    const tavo::HeldFile held(szPath);
    TLIBCSzList *pNames = names.get();
    const int nSections = TLIBCFileEnumSection(szPath, &pNames);
    if (nSections < 1) {
        TAVO_LOG_STATE("Failed to TLIBCFileEnumSection %s(ret: %d) or 0 section, tavoerr=", szPath,
                       nSections);
        return nSections < 0 ? tavo::WhyUnreadable(szPath) : Reading::Invalid();
    }
    if (nSections == 1 && std::strcmp(TLIBCSzListGet(pNames, 0), tavo::kGlobalSection) == 0) {
        TAVO_LOG_STATE(
            "Configure file format error! (file: %s) Only [global] section, you should add at "
            "least one service section in the file. tavoerr=",
            szPath);
        return Reading::Invalid();
    }
    ReadSections(szPath, pNames, conf.get(), report);
    if (conf->pSections == nullptr) {
        TAVO_LOG_STATE("Get service section fail. (file: %s), tavoerr=", szPath);
        return Reading::Invalid();
    }
    tavo::Prepend(std::move(conf), ppList);
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
