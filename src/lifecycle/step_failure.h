// The cause of a failed change or notification: the step, and the error of the system, the core
// library or a program. The log has a line for most of these, but no code reads the log.
#ifndef TAVO_SRC_LIFECYCLE_STEP_FAILURE_H
#define TAVO_SRC_LIFECYCLE_STEP_FAILURE_H

#include <cerrno>

#include "support/failure.h"
#include "support/service_directory.h"
#include "support/text.h"
#include "tavocore.h"

namespace tavo {

enum class Step {
    kNone,            // nothing failed
    kCheckArguments,  // the caller's arguments are refused
    kPrintPorts,      // the ports are not a valid value for a service file
    kCheckPorts,      // it is unknown whether the ports are taken
    kTakenPorts,      // the ports are taken
    kVerifySource,    // the file to install
    kLock,            // a store
    kLook,            // whether a file exists is unknown
    kMissingFile,     // the file to change
    kMakeFolder,      // for a service file
    kMakeFile,        // an empty service file, or the name for a copy
    kReadSection,     // the section to change
    kMissingSection,  // the section to change
    kSetKeys,         // the new keys of the section
    kOccupied,        // a folder that is not empty has the name of a copy
    kCopy,            // a file
    kStage,           // the copy of the file to install, at `path`
    kReplace,         // the file by that copy
    kWrite,           // the section
    kRemove,          // the file or the section
    kBackUp,          // a store
    kRestore,         // a store
    kDeleteBackup,    // of a store
    kFirewallRecord,  // the firewall tool removes the record of a service
    kRestart,         // of the services that depend on the file
    kPreparePlugins,  // the plugin library, or an argument for the plugins
    kRunPlugins,      // at least one plugin
    kReload,          // the firewall or the relay daemon
    kQueryService,    // whether the relay daemon runs is unknown
    kUpdateRouter,    // the router tool
};

struct StepFailure {
    Step step = Step::kNone;
    unsigned int code = 0;          // of the core library; 0 if it reported none
    int error = 0;                  // errno; 0 if the system reported none
    const char *program = nullptr;  // the program that was run
    int status = 0;                 // of the program: an exit status, 128 + n after signal n, or
                                    // -1 if it could not be run
    char path[kPathSize] = "";      // the object of the step; empty if the step implies it

    bool HasFailed() const { return step != Step::kNone; }

    // Each of these functions records a failure with the current error state. Only the first
    // failure is kept: later ones are consequences. Returns -1.
    int Set(Step failed, const char *on = "", int system_error = 0) {
        if (!HasFailed()) {
            step = failed;
            code = TLIBCErrGet();
            error = system_error;
            CopyText(path, on);
        }
        return -1;
    }
    // Records bad arguments of the operation at `place`, and sets the error code.
    int RefuseArguments(const Place &place) {
        TAVO_SET_ERROR_AT(place, TLIBC_ERR_BAD_PARAMETER);
        return Set(Step::kCheckArguments);
    }
    // Calls change(), which changes the file `on` through the core library and leaves the errno of
    // a failed system call. Returns 0, or -1 on failure.
    template <typename Change>
    int During(Step step_of_change, const char *on, Change change) {
        errno = 0;
        if (change() >= 0) {
            return 0;
        }
        const int system_error = errno;
        const unsigned int reported = TLIBCErrGet();
        const bool refused = reported == TLIBC_ERR_NO_FILE || reported == TLIBC_ERR_FILE_UNUSABLE ||
                             reported == TLIBC_ERR_RENAME;
        return Set(step_of_change, on, refused ? system_error : 0);
    }
    // Records a program that failed; does nothing if it succeeded.
    void SetProgram(Step failed, const char *run, int ended, const char *on = "") {
        if (ended != 0 && !HasFailed()) {
            Set(failed, on);
            program = run;
            status = ended;
        }
    }
};

}  // namespace tavo

#endif
