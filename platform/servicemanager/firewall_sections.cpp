// The firewall service of a unit of the service manager. It is named in a separate section of the
// unit, which systemd ignores:
//
//    [X-TavoFirewall]
//    Sections=ldap,ldaps
//
// Units are found as systemd finds them: a unit of the administrator hides the system's unit of the
// same name, whatever its contents; a link to /dev/null there disables the service.
#include <climits>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <memory>

#include "base/owners.h"
#include "platform_failure.h"
#include "tavocsystemd.h"

namespace {

constexpr const char *kUnitFolders[] = {"/etc/systemd/system", "/usr/lib/systemd/system"};
constexpr char kSection[] = "X-TavoFirewall";
constexpr char kKey[] = "Sections";

// The size of the path of a unit, whose name has at most NAME_MAX bytes.
constexpr std::size_t kPathSize = 512;

using OwnedTable = std::unique_ptr<TLIBCSzHash, tavo::FreeWith<TLIBCSzHashFree>>;
using OwnedText = tavo::MallocPtr<char>;

// A name with a slash would lead out of the folders, and a longer name cannot be a file name.
bool IsUnitName(const char *service) {
    constexpr std::size_t kLongest = NAME_MAX - (sizeof(".service") - 1);
    const std::size_t length = std::strlen(service);
    return length > 0 && length <= kLongest && std::strchr(service, '/') == nullptr;
}

// Writes the path of the effective unit. Returns false if there is none.
bool FindUnit(const char *service, char (&path)[kPathSize]) {
    for (const char *folder : kUnitFolders) {
        std::snprintf(path, kPathSize, "%s/%s.service", folder, service);
        if (TLIBCFileExist(path) == 1) {
            return true;
        }
    }
    return false;
}

// A copy of the value in the unit at `path`; null if it has none or cannot be read.
OwnedText ReadSections(const char *path) {
    const OwnedTable table(TLIBCSzHashAlloc(1));
    TLIBCSzHash *keys = table.get();
    if (keys == nullptr || TLIBCFileGetSection(path, kSection, &keys) < 1) {
        return nullptr;
    }
    const char *sections = TLIBCSzHashGetValue(keys, kKey);
    if (sections == nullptr) {
        return nullptr;
    }
    OwnedText copy(strdup(sections));
    if (!copy) {
        TAVO_PLATFORM_FAIL(TLIBC_ERR_NO_MEMORY);
    }
    return copy;
}

// Appends the comma-separated names in `text`, which is modified. Returns false when out of memory.
bool PushNames(char *text, TLIBCSzList **list) {
    for (char *name; (name = strsep(&text, ",")) != nullptr;) {
        TLIBCStrTrimSpace(name);
        if (*name != '\0' && TLIBCSzListPush(list, name) < 0) {
            return false;
        }
    }
    return true;
}

}  // namespace

int TAVOCSystemdFirewallSectionsGet(const char *szService, TLIBCSzList **ppSections) {
    if (szService == nullptr || ppSections == nullptr || *ppSections == nullptr) {
        TAVO_PLATFORM_FAIL(TLIBC_ERR_BAD_PARAMETER);
        return 0;
    }
    char path[kPathSize];
    if (!IsUnitName(szService) || !FindUnit(szService, path)) {
        return 0;
    }
    const OwnedText sections = ReadSections(path);
    const int before = TLIBCSzListCount(*ppSections);
    if (!sections || !PushNames(sections.get(), ppSections)) {
        while (TLIBCSzListCount(*ppSections) > before) {
            TLIBCSzListRemove(*ppSections, TLIBCSzListCount(*ppSections) - 1);
        }
        return 0;
    }
    return TLIBCSzListCount(*ppSections) > before ? 1 : 0;
}
