// The stores that a change may touch, and their side copies: whole copies beside them, from which a
// change can be undone.
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
    Step step;                   // that works on it
    Place operation;             // which log lines and the error state name
    char place[kPathSize] = "";  // where it lies, when its path is a link
    char copy[kPathSize] = "";

    // -1, logged, when it is unknown where the store lies; the copy then has no name.
    int NameCopy(StepFailure &failure);
};

// The stores that nCheckFlags and nLocation choose. With both directories no service folder is
// chosen.
StoreSet ChosenStores(const SetParam &param);

// Null where the library for port forwarding names no rules.
const char *PathOf(StoreId store);

// Every store, in their order.
using Stores = std::array<Store, kStoreCount>;
Stores AllStores(Step step, const Place &operation);

// The following need the lock of the store and the name of its copy. -1 for a failure, which is
// logged.

// Copies the store. A store that is missing, and one that cannot be copied whole, has no side copy
// afterwards; the latter is logged and no failure.
int MakeSideCopy(Store &store, StepFailure &failure);

// Puts the side copy, if there is one, in the place of the store. A failure sets an error code and
// leaves the side copy, or its content in the place of the store.
int PutBack(const Store &store, StepFailure &failure);

int DeleteSideCopy(const Store &store, StepFailure &failure);

}  // namespace tavo

#endif
