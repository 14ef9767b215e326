// The stores that a change may touch, and their side copies: whole copies beside them, from which a
// change can be undone.
#ifndef TAVO_SRC_LIFECYCLE_SIDE_COPY_H
#define TAVO_SRC_LIFECYCLE_SIDE_COPY_H

#include <array>

#include "lifecycle/set_param.h"
#include "lifecycle/store_lock.h"
#include "support/service_directory.h"

namespace tavo {

constexpr char kFirewallDirectory[] = "/usr/tavo/etc/firewall.d";

struct Store {
    StoreId id;
    const char *path;
    bool chosen;
    char place[kPathSize] = "";  // where it lies, when its path is a link
    char copy[kPathSize] = "";

    // -1, logged, when it is unknown where the store lies; the copy then has no name.
    int NameCopy();
};

using Stores = std::array<Store, kStoreCount>;

// All stores in their order; those that nCheckFlags and nLocation choose are marked. With both
// directories no service folder is chosen.
Stores StoresOf(const SetParam &param);

StoreSet ChosenOf(const Stores &stores);

// The following need the lock of the store and the name of its copy. -1 for a failure, which is
// logged; `failure` may be left to the caller, who knows the store.

// Copies the store. A store that is missing, and one that cannot be copied whole, has no side copy
// afterwards; the latter is logged and no failure.
int MakeSideCopy(Store &store, StepFailure &failure);

// Puts the side copy, if there is one, in the place of the store. A failure sets an error code and
// leaves the side copy, or its content in the place of the store.
int PutBack(const Store &store, StepFailure &failure);

int DeleteSideCopy(const Store &store, StepFailure &failure);

}  // namespace tavo

#endif
