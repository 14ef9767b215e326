// What a unit of the service manager says about its firewall service, in a section of its own that
// systemd passes over:
//
//    [X-TavoFirewall]
//    Sections=ldap,ldaps
//
// Units are found as systemd finds them: one of the administrator's hides the system's of the same
// name, whatever it says, and a link to /dev/null there is how a service is switched off.
#include <climits>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <memory>

#include "platform_failure.h"
#include "tavocsystemd.h"

namespace {

constexpr const char *kUnitFolders[] = {"/etc/systemd/system", "/usr/lib/systemd/system"};
constexpr char kSection[] = "X-TavoFirewall";
constexpr char kKey[] = "Sections";

// Room for the path of a unit, whose name is at most NAME_MAX bytes long.
constexpr std::size_t kPathSize = 512;

struct TableDeleter {
    void operator()(TLIBCSzHash *table) const { TLIBCSzHashFree(table); }
};
using OwnedTable = std::unique_ptr<TLIBCSzHash, TableDeleter>;

struct FreeDeleter {
    void operator()(char *text) const { std::free(text); }
};
using OwnedText = std::unique_ptr<char, FreeDeleter>;

// A name with a slash in it would lead out of the folders, and no file name is that long.
bool IsUnitName(const char *service) {
    constexpr std::size_t kLongest = NAME_MAX - (sizeof(".service") - 1);
    const std::size_t length = std::strlen(service);
    return length > 0 && length <= kLongest && std::strchr(service, '/') == nullptr;
}

// Writes the path of the unit that counts; false when there is none.
bool FindUnit(const char *service, char (&path)[kPathSize]) {
    for (const char *folder : kUnitFolders) {
        std::snprintf(path, kPathSize, "%s/%s.service", folder, service);
        if (TLIBCFileExist(path) == 1) {
            return true;
        }
    }
    return false;
}

// A copy of what the unit at `path` says; null when it says nothing or cannot be read.
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

// Appends the names between the commas of `text`, which it takes apart. False when memory runs out.
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
