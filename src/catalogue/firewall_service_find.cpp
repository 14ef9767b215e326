// Looks up firewall services: one in an enumerated list, and the sections of service files that
// belong to one.
//
// A firewall service may consist of sections with other names. The first source that names them is
// used: the unit of the service manager, the mapping table of the administrator, that of the
// factory, and finally the package whose service file has the name of the service.
#include <cstdio>

#include "support/failure.h"
#include "support/service_directory.h"
#include "support/text.h"
#include "tavocsystemd.h"
#include "tavoserviceconf.h"

namespace {

constexpr const char *kMappingTables[] = {
    "/usr/tavo/etc/firewall_service_mapping_table",
    "/usr/tavo/etc.defaults/firewall_service_mapping_table",
};

// The size of the section list of a service in a mapping table; a longer value is truncated.
constexpr int kMappingSize = 1024;

// Looks up the service in a mapping table. Returns 1 if found, 0 if missing or empty. A table that
// cannot be read counts as one without the service.
int FindMapping(const char *szTable, const char *szServiceName, char (&szSections)[kMappingSize]) {
    return TLIBCFileGetKeyValue(szTable, szServiceName, szSections, kMappingSize) == 1 &&
           *szSections != '\0';
}

int AddMappedSections(const char *szSections, TLIBCSzList **ppSectionNames) {
    if (TLIBCStrTok(szSections, ",", ppSectionNames) < 0) {
        return TAVO_LOG("TLIBCStrTok error, tavoerr=[0x%04X]", TLIBCErrGet());
    }
    return TLIBCSzListCount(*ppSectionNames);
}

int AddPackageSections(const char *szServiceName, TLIBCSzList **ppSectionNames) {
    // The doubled slash is kept: the path appears like this in the log.
    char szFile[tavo::kPathSize];
    const int nLength = std::snprintf(szFile, sizeof(szFile), "%s//%s.sc",
                                      tavo::kPackageServiceDirectory, szServiceName);
    if (nLength < 0 || static_cast<std::size_t>(nLength) >= sizeof(szFile) ||
        TLIBCFileExist(szFile) != 1) {
        return TAVO_SET_ERROR(TLIBC_ERR_NO_FILE);
    }
    if (TLIBCFileEnumSection(szFile, ppSectionNames) < 0) {
        return TAVO_LOG("TLIBCFileEnumSection error, szFile=[%s], tavoerr=[0x%04X]", szFile,
                        TLIBCErrGet());
    }
    return TLIBCSzListCount(*ppSectionNames);
}

}  // namespace

TAVO_FW_SERVICE *TAVOFWServiceFind(TAVO_FW_SERVICE *pList, const char *szServiceName) {
    if (pList == nullptr || szServiceName == nullptr) {
        TAVO_FAIL(TLIBC_ERR_BAD_PARAMETER, "Bad parameters");
        return nullptr;
    }
    while (pList != nullptr && tavo::FieldText(pList->szName) != szServiceName) {
        pList = pList->pNext;
    }
    return pList;
}

int TAVOFwSectionNameEnum(const char *szServiceName, TLIBCSzList **ppSectionNames) {
    if (szServiceName == nullptr || ppSectionNames == nullptr || *ppSectionNames == nullptr) {
        return TAVO_SET_ERROR(TLIBC_ERR_BAD_PARAMETER);
    }
    if (TAVOCSystemdFirewallSectionsGet(szServiceName, ppSectionNames) > 0) {
        return TLIBCSzListCount(*ppSectionNames);
    }
    for (const char *szTable : kMappingTables) {
        char szSections[kMappingSize];
        if (FindMapping(szTable, szServiceName, szSections)) {
            return AddMappedSections(szSections, ppSectionNames);
        }
    }
    return AddPackageSections(szServiceName, ppSectionNames);
}
