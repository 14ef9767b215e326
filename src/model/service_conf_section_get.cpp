// Reads one service section of a service file into a record.
//
// The keys are read in a fixed order, and the first missing or invalid one is reported. title, desc
// and dst.ports are required; the references title_key and desc_key are hints for the user
// interface, and an error in them is not a failure.
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

// The size of the value of port_forward in lower case. A longer value is not "yes".
constexpr std::size_t kForwardTextSize = 32;

// Splits SECTION:KEY or SOURCE:SECTION:KEY; KEY may contain further colons. Modifies szRef.
int SplitReference(char *szRef, TAVO_SERVICE_CONF_STRING *pString) {
    char *szKey = szRef;
    char *szSource = nullptr;
    char *szSection = tavo::CutPiece(szKey, ':');
    if (std::strchr(szKey, ':') != nullptr) {
        szSource = szSection;
        szSection = tavo::CutPiece(szKey, ':');
    }
    if ((szSource != nullptr && TLIBCStrTrimSpace(szSource) < 0) ||
        TLIBCStrTrimSpace(szSection) < 0 || TLIBCStrTrimSpace(szKey) < 0) {
        return -1;
    }
    tavo::CopyText(pString->szSource, szSource == nullptr ? "" : szSource);
    tavo::CopyText(pString->szSection, szSection);
    tavo::CopyText(pString->szKey, szKey);
    return 0;
}

int ReadTitle(const Source &source, TAVO_SERVICE_CONF_STRING *pTitle) {
    TAVOServiceConfServiceStringGet(source.Value(tavo::kKeyTitleKey), pTitle);
    const char *szTitle = source.Value(tavo::kKeyTitle);
    if (szTitle == nullptr) {
        return TAVO_LOG_STATE("Get key \"title\" fail! (file: %s, section name: %s), tavoerr=",
                              source.szPath, source.szSection);
    }
    tavo::CopyText(pTitle->szText, szTitle);
    return 0;
}

int ReadDescription(const Source &source, TAVO_SERVICE_CONF_STRING *pDesc) {
    TAVOServiceConfServiceStringGet(source.Value(tavo::kKeyDescKey), pDesc);
    if (const char *szExtra = source.Value(tavo::kKeyDescExtra)) {
        tavo::CopyText(pDesc->szExtra, szExtra);
    }
    const char *szDesc = source.Value(tavo::kKeyDesc);
    if (szDesc == nullptr) {
        return TAVO_LOG_STATE("Get key \"desc\" fail! (file: %s, section name: %s), tavoerr=",
                              source.szPath, source.szSection);
    }
    tavo::CopyText(pDesc->szText, szDesc);
    return 0;
}

// The router forwards the ports only if the value is "yes"; by default they stay closed.
uint32_t ReadPortForward(const Source &source) {
    const char *szValue = source.Value(tavo::kKeyPortForward);
    if (szValue == nullptr) {
        return 0;
    }
    char szForward[kForwardTextSize];
    return TLIBCStrCaseLower(szValue, szForward, sizeof(szForward)) == 0 &&
           TLIBCStrTrimSpace(szForward) == 0 && std::strcmp(szForward, "yes") == 0;
}

Reading ParsePorts(const char *szPorts, unsigned int nDirection, TAVO_SERVICE_CONF_PORT **ppPorts) {
    if (TAVOServiceConfPortsGet(szPorts, nDirection, ppPorts) == 0) {
        return Reading::Good();
    }
    return TLIBCErrGet() == TLIBC_ERR_NO_MEMORY ? Reading::Unknown() : Reading::Invalid();
}

Reading ReadPorts(const Source &source, TAVO_SERVICE_CONF_SECTION *pSection) {
    const char *szSrcPorts = source.Value(tavo::kKeySrcPorts);
    const Reading src = szSrcPorts == nullptr
                            ? Reading::Good()
                            : ParsePorts(szSrcPorts, TAVO_PORT_DIRECTION_SRC, &pSection->pSrcPorts);
    if (!src.IsGood()) {
        TAVO_LOG_STATE(
            "Service get port error, filepath: %s, section name: %s, target: srcPort, tavoerr=",
            source.szPath, source.szSection);
        return src;
    }
    const char *szDstPorts = source.Value(tavo::kKeyDstPorts);
    const Reading dst = szDstPorts == nullptr
                            ? Reading::Invalid()
                            : ParsePorts(szDstPorts, TAVO_PORT_DIRECTION_DST, &pSection->pDstPorts);
    if (!dst.IsGood()) {
        TAVO_LOG_STATE(
            "Service get port error, filepath: %s, section name: %s, target: dstPort, tavoerr=",
            source.szPath, source.szSection);
    }
    return dst;
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
    auto section = tavo::NewRecord<tavo::OwnedSection>();
    if (section == nullptr) {
        TAVO_FAIL_NO_MEMORY();
        return Reading::Unknown();
    }
    TLIBCSzHash *pKeys = keys.get();
    const int nKeys = TLIBCFileGetSection(szPath, szSection, &pKeys);
    if (nKeys < 1) {
        TAVO_LOG_STATE(
            "Failed to TLIBCFileGetSection, file: %s, section name: %s, nHashRecords: %d, "
            "tavoerr=",
            szPath, szSection, nKeys);
        return nKeys < 0 ? tavo::WhyUnreadable(szPath) : Reading::Invalid();
    }
    const Source source{szPath, szSection, pKeys};
    tavo::CopyText(section->szName, szSection);
    if (ReadTitle(source, &section->strTitle) < 0 ||
        ReadDescription(source, &section->strDesc) < 0) {
        return Reading::Invalid();
    }
    section->blPortForward = ReadPortForward(source);
    const Reading ports = ReadPorts(source, section.get());
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
    if (std::strchr(copy.get(), ':') == nullptr) {
        tavo::CopyText(pString->szText, copy.get());
        return 0;
    }
    return SplitReference(copy.get(), pString);
}

int TAVOServiceConfSectionGet(const char *szPath, const char *szSection,
                              TAVO_SERVICE_CONF_SECTION **ppList) {
    if (szPath == nullptr || szSection == nullptr || ppList == nullptr) {
        return TAVO_SET_ERROR(TLIBC_ERR_BAD_PARAMETER);
    }
    tavo::OwnedTable keys;
    return tavo::ReadServiceSection(szPath, szSection, keys, ppList).IsGood() ? 0 : -1;
}
