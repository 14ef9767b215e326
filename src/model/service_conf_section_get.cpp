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
    const char *szPath;
    const char *szSection;
    const TLIBCSzHash *pKeys;

    const char *Value(const char *szKey) const { return TLIBCSzHashGetValue(pKeys, szKey); }
};

// Reads a title or description: a reference, which may be missing, and a text.
inline int ReadString(const Source &source, const char *szReferenceKey, const char *szTextKey,
                      TAVO_SERVICE_CONF_STRING *pString) {
    TAVOServiceConfServiceStringGet(source.Value(szReferenceKey), pString);
    const char *szText = source.Value(szTextKey);
    if (szText == nullptr) {
        return TAVO_LOG_STATE("Get key \"%s\" fail! (file: %s, section name: %s), tavoerr=",
                              szTextKey, source.szPath, source.szSection);
    }
    tavo::CopyText(pString->szText, szText);
    return 0;
}

// The router forwards the ports only if the value is "yes"; by default they stay closed.
uint32_t ReadPortForward(const Source &source) {
    const char *szValue = source.Value(tavo::kKeyPortForward);
    if (szValue == nullptr) {
        return 0;
    }
    char szForward[tavo::kForwardTextSize];
    return TLIBCStrCaseLower(szValue, szForward, sizeof(szForward)) == 0 &&
           TLIBCStrTrimSpace(szForward) == 0 && std::strcmp(szForward, "yes") == 0;
}

inline Reading ReadPorts(const Source &source, unsigned int nDirection, const char *szTarget,
                         TAVO_SERVICE_CONF_PORT **ppPorts) {
    const char *szPorts = source.Value(tavo::PortsKey(nDirection));
    const bool absent = szPorts == nullptr;
    if (absent && nDirection == TAVO_PORT_DIRECTION_SRC) {
        return Reading::Good();
    }
    if (!absent && TAVOServiceConfPortsGet(szPorts, nDirection, ppPorts) == 0) {
        return Reading::Good();
    }
    TAVO_LOG_STATE("Service get port error, filepath: %s, section name: %s, target: %s, tavoerr=",
                   source.szPath, source.szSection, szTarget);
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

Reading tavo::ReadServiceSection(const char *szPath, const char *szSection, OwnedTable &keys,
                                 TAVO_SERVICE_CONF_SECTION **ppList) {
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
    TLIBCSzHash *pKeys = keys.get();
    const int nKeys = TLIBCFileGetSection(szPath, szSection, &pKeys);
    if (nKeys < 1) {
        TAVO_LOG_STATE(
            "Failed to TLIBCFileGetSection, file: %s, section name: %s, nHashRecords: %d, "
            "tavoerr=",
            szPath, szSection, nKeys);
        return nKeys < 0 ? tavo::WhyUnreadable(szPath) : Reading::Invalid();
    }
    std::memset(room.get(), 0, sizeof(*room));
    OwnedSection section(room.release());
    const Source source{szPath, szSection, pKeys};
    tavo::CopyText(section->szName, szSection);
    if (ReadString(source, kKeyTitleKey, kKeyTitle, &section->strTitle) < 0 ||
        ReadString(source, kKeyDescKey, kKeyDesc, &section->strDesc) < 0) {
        return Reading::Invalid();
    }
    if (const char *szExtra = source.Value(kKeyDescExtra)) {
        CopyText(section->strDesc.szExtra, szExtra);
    }
    section->blPortForward = ReadPortForward(source);
    Reading ports = ReadPorts(source, TAVO_PORT_DIRECTION_SRC, "srcPort", &section->pSrcPorts);
    if (ports.IsGood()) {
        ports = ReadPorts(source, TAVO_PORT_DIRECTION_DST, "dstPort", &section->pDstPorts);
    }
    if (ports.IsGood()) {
        tavo::Prepend(std::move(section), ppList);
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
    char *szKey = copy.get();
    char *szSection = tavo::CutPiece(szKey, ':');
    if (szKey == nullptr) {
        tavo::CopyText(pString->szText, szSection);
        return 0;
    }
    char *szSource = std::strchr(szKey, ':') == nullptr
                         ? nullptr
                         : std::exchange(szSection, tavo::CutPiece(szKey, ':'));
    if ((szSource != nullptr && TLIBCStrTrimSpace(szSource) < 0) ||
        TLIBCStrTrimSpace(szSection) < 0 || TLIBCStrTrimSpace(szKey) < 0) {
        return -1;
    }
    tavo::CopyText(pString->szSource, szSource == nullptr ? "" : szSource);
    tavo::CopyText(pString->szSection, szSection);
    tavo::CopyText(pString->szKey, szKey);
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
