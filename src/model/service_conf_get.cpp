// Reads a whole service file into a record: the optional [global] section, which describes the
// file, and every other section as a service.
//
// One bad section costs only itself: it is logged and left out, so that a mistake in one service of
// a component does not take the others off the firewall. A file without any good one is a failure.
#include <cstdlib>
#include <cstring>
#include <utility>

#include "model/completeness.h"
#include "model/service_file_keys.h"
#include "support/failure.h"
#include "support/held_file.h"
#include "support/owners.h"
#include "support/text.h"
#include "tavoserviceconf.h"

namespace {

using tavo::Completeness;
using tavo::Reading;

constexpr int32_t kDefaultVersion = 1;

bool IsNameCharacter(char c) {
    return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9') || c == '-' ||
           c == '.' || c == '_';
}

// Wider than the log line says: upper-case letters and "." have always been let through.
bool IsValidName(const char *szName) {
    if (*szName == '\0') {
        return false;
    }
    while (IsNameCharacter(*szName)) {
        ++szName;
    }
    return *szName == '\0';
}

template <std::size_t Size>
void CopyValue(char (&field)[Size], const TLIBCSzHash *pKeys, const char *szKey) {
    if (const char *szValue = TLIBCSzHashGetValue(pKeys, szKey)) {
        tavo::CopyText(field, szValue);
    }
}

// A [global] that cannot be read is logged and does without: its keys are all optional.
void ReadGlobal(const char *szPath, TAVO_SERVICE_CONF *pConf) {
    const tavo::OwnedTable keys(TLIBCSzHashAlloc(tavo::kInitialCapacity));
    if (keys == nullptr) {
        TAVO_LOG_STATE("failed to TLIBCSzHashAlloc, tavoerr=");
        return Completeness::Note(Reading::kUnknown);
    }
    TLIBCSzHash *pKeys = keys.get();
    const int nKeys = TLIBCFileGetSection(szPath, tavo::kGlobalSection, &pKeys);
    if (nKeys < 1) {
        TAVO_LOG_STATE(
            "Failed to TLIBCFileGetSection, file: %s, section name: global, nHashRecords: %d, "
            "tavoerr=",
            szPath, nKeys);
        return Completeness::Note(nKeys < 0 ? tavo::WhyUnreadable(szPath) : Reading::kInvalid);
    }
    const char *szVersion = TLIBCSzHashGetValue(pKeys, tavo::kKeyVersion);
    pConf->nVersion = szVersion != nullptr
                          ? static_cast<int32_t>(std::strtol(szVersion, nullptr, 10))
                          : kDefaultVersion;
    CopyValue(pConf->szSupportKey, pKeys, tavo::kKeySupportKey);
    CopyValue(pConf->szRunKey, pKeys, tavo::kKeyRunKey);
}

// Reads every section into the record; how many services there were.
int ReadSections(const char *szPath, const TLIBCSzList *pNames, TAVO_SERVICE_CONF *pConf) {
    int nServices = 0;
    for (int i = 0; i < TLIBCSzListCount(pNames); ++i) {
        const char *szName = TLIBCSzListGet(pNames, i);
        if (!IsValidName(szName)) {
            TAVO_FAIL_STATE(
                TLIBC_ERR_BAD_PARAMETER,
                "Section name format error (File: %s, Section Name: [%s])! It can not be empty, "
                "and just can composed of a~z, 0~9, `-`, '_', tavoerr=",
                szPath, szName);
            Completeness::Note(Reading::kInvalid);
        } else if (std::strcmp(szName, tavo::kGlobalSection) == 0) {
            ReadGlobal(szPath, pConf);
        } else if (TAVOServiceConfSectionGet(szPath, szName, &pConf->pSections) == 0) {
            ++nServices;
        }
    }
    return nServices;
}

Reading ReadFile(const char *szPath, TAVO_SERVICE_CONF **ppList) {
    const tavo::OwnedNames names(TLIBCSzListAlloc(tavo::kInitialCapacity));
    if (names == nullptr) {
        TAVO_LOG_STATE("Failed to TLIBCSzListAlloc, tavoerr=");
        return Reading::kUnknown;
    }
    auto conf = tavo::NewRecord<tavo::OwnedConf>();
    if (conf == nullptr) {
        TAVO_FAIL_NO_MEMORY();
        return Reading::kUnknown;
    }
    const tavo::HeldFile held(szPath);
    TLIBCSzList *pNames = names.get();
    const int nSections = TLIBCFileEnumSection(szPath, &pNames);
    if (nSections < 1) {
        TAVO_LOG_STATE("Failed to TLIBCFileEnumSection %s(ret: %d) or 0 section, tavoerr=", szPath,
                       nSections);
        return nSections < 0 ? tavo::WhyUnreadable(szPath) : Reading::kInvalid;
    }
    if (nSections == 1 && std::strcmp(TLIBCSzListGet(pNames, 0), tavo::kGlobalSection) == 0) {
        TAVO_LOG_STATE(
            "Configure file format error! (file: %s) Only [global] section, you should add at "
            "least one service section in the file. tavoerr=",
            szPath);
        return Reading::kInvalid;
    }
    // The sections have noted themselves whether they are unknown.
    if (ReadSections(szPath, pNames, conf.get()) == 0) {
        TAVO_LOG_STATE("Get service section fail. (file: %s), tavoerr=", szPath);
        return Reading::kInvalid;
    }
    tavo::Prepend(std::move(conf), ppList);
    return Reading::kRead;
}

}  // namespace

int TAVOServiceConfGet(const char *szPath, TAVO_SERVICE_CONF **ppList) {
    if (szPath == nullptr || ppList == nullptr) {
        return TAVO_SET_ERROR(TLIBC_ERR_BAD_PARAMETER);
    }
    const Reading reading = ReadFile(szPath, ppList);
    Completeness::Note(reading);
    return reading == Reading::kRead ? 0 : -1;
}

void TAVOServiceConfFree(TAVO_SERVICE_CONF *pList) {
    while (pList != nullptr) {
        TAVO_SERVICE_CONF *pNext = pList->pNext;
        TAVOServiceConfSectionFree(pList->pSections);
        std::free(pList);
        pList = pNext;
    }
}
