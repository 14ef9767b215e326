#include "lifecycle/section_write.h"

#include "lifecycle/store_lock.h"
#include "lifecycle/temporary_copy.h"
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

namespace {

constexpr char kRouterTool[] = "/usr/tavo/sbin/tavoroutertool";

// The check excludes the service's own ports, which it may declare again.
int RefuseConflict(const SetParam &param, const PortText &ports, const Place &place,
                   StepFailure &failure) {
    TAVO_SERVICE_CONF_PORT *pConflicts = nullptr;
    const int nConflict =
        TLIBIsPortConflict(FieldString(param.szSectionName).Get(), ports.szPorts, ports.szProtocols,
                           static_cast<int>(param.nCheckFlags), &pConflicts);
    const OwnedPorts conflicts(pConflicts);
    if (nConflict > 0) {
        failure.Set(Step::kTakenPorts);
        return TAVO_LOG_STATE_AT(place, "Port conflict with existing ports! (port: %s)",
                                 ports.szValue);
    }
    return nConflict < 0 ? failure.Set(Step::kCheckPorts) : 0;
}

int CopyForRouter(const Target &target, const Place &place, TemporaryCopy &old,
                  StepFailure &failure) {
    char szCopy[kPathSize];
    PrintText(szCopy, "%s/%s", kTemporaryFolder, target.FileName());
    if (old.Make(target.Path(), szCopy, place, failure) != 0) {
        return TAVO_LOG_AT(place, "FAILED to copy from file=%s to backup path=%s", target.Path(),
                           szCopy);
    }
    return 0;
}

void NotifyRouter(const SetParam &param, const TemporaryCopy &old, const char *szPath,
                  const Place &place, Notifications &notified) {
    if ((param.nCheckFlags & TAVO_PORT_CHECK_PORT_FORWARD) == 0) {
        return;
    }
    Notification &router = notified[Listener::kRouterTool];
    const int nStatus = TLIBCExec(kRouterTool, "--update", old.Path(), szPath, nullptr);
    if (nStatus == 0) {
        router.Succeed();
        return;
    }
    router.Fail().SetProgram(Step::kUpdateRouter, kRouterTool, nStatus);
    TAVO_LOG_STATE_AT(place, "%s --udpate %s %s failed!", kRouterTool, old.Path(), szPath);
}

int WriteUnderLock(const SetParam &param, FileWriter &writer, const Place &place,
                   TemporaryCopy &old, ChangeOutcome &outcome) {
    const Target target(param);
    const StoreLock lock(StoreOfDirectory(target.Directory()));
    if (!lock.IsHeld()) {
        return lock.Fail(place, "to change ", target.Path(), outcome.failure);
    }
    if (writer.Prepare(target, outcome.failure) < 0 ||
        CopyForRouter(target, place, old, outcome.failure) < 0 ||
        writer.Write(target, outcome.failure) < 0) {
        writer.Undo(target);
        return -1;
    }
    NotifyRouter(param, old, target.Path(), place, outcome.notified);
    old.Unlock();
    return 0;
}

}  // namespace

int ChangeFile(const SetParam &param, const PortText &ports, FileWriter &writer, const Place &place,
               ChangeOutcome &outcome) {
    TemporaryCopy old;
    const bool changes_file = (param.nCheckFlags & TAVO_PORT_CHECK_FW_SERVICE) != 0;
    if (RefuseConflict(param, ports, place, outcome.failure) < 0 ||
        (changes_file && WriteUnderLock(param, writer, place, old, outcome) < 0)) {
        return -1;
    }
    if (param.nRestartMode == TAVO_RESTART_MODE_RESTART &&
        RestartServices(static_cast<int>(param.nRestartFlags), outcome.notified) < 0) {
        TAVO_LOG_STATE_AT(place, "Restart service fail");
    }
    return 0;
}

}  // namespace tavo
