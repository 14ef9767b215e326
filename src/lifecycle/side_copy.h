// The stores that a change may affect, and their side copies: complete copies next to them, from
// which the change can be undone.
#ifndef TAVO_SRC_LIFECYCLE_SIDE_COPY_H
#define TAVO_SRC_LIFECYCLE_SIDE_COPY_H

#include <array>

#include "lifecycle/set_param.h"
#include "lifecycle/step_failure.h"
#include "lifecycle/store_lock.h"
#include "support/failure.h"
#include "support/service_directory.h"

namespace tavo {

struct Store {
    StoreId id;
    const char *path;
    Step step;                   // the step that works on it
    Place operation;             // shown in log lines and the error state
    char place[kPathSize] = "";  // the path, or the target if the path is a link
    char copy[kPathSize] = "";   // empty until one of the functions below has found the location
};

// The stores that nCheckFlags and nLocation select. If both directories are set, no service folder
// is selected.
StoreSet ChosenStores(const SetParam &param);

// The path of a store; null if the port forwarding library has no rules file.
const char *PathOf(StoreId store);

// All stores, in the order of StoreId.
using Stores = std::array<Store, kStoreCount>;
Stores AllStores(Step step, const Place &operation);

// The functions below need the lock of the store. They return -1 on failure, which is logged.

// Copies the store. If the store is missing, or cannot be copied completely, there is no side copy
// afterwards. An incomplete copy is logged and not a failure.
int MakeSideCopy(Store &store, StepFailure &failure);

// Replaces the store by its side copy, if there is one. A failure sets an error code and leaves
// either the side copy or its content in the place of the store.
int PutBack(Store &store, StepFailure &failure);

int DeleteSideCopy(Store &store, StepFailure &failure);

}  // namespace tavo

#endif
