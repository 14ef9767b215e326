// Reads one service section of a service file into a record.
//
// The keys are read in a fixed order, and the first missing or invalid one is reported. title, desc
// and dst.ports are required; the references title_key and desc_key are hints for the user
// interface, and an error in them is not a failure.
#include <cstdlib>
#include <cstring>
#include <utility>

#include "model/service_file_keys.h"
#include "model/service_files.h"
#include "support/failure.h"
#include "support/owners.h"
#include "support/text.h"
#include "tavoserviceconf.h"

namespace {

using tavo::Reading;

// The file and section being read, for the log lines, and the keys of the section.
struct Source {
    const char *path;
    const char *section;
    const TLIBCSzHash *keys;

    const char *Value(const char *key) const { return TLIBCSzHashGetValue(keys, key); }
};

// Reads a title or description: a reference, which may be missing, and a text.
inline int ReadString(const Source &source, const char *reference_key, const char *text_key,
                      TAVO_SERVICE_CONF_STRING *string) {
    TAVOServiceConfServiceStringGet(source.Value(reference_key), string);
    const char *text = source.Value(text_key);
    if (text == nullptr) {
        return TAVO_LOG_STATE("Get key \"%s\" fail! (file: %s, section name: %s), tavoerr=",
                              text_key, source.path, source.section);
    }
    tavo::CopyText(string->szText, text);
    return 0;
}

// The router forwards the ports only if the value is "yes"; by default they stay closed.
uint32_t ReadPortForward(const Source &source) {
    const char *value = source.Value(tavo::kKeyPortForward);
    if (value == nullptr) {
        return 0;
    }
    char forward[tavo::kForwardTextSize];
    return TLIBCStrCaseLower(value, forward, sizeof(forward)) == 0 &&
           TLIBCStrTrimSpace(forward) == 0 && std::strcmp(forward, "yes") == 0;
}

inline Reading ReadPorts(const Source &source, unsigned int direction, const char *target,
                         TAVO_SERVICE_CONF_PORT **ports) {
    const char *text = source.Value(tavo::PortsKey(direction));
    const bool absent = text == nullptr;
    if (absent && direction == TAVO_PORT_DIRECTION_SRC) {
        return Reading::Good();
    }
    if (!absent && TAVOServiceConfPortsGet(text, direction, ports) == 0) {
        return Reading::Good();
    }
    TAVO_LOG_STATE("Service get port error, filepath: %s, section name: %s, target: %s, tavoerr=",
                   source.path, source.section, target);
    return !absent && TLIBCErrGet() == TLIBC_ERR_NO_MEMORY ? Reading::Unknown()
                                                           : Reading::Invalid();
}

// Starts to load the memory of a new section, and of the ports that are allocated after it, into
// the cache. Reading the keys takes as long; zeroing the section before it would make it wait.
void Prefetch(const TAVO_SERVICE_CONF_SECTION *room) {
    constexpr std::size_t kCacheLine = 64;
    for (std::size_t at = 0; at < sizeof(*room) + 2 * kCacheLine; at += kCacheLine) {
        __builtin_prefetch(reinterpret_cast<const char *>(room) + at, 1);
    }
}

}  // namespace

Reading tavo::ReadServiceSection(const char *path, const char *name, OwnedTable &keys,
                                 TAVO_SERVICE_CONF_SECTION **list) {
    if (keys == nullptr) {
        keys.reset(TLIBCSzHashAlloc(tavo::kInitialCapacity));
    }
    if (keys == nullptr) {
        TAVO_LOG_STATE("Failed to TLIBCSzHashAlloc, tavoerr=");
        return Reading::Unknown();
    }
    MallocPtr<TAVO_SERVICE_CONF_SECTION> room(
        static_cast<TAVO_SERVICE_CONF_SECTION *>(std::malloc(sizeof(TAVO_SERVICE_CONF_SECTION))));
    if (room == nullptr) {
        TAVO_FAIL_NO_MEMORY();
        return Reading::Unknown();
    }
    Prefetch(room.get());
    TLIBCSzHash *table = keys.get();
    const int key_count = TLIBCFileGetSection(path, name, &table);
    if (key_count < 1) {
        TAVO_LOG_STATE(
            "Failed to TLIBCFileGetSection, file: %s, section name: %s, nHashRecords: %d, "
            "tavoerr=",
            path, name, key_count);
        return key_count < 0 ? tavo::WhyUnreadable(path) : Reading::Invalid();
    }
    std::memset(room.get(), 0, sizeof(*room));
    OwnedSection section(room.release());
    const Source source{path, name, table};
    tavo::CopyText(section->szName, name);
    if (ReadString(source, kKeyTitleKey, kKeyTitle, &section->strTitle) < 0 ||
        ReadString(source, kKeyDescKey, kKeyDesc, &section->strDesc) < 0) {
        return Reading::Invalid();
    }
    if (const char *extra = source.Value(kKeyDescExtra)) {
        CopyText(section->strDesc.szExtra, extra);
    }
    section->blPortForward = ReadPortForward(source);
    Reading ports = ReadPorts(source, TAVO_PORT_DIRECTION_SRC, "srcPort", &section->pSrcPorts);
    if (ports.IsGood()) {
        ports = ReadPorts(source, TAVO_PORT_DIRECTION_DST, "dstPort", &section->pDstPorts);
    }
    if (ports.IsGood()) {
        tavo::Prepend(std::move(section), list);
    }
    return ports;
}

int TAVOServiceConfServiceStringGet(const char *szRef, TAVO_SERVICE_CONF_STRING *pString) {
    if (szRef == nullptr || *szRef == '\0' || pString == nullptr) {
        return -1;
    }
    // The reference may be in the record that is filled.
    const tavo::OwnedText copy(strdup(szRef));
    if (copy == nullptr) {
        return -1;
    }
    // SECTION:KEY or SOURCE:SECTION:KEY; KEY may contain further colons.
    char *key = copy.get();
    char *section = tavo::CutPiece(key, ':');
    if (key == nullptr) {
        tavo::CopyText(pString->szText, section);
        return 0;
    }
    char *source = std::strchr(key, ':') == nullptr
                       ? nullptr
                       : std::exchange(section, tavo::CutPiece(key, ':'));
    if ((source != nullptr && TLIBCStrTrimSpace(source) < 0) || TLIBCStrTrimSpace(section) < 0 ||
        TLIBCStrTrimSpace(key) < 0) {
        return -1;
    }
    tavo::CopyText(pString->szSource, source == nullptr ? "" : source);
    tavo::CopyText(pString->szSection, section);
    tavo::CopyText(pString->szKey, key);
    return 0;
}

int TAVOServiceConfSectionGet(const char *szPath, const char *szSection,
                              TAVO_SERVICE_CONF_SECTION **ppList) {
    if (szPath == nullptr || szSection == nullptr || ppList == nullptr) {
        return TAVO_SET_ERROR(TLIBC_ERR_BAD_PARAMETER);
    }
    tavo::OwnedTable keys;
    return tavo::ReadServiceSection(szPath, szSection, keys, ppList).IsGood() ? 0 : -1;
}
