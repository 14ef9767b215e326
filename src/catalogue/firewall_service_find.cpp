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
int FindMapping(const char *table, const char *service, char (&sections)[kMappingSize]) {
    return TLIBCFileGetKeyValue(table, service, sections, kMappingSize) == 1 && *sections != '\0';
}

int AddMappedSections(const char *sections, TLIBCSzList **section_names) {
    if (TLIBCStrTok(sections, ",", section_names) < 0) {
        return TAVO_LOG("TLIBCStrTok error, tavoerr=[0x%04X]", TLIBCErrGet());
    }
    return TLIBCSzListCount(*section_names);
}

int AddPackageSections(const char *service, TLIBCSzList **section_names) {
    // The doubled slash is kept: the path appears like this in the log.
    char path[tavo::kPathSize];
    const int length =
        std::snprintf(path, sizeof(path), "%s//%s.sc", tavo::kPackageServiceDirectory, service);
    if (length < 0 || static_cast<std::size_t>(length) >= sizeof(path) ||
        TLIBCFileExist(path) != 1) {
        return TAVO_SET_ERROR(TLIBC_ERR_NO_FILE);
    }
    if (TLIBCFileEnumSection(path, section_names) < 0) {
        return TAVO_LOG("TLIBCFileEnumSection error, szFile=[%s], tavoerr=[0x%04X]", path,
                        TLIBCErrGet());
    }
    return TLIBCSzListCount(*section_names);
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
    for (const char *table : kMappingTables) {
        char sections[kMappingSize];
        if (FindMapping(table, szServiceName, sections)) {
            return AddMappedSections(sections, ppSectionNames);
        }
    }
    return AddPackageSections(szServiceName, ppSectionNames);
}
