// Writing a section and setting its ports: printing the ports, setting the keys of the section, and
// the sequence of steps, which is common to both.
#ifndef TAVO_SRC_LIFECYCLE_SECTION_WRITE_H
#define TAVO_SRC_LIFECYCLE_SECTION_WRITE_H

#include <cstddef>
#include <cstring>

#include "lifecycle/change.h"
#include "lifecycle/set_param.h"
#include "support/owners.h"
#include "tavoserviceconf.h"

namespace tavo {

// Buffer size for the ports of a section in a service file.
constexpr std::size_t kPortTextSize = 1024;

struct PortText {
    char ports[kPortTextSize] = "";
    char protocols[kPortTextSize] = "";
    char value[kPortTextSize] = ""; /* PORTS/PROTOCOLS, cut to fit */

    // Prints a list. Returns -1 if it cannot be printed.
    int Print(const TAVO_SERVICE_CONF_PORT *list);

    bool IsCut() const {
        return std::strlen(ports) + std::strlen("/") + std::strlen(protocols) >= sizeof(value);
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

// Writes the ports of a section under `key`, without quotes.
int StorePorts(const char *path, const char *section, const char *key, const char *ports,
               StepFailure &failure);

// A change of one file. The functions are called while the file is locked. They return -1 on
// failure, which is logged.
class FileWriter {
  public:
    virtual int Prepare(const Target &target, StepFailure &failure) = 0;
    virtual int Write(const Target &target, StepFailure &failure) = 0;

    // Called after a failure.
    virtual void Undo(const Target &) {}

  protected:
    ~FileWriter() = default;
};

// Changes the file that `param` names, unless `ports` are taken: prepares the change, copies the
// unchanged file for the router tool, writes, and runs the router tool to compare both. Then
// restarts the services that depend on the file. Each of these steps can be deselected in `param`.
// Returns -1 on failure. The log lines show the source location `place` of the operation.
int ChangeFile(const SetParam &param, const PortText &ports, FileWriter &writer, const Place &place,
               ChangeOutcome &outcome);

}  // namespace tavo

#endif
