// Sets the ports of a section with the same steps as writing a section: a conflict check, a copy
// for the router tool, a restart. A missing file or section is an error.
//
// The value is written without the quotes that TLIBServiceConfSectionSet adds. Both forms are read
// alike.
#include <cerrno>

#include "lifecycle/section_write.h"
#include "model/service_file_keys.h"
#include "support/failure.h"
#include "support/held_file.h"
#include "support/owners.h"

namespace tavo {
namespace {

class PortsWriter final : public FileWriter {
  public:
    PortsWriter(const char *key, const PortText &ports) : key_(key), ports_(ports) {}

    int Prepare(const Target &target, StepFailure &failure) override {
        const OwnedTable keys(TLIBCSzHashAlloc(kInitialCapacity));
        if (keys == nullptr) {
            failure.Set(Step::kReadSection, "", ENOMEM);
            return TAVO_LOG("Failed to alloc memory");
        }
        const int found = LookForFile(target.Path(), TAVO_HERE, failure);
        if (found < 0) {
            return -1;
        }
        if (found == 0) {
            failure.Set(Step::kMissingFile, target.Path(), ENOENT);
            return TAVO_LOG_STATE("Configure file (%s) does not exist!", target.Path());
        }
        TLIBCSzHash *table = keys.get();
        const int count = TLIBCFileGetSection(target.Path(), target.Section(), &table);
        if (count < 1) {
            failure.Set(count < 0 ? Step::kReadSection : Step::kMissingSection, target.Path());
            return TAVO_LOG("Section not found or failed to get section(%s) from %s",
                            target.Section(), target.Path());
        }
        return 0;
    }

    int Write(const Target &target, StepFailure &failure) override {
        return StorePorts(target.Path(), target.Section(), key_, ports_.value, failure);
    }

  private:
    const char *key_;
    const PortText &ports_;
};

}  // namespace

int StorePorts(const char *path, const char *section, const char *key, const char *ports,
               StepFailure &failure) {
    return failure.During(Step::kWrite, path,
                          [&] { return TLIBCFileSetSectionValue(path, section, key, ports); });
}

int WritePorts(const SetParam *param, const TAVO_SERVICE_CONF_PORT *ports, ChangeOutcome &outcome) {
    ReleaseHeldFile();
    if (!AllowsSet(param) || ports == nullptr) {
        return outcome.failure.RefuseArguments(TAVO_HERE);
    }
    PortText text;
    if (text.Print(ports) < 0) {
        return outcome.failure.Set(Step::kPrintPorts);
    }
    PortsWriter writer(PortsKey(ports->nDirection), text);
    return ChangeFile(*param, text, writer, TAVO_HERE, outcome);
}

}  // namespace tavo

int TLIBServiceConfPortsSet(const TAVO_SERVICE_CONF_SET_PARAM *pParam,
                            const TAVO_SERVICE_CONF_PORT *pPortList) {
    tavo::ChangeOutcome outcome;
    return tavo::WritePorts(pParam, pPortList, outcome);
}
