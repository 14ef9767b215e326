#include "lifecycle/section_write.h"

#include "lifecycle/programs.h"
#include "support/failure.h"
#include "support/owners.h"

namespace tavo {

int PortText::Print(const TAVO_SERVICE_CONF_PORT *pPorts) {
    if (TLIBServiceConfPortsToStr(pPorts, szPorts, sizeof(szPorts), szProtocols,
                                  sizeof(szProtocols)) < 0) {
        return -1;
    }
    PrintText(szValue, "%s/%s", szPorts, szProtocols);
    return 0;
}

// A service is not in conflict with what it has declared so far, so it leaves itself out.
int RefuseConflict(const SetParam &param, const PortText &ports) {
    TAVO_SERVICE_CONF_PORT *pConflicts = nullptr;
    const int nConflict =
        TLIBIsPortConflict(FieldString(param.szSectionName).Get(), ports.szPorts, ports.szProtocols,
                           static_cast<int>(param.nCheckFlags), &pConflicts);
    const OwnedPorts conflicts(pConflicts);
    if (nConflict > 0) {
        return TAVO_LOG_STATE("Port conflict with existing ports! (port: %s)", ports.szValue);
    }
    return nConflict;
}

bool ChangesFile(const SetParam &param) {
    return (param.nCheckFlags & TAVO_PORT_CHECK_FW_SERVICE) != 0;
}

int MakeBackup(const Target &target, TemporaryCopy &backup) {
    char szBackup[kPathSize];
    PrintText(szBackup, "/tmp/%s", target.FileName());
    if (backup.Make(target.Path(), szBackup) != 0) {
        if (backup.MetFolder()) {
            TAVO_LOG("Folder %s has the name of a copy and is not empty", szBackup);
        }
        return TAVO_LOG("FAILED to copy from file=%s to backup path=%s", target.Path(), szBackup);
    }
    return 0;
}

void TellRouter(const SetParam &param, const TemporaryCopy &backup, const char *szPath) {
    if ((param.nCheckFlags & TAVO_PORT_CHECK_PORT_FORWARD) != 0 &&
        TLIBCExec(kRouterTool, "--update", backup.Path(), szPath, nullptr) != 0) {
        TAVO_LOG_STATE("%s --udpate %s %s failed!", kRouterTool, backup.Path(), szPath);
    }
}

void RestartServices(const SetParam &param) {
    if (param.nRestartMode == TAVO_RESTART_MODE_RESTART &&
        TLIBServiceConfServRestart(static_cast<int>(param.nRestartFlags)) < 0) {
        TAVO_LOG_STATE("Restart service fail");
    }
}

}  // namespace tavo
