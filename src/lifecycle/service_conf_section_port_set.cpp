// Sets the ports of a section and reloads the firewall without a conflict check, for callers that
// have checked the ports already.
//
// Ports are printed in list order. The protocols of the first entry apply to all.
#include <cstdlib>
#include <cstring>

#include "lifecycle/section_write.h"
#include "lifecycle/store_lock.h"
#include "model/service_file_keys.h"
#include "support/failure.h"
#include "support/held_file.h"
#include "support/service_directory.h"
#include "support/text.h"
#include "tavoserviceconf.h"

namespace tavo {
namespace {

// Buffer size for the file path, one byte less than elsewhere.
constexpr std::size_t kFilePathSize = kPathSize - 1;

// Buffer size for one printed port or range and the comma before it.
constexpr std::size_t kPieceSize = 64;

constexpr std::size_t kProtocolNameSize = 32;

// Buffer size for the whole value.
constexpr std::size_t kValueSize = 512;

// A text that TLIBCStrCat extends.
class GrowingText {
  public:
    GrowingText() = default;
    ~GrowingText() { std::free(szText_); }
    GrowingText(const GrowingText &) = delete;
    GrowingText &operator=(const GrowingText &) = delete;

    // Returns -1 on failure, and if the text becomes too long for a value. This limits the cost of
    // a long list.
    int Append(const char *szPiece) {
        if (TLIBCStrCat(&szText_, &cbText_, szPiece) < 0) {
            return -1;
        }
        nLength_ += std::strlen(szPiece);
        return nLength_ < kValueSize ? 0 : TAVO_SET_ERROR(TLIBC_ERR_BUFFER_TOO_SMALL);
    }

    const char *Get() const { return szText_; }

  private:
    char *szText_ = nullptr;
    int cbText_ = 0;
    std::size_t nLength_ = 0;
};

int PrintPorts(const TAVO_SERVICE_CONF_PORT *pPorts, GrowingText &text) {
    const char *szSeparator = "";
    for (; pPorts != nullptr; pPorts = pPorts->pNext) {
        char szPiece[kPieceSize];
        const int nStart = static_cast<int>(pPorts->nPortStart);
        if (pPorts->nPortType != TAVO_PORT_TYPE_SINGLE) {
            PrintText(szPiece, "%s%d:%d", szSeparator, nStart, static_cast<int>(pPorts->nPortEnd));
        } else {
            PrintText(szPiece, "%s%d", szSeparator, nStart);
        }
        if (text.Append(szPiece) < 0) {
            return -1;
        }
        szSeparator = ",";
    }
    return 0;
}

int PrintProtocols(uint32_t nProtocol, GrowingText &text) {
    const char *szSeparator = "/";
    for (int i = 0; i < TLIBServiceProtoMapSizeGet(); ++i) {
        int nBit = 0;
        if (TLIBServiceProtoIndexGet(i, &nBit) < 0) {
            return -1;
        }
        if ((nProtocol & static_cast<uint32_t>(nBit)) == 0) {
            continue;
        }
        char szName[kProtocolNameSize];
        if (TLIBServiceProtoStrGet(i, szName, sizeof(szName)) < 0 || text.Append(szSeparator) < 0 ||
            text.Append(szName) < 0) {
            return -1;
        }
        szSeparator = ",";
    }
    return 0;
}

int WriteValue(const char *szPath, const char *szDirectory, const char *szSection,
               const char *szKey, const char *szValue, StepFailure &failure) {
    const StoreLock lock(StoreOfDirectory(szDirectory));
    if (!lock.IsHeld()) {
        return lock.Fail(TAVO_HERE, "to change ", szPath, failure);
    }
    return StorePorts(szPath, szSection, szKey, szValue, failure);
}

// Checks the file against its own directory. The error TAVO_ERR_ALREADY_INSTALLED then means that
// the file exists.
int CheckFile(const char *szPath, const char *szDirectory, StepFailure &failure) {
    if (TAVOServiceConfFileVerify(szPath, szDirectory) < 0 &&
        TLIBCErrGet() != TAVO_ERR_ALREADY_INSTALLED) {
        failure.Set(TLIBCErrGet() == TLIBC_ERR_NO_FILE ? Step::kMissingFile : Step::kLook, szPath);
        return TAVO_LOG_STATE("Service conf does not exist, tavoerr=");
    }
    return 0;
}

}  // namespace

int SetSectionPorts(int location, const char *file, const char *section,
                    const TAVO_SERVICE_CONF_PORT *ports, ChangeOutcome &outcome) {
    ReleaseHeldFile();
    StepFailure &failure = outcome.failure;
    if (section == nullptr || ports == nullptr || LeadsAway(file)) {
        return failure.RefuseArguments(TAVO_HERE);
    }
    // The location is a number here, not a set of flags: any value but 1 means a package.
    const char *directory = location == TAVO_SERVICE_CONF_DIR_SYSTEM ? kSystemServiceDirectory
                                                                     : kPackageServiceDirectory;
    char path[kFilePathSize];
    PrintText(path, "%s/%s", directory, file);
    if (CheckFile(path, directory, failure) < 0) {
        return -1;
    }
    GrowingText value;
    if (PrintPorts(ports, value) < 0 || PrintProtocols(ports->nProtocol, value) < 0) {
        return failure.Set(Step::kPrintPorts);
    }
    if (WriteValue(path, directory, section, PortsKey(ports->nDirection), value.Get(), failure) <
        0) {
        return -1;
    }
    if (ReloadFirewall(outcome.notified) < 0) {
        failure = outcome.notified[Listener::kFirewall].failure;
        return -1;
    }
    return 0;
}

}  // namespace tavo

int TAVOServiceConfSectionPortSet(int nLocation, const char *szFileName, const char *szSectionName,
                                  const TAVO_SERVICE_CONF_PORT *pPortList) {
    tavo::ChangeOutcome outcome;
    return tavo::SetSectionPorts(nLocation, szFileName, szSectionName, pPortList, outcome);
}
