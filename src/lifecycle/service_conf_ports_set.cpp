// Sets the ports of a section with all the care that writing a section takes: a check for
// conflicts, a copy for the router tool, a restart. Nothing is made that is missing.
//
// The value goes without the quotes that TLIBServiceConfSectionSet puts around it; both read alike.
#include "lifecycle/section_write.h"
#include "lifecycle/store_lock.h"
#include "model/service_file_keys.h"
#include "support/failure.h"
#include "support/held_file.h"
#include "support/owners.h"

namespace {

int CheckSection(const tavo::Target &target) {
    const tavo::OwnedTable keys(TLIBCSzHashAlloc(tavo::kInitialCapacity));
    if (keys == nullptr) {
        return TAVO_LOG("Failed to alloc memory");
    }
    const int nFound = tavo::LookForFile(target.Path());
    if (nFound < 0) {
        return -1;
    }
    if (nFound == 0) {
        return TAVO_LOG_STATE("Configure file (%s) does not exist!", target.Path());
    }
    TLIBCSzHash *pKeys = keys.get();
    if (TLIBCFileGetSection(target.Path(), target.Section(), &pKeys) < 1) {
        return TAVO_LOG("Section not found or failed to get section(%s) from %s", target.Section(),
                        target.Path());
    }
    return 0;
}

int WritePorts(const tavo::SetParam &param, const char *szKey, const tavo::PortText &ports,
               tavo::TemporaryCopy &backup) {
    const tavo::Target target(param);
    const tavo::StoreLock lock(tavo::StoreOfDirectory(target.Directory()));
    if (!lock.IsHeld()) {
        return TAVO_FAIL_STATE(TLIBC_ERR_FILE_UNUSABLE, "Failed to lock %s to change %s",
                               lock.Missing(), target.Path());
    }
    if (CheckSection(target) < 0 || tavo::MakeBackup(target, backup) < 0 ||
        TLIBCFileSetSectionValue(target.Path(), target.Section(), szKey, ports.szValue) < 0) {
        return -1;
    }
    tavo::TellRouter(param, backup, target.Path());
    backup.Unlock();
    return 0;
}

}  // namespace

int TLIBServiceConfPortsSet(const TAVO_SERVICE_CONF_SET_PARAM *pParam,
                            const TAVO_SERVICE_CONF_PORT *pPortList) {
    tavo::ReleaseHeldFile();
    if (!tavo::AllowsSet(pParam) || pPortList == nullptr) {
        return TAVO_SET_ERROR(TLIBC_ERR_BAD_PARAMETER);
    }
    tavo::PortText ports;
    if (ports.Print(pPortList) < 0 || tavo::RefuseConflict(*pParam, ports) < 0) {
        return -1;
    }
    tavo::TemporaryCopy backup;
    if (tavo::ChangesFile(*pParam) &&
        WritePorts(*pParam, tavo::PortsKey(pPortList->nDirection), ports, backup) < 0) {
        return -1;
    }
    tavo::RestartServices(*pParam);
    return 0;
}
