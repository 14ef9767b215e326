// The steps that are common to writing a section and setting its ports: printing and checking the
// ports, setting the keys of the section, and notifying the listeners.
#ifndef TAVO_SRC_LIFECYCLE_SECTION_WRITE_H
#define TAVO_SRC_LIFECYCLE_SECTION_WRITE_H

#include <cstddef>
#include <cstring>

#include "lifecycle/change.h"
#include "lifecycle/set_param.h"
#include "lifecycle/temporary_copy.h"
#include "support/owners.h"
#include "tavoserviceconf.h"

namespace tavo {

// Buffer size for the ports of a section in a service file.
constexpr std::size_t kPortTextSize = 1024;

struct PortText {
    char szPorts[kPortTextSize] = "";
    char szProtocols[kPortTextSize] = "";
    char szValue[kPortTextSize] = ""; /* PORTS/PROTOCOLS, cut to fit */

    // Prints a list. Returns -1 if it cannot be printed.
    int Print(const TAVO_SERVICE_CONF_PORT *pPorts);

    bool IsCut() const {
        return std::strlen(szPorts) + std::strlen("/") + std::strlen(szProtocols) >=
               sizeof(szValue);
    }
};

// The keys of a section to be written: the current keys of the file, overwritten by the new ones.
class SectionKeys {
  public:
    SectionKeys() : keys_(TLIBCSzHashAlloc(kInitialCapacity)) {}

    // False when out of memory. The functions below must not be called then.
    bool IsMade() const { return keys_ != nullptr; }

    // Reads the current keys. Each of these functions returns -1 on failure, which is logged.
    int Read(const char *path, const char *section, StepFailure &failure);

    // Sets the keys of a section record. The ports are passed as text.
    int Set(const TAVO_SERVICE_CONF_SECTION &section, const PortText &dst_ports,
            const PortText &src_ports, StepFailure &failure);

    // Writes the keys, as a new section if Read found none.
    int Store(const char *path, const char *section, StepFailure &failure) const;

  private:
    OwnedTable keys_;
    bool present_ = false;
};

// True if the service file must be changed; otherwise the ports are only checked.
bool ChangesFile(const SetParam &param);

// Writes the ports of a section under `key`, without quotes.
int StorePorts(const char *path, const char *section, const char *key, const char *ports,
               StepFailure &failure);

// The log lines of the functions below show the source location `place` of the operation.

// Returns -1 if the ports are taken or if the check fails.
int RefuseConflict(const SetParam &param, const PortText &ports, const Place &place,
                   StepFailure &failure);

// Copies the unchanged file for the router tool.
int CopyForRouter(const Target &target, const Place &place, TemporaryCopy &old,
                  StepFailure &failure);

// If requested, runs the router tool to compare the file with its old content.
void NotifyRouter(const SetParam &param, const TemporaryCopy &old, const char *szPath,
                  const Place &place, Notifications &notified);

// If requested, restarts the services that depend on the file.
void RestartAfterWrite(const SetParam &param, const Place &place, Notifications &notified);

}  // namespace tavo

#endif
