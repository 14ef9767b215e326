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
    ~GrowingText() { std::free(text_); }
    GrowingText(const GrowingText &) = delete;
    GrowingText &operator=(const GrowingText &) = delete;

    // Returns -1 on failure, and if the text becomes too long for a value. This limits the cost of
    // a long list.
    int Append(const char *piece) {
        if (TLIBCStrCat(&text_, &size_, piece) < 0) {
            return -1;
        }
        length_ += std::strlen(piece);
        return length_ < kValueSize ? 0 : TAVO_SET_ERROR(TLIBC_ERR_BUFFER_TOO_SMALL);
    }

    const char *Get() const { return text_; }

  private:
    char *text_ = nullptr;
    int size_ = 0;
    std::size_t length_ = 0;
};

int PrintPorts(const TAVO_SERVICE_CONF_PORT *port, GrowingText &text) {
    const char *separator = "";
    for (; port != nullptr; port = port->pNext) {
        char piece[kPieceSize];
        const int start = static_cast<int>(port->nPortStart);
        if (port->nPortType != TAVO_PORT_TYPE_SINGLE) {
            PrintText(piece, "%s%d:%d", separator, start, static_cast<int>(port->nPortEnd));
        } else {
            PrintText(piece, "%s%d", separator, start);
        }
        if (text.Append(piece) < 0) {
            return -1;
        }
        separator = ",";
    }
    return 0;
}

int PrintProtocols(uint32_t protocols, GrowingText &text) {
    const char *separator = "/";
    for (int i = 0; i < TLIBServiceProtoMapSizeGet(); ++i) {
        int bit = 0;
        if (TLIBServiceProtoIndexGet(i, &bit) < 0) {
            return -1;
        }
        if ((protocols & static_cast<uint32_t>(bit)) == 0) {
            continue;
        }
        char name[kProtocolNameSize];
        if (TLIBServiceProtoStrGet(i, name, sizeof(name)) < 0 || text.Append(separator) < 0 ||
            text.Append(name) < 0) {
            return -1;
        }
        separator = ",";
    }
    return 0;
}

int WriteValue(const char *path, const char *directory, const char *section, const char *key,
               const char *value, StepFailure &failure) {
    const StoreLock lock(StoreOfDirectory(directory));
    if (!lock.IsHeld()) {
        return lock.Fail(TAVO_HERE, "to change ", path, failure);
    }
    return StorePorts(path, section, key, value, failure);
}

// Checks the file against its own directory. The error TAVO_ERR_ALREADY_INSTALLED then means that
// the file exists.
int CheckFile(const char *path, const char *directory, StepFailure &failure) {
    if (TAVOServiceConfFileVerify(path, directory) < 0 &&
        TLIBCErrGet() != TAVO_ERR_ALREADY_INSTALLED) {
        failure.Set(TLIBCErrGet() == TLIBC_ERR_NO_FILE ? Step::kMissingFile : Step::kLook, path);
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
