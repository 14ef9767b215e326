#include "lifecycle/section_write.h"

#include "lifecycle/store_lock.h"
#include "lifecycle/temporary_copy.h"
#include "support/failure.h"
#include "support/owners.h"

namespace tavo {

int PortText::Print(const TAVO_SERVICE_CONF_PORT *list) {
    if (TLIBServiceConfPortsToStr(list, ports, sizeof(ports), protocols, sizeof(protocols)) < 0) {
        return -1;
    }
    PrintText(value, "%s/%s", ports, protocols);
    return 0;
}

namespace {

constexpr char kRouterTool[] = "/usr/tavo/sbin/tavoroutertool";

// The check excludes the service's own ports, which it may declare again.
int RefuseConflict(const SetParam &param, const PortText &ports, const Place &place,
                   StepFailure &failure) {
    TAVO_SERVICE_CONF_PORT *taken = nullptr;
    const int result =
        TLIBIsPortConflict(FieldString(param.szSectionName).Get(), ports.ports, ports.protocols,
                           static_cast<int>(param.nCheckFlags), &taken);
    const OwnedPorts conflicts(taken);
    if (result > 0) {
        failure.Set(Step::kTakenPorts);
        return TAVO_LOG_STATE_AT(place, "Port conflict with existing ports! (port: %s)",
                                 ports.value);
    }
    return result < 0 ? failure.Set(Step::kCheckPorts) : 0;
}

int CopyForRouter(const Target &target, const Place &place, TemporaryCopy &old,
                  StepFailure &failure) {
    char copy[kPathSize];
    PrintText(copy, "%s/%s", kTemporaryFolder, target.FileName());
    if (old.Make(target.Path(), copy, place, failure) != 0) {
        return TAVO_LOG_AT(place, "FAILED to copy from file=%s to backup path=%s", target.Path(),
                           copy);
    }
    return 0;
}

void NotifyRouter(const SetParam &param, const TemporaryCopy &old, const char *path,
                  const Place &place, Notifications &notified) {
    if ((param.nCheckFlags & TAVO_PORT_CHECK_PORT_FORWARD) == 0) {
        return;
    }
    Notification &router = notified[Listener::kRouterTool];
    const int status = TLIBCExec(kRouterTool, "--update", old.Path(), path, nullptr);
    if (status == 0) {
        router.Succeed();
        return;
    }
    router.Fail().SetProgram(Step::kUpdateRouter, kRouterTool, status);
    TAVO_LOG_STATE_AT(place, "%s --udpate %s %s failed!", kRouterTool, old.Path(), path);
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
