// Sets the ports of a section with the same steps as writing a section: a conflict check, a copy
// for the router tool, a restart. A missing file or section is an error.
//
// The value is written without the quotes that TLIBServiceConfSectionSet adds. Both forms are read
// alike.
#include <cerrno>

#include "lifecycle/section_write.h"
#include "lifecycle/store_lock.h"
#include "model/service_file_keys.h"
#include "support/failure.h"
#include "support/held_file.h"
#include "support/owners.h"

namespace {

using tavo::Step;
using tavo::StepFailure;

int CheckSection(const tavo::Target &target, StepFailure &failure) {
    const tavo::OwnedTable keys(TLIBCSzHashAlloc(tavo::kInitialCapacity));
    if (keys == nullptr) {
        failure.Set(Step::kReadSection, "", ENOMEM);
        return TAVO_LOG("Failed to alloc memory");
    }
    const int nFound = tavo::LookForFile(target.Path(), TAVO_HERE, failure);
    if (nFound < 0) {
        return -1;
    }
    if (nFound == 0) {
        failure.Set(Step::kMissingFile, target.Path(), ENOENT);
        return TAVO_LOG_STATE("Configure file (%s) does not exist!", target.Path());
    }
    TLIBCSzHash *pKeys = keys.get();
    const int nKeys = TLIBCFileGetSection(target.Path(), target.Section(), &pKeys);
    if (nKeys < 1) {
        failure.Set(nKeys < 0 ? Step::kReadSection : Step::kMissingSection, target.Path());
        return TAVO_LOG("Section not found or failed to get section(%s) from %s", target.Section(),
                        target.Path());
    }
    return 0;
}

int WriteValue(const tavo::SetParam &param, const char *szKey, const tavo::PortText &ports,
               tavo::TemporaryCopy &old, tavo::ChangeOutcome &outcome) {
    const tavo::Target target(param);
    const tavo::StoreLock lock(tavo::StoreOfDirectory(target.Directory()));
    if (!lock.IsHeld()) {
        return lock.Fail(TAVO_HERE, "to change ", target.Path(), outcome.failure);
    }
    if (CheckSection(target, outcome.failure) < 0 ||
        tavo::CopyForRouter(target, TAVO_HERE, old, outcome.failure) < 0 ||
        tavo::StorePorts(target.Path(), target.Section(), szKey, ports.szValue, outcome.failure) <
            0) {
        return -1;
    }
    tavo::NotifyRouter(param, old, target.Path(), TAVO_HERE, outcome.notified);
    old.Unlock();
    return 0;
}

}  // namespace

int tavo::StorePorts(const char *path, const char *section, const char *key, const char *ports,
                     StepFailure &failure) {
    return failure.During(Step::kWrite, path,
                          [&] { return TLIBCFileSetSectionValue(path, section, key, ports); });
}

int tavo::WritePorts(const SetParam *param, const TAVO_SERVICE_CONF_PORT *ports,
                     ChangeOutcome &outcome) {
    ReleaseHeldFile();
    if (!AllowsSet(param) || ports == nullptr) {
        outcome.failure.Set(Step::kCheckArguments);
        return TAVO_SET_ERROR(TLIBC_ERR_BAD_PARAMETER);
    }
    PortText text;
    if (text.Print(ports) < 0) {
        return outcome.failure.Set(Step::kPrintPorts);
    }
    if (RefuseConflict(*param, text, TAVO_HERE, outcome.failure) < 0) {
        return -1;
    }
    TemporaryCopy old;
    if (ChangesFile(*param) &&
        WriteValue(*param, PortsKey(ports->nDirection), text, old, outcome) < 0) {
        return -1;
    }
    RestartAfterWrite(*param, TAVO_HERE, outcome.notified);
    return 0;
}

int TLIBServiceConfPortsSet(const TAVO_SERVICE_CONF_SET_PARAM *pParam,
                            const TAVO_SERVICE_CONF_PORT *pPortList) {
    tavo::ChangeOutcome outcome;
    return tavo::WritePorts(pParam, pPortList, outcome);
}
