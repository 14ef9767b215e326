// What writing a section and setting its ports have in common: the ports as text, the check of
// them, the keys of the section, and who is notified.
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

// Room for the ports of a section in a service file.
constexpr std::size_t kPortTextSize = 1024;

struct PortText {
    char szPorts[kPortTextSize] = "";
    char szProtocols[kPortTextSize] = "";
    char szValue[kPortTextSize] = ""; /* PORTS/PROTOCOLS, cut to fit */

    // Prints a list; -1 when it cannot be printed.
    int Print(const TAVO_SERVICE_CONF_PORT *pPorts);

    bool IsCut() const {
        return std::strlen(szPorts) + std::strlen("/") + std::strlen(szProtocols) >=
               sizeof(szValue);
    }
};

// The keys of a section as they will be written: those that the file has today, with the new ones
// over them.
class SectionKeys {
  public:
    SectionKeys() : keys_(TLIBCSzHashAlloc(kInitialCapacity)) {}

    // False when out of memory; nothing below may then be called.
    bool IsMade() const { return keys_ != nullptr; }

    // Reads the keys of today. Each of these gives -1 for a failure, which is logged.
    int Read(const char *path, const char *section, StepFailure &failure);

    // Sets the keys that a section record has. The ports are given as text.
    int Set(const TAVO_SERVICE_CONF_SECTION &section, const PortText &dst_ports,
            const PortText &src_ports, StepFailure &failure);

    // Writes them, as a new section where Read found none.
    int Store(const char *path, const char *section, StepFailure &failure) const;

  private:
    OwnedTable keys_;
    bool present_ = false;
};

// Whether the service file is to be changed at all, or the ports only checked.
bool ChangesFile(const SetParam &param);

// Writes the ports of a section under `key`, without quotes.
int StorePorts(const char *path, const char *section, const char *key, const PortText &ports,
               StepFailure &failure);

// The following log for the operation at `place`.

// -1 when the ports are taken or it is unknown whether they are.
int RefuseConflict(const SetParam &param, const PortText &ports, const Place &place,
                   StepFailure &failure);

// Copies the file, as it is before the change, for the router tool.
int CopyForRouter(const Target &target, const Place &place, TemporaryCopy &old,
                  StepFailure &failure);

// Has the router tool, where that is wanted, compare the file with its old content.
void NotifyRouter(const SetParam &param, const TemporaryCopy &old, const char *szPath,
                  const Place &place, Notifications &notified);

// Restarts the services that must take the change up, where that is wanted.
void RestartAfterWrite(const SetParam &param, const Place &place, Notifications &notified);

}  // namespace tavo

#endif
