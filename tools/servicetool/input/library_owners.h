// Owners of memory allocated by the libraries. The libraries return null when out of memory; here
// that throws std::bad_alloc.
#ifndef TAVO_SERVICETOOL_INPUT_LIBRARY_OWNERS_H
#define TAVO_SERVICETOOL_INPUT_LIBRARY_OWNERS_H

#include <memory>
#include <new>

#include "support/owners.h"

namespace tavo::tool {

using OwnedConfResults = std::unique_ptr<TLIBCDList, FreeWith<TAVOConfPortConflictResultListFree>>;

template <typename Owner>
Owner OrThrow(Owner owner) {
    if (!owner) {
        throw std::bad_alloc();
    }
    return owner;
}

}  // namespace tavo::tool

#endif
