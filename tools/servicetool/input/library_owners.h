// Owners of what the libraries hand out. They report that memory ran out by a null, which is an
// exception here.
#ifndef TAVO_SERVICETOOL_INPUT_LIBRARY_OWNERS_H
#define TAVO_SERVICETOOL_INPUT_LIBRARY_OWNERS_H

#include <cstdlib>
#include <memory>
#include <new>

#include "tavoserviceconf.h"

namespace tavo::tool {

template <auto Free>
struct FreeWith {
    template <typename Object>
    void operator()(Object *object) const {
        Free(object);
    }
};

using OwnedConf = std::unique_ptr<TAVO_SERVICE_CONF, FreeWith<TAVOServiceConfFree>>;
using OwnedPortList = std::unique_ptr<TAVO_SERVICE_CONF_PORT, FreeWith<TAVOServiceConfPortsFree>>;
using OwnedConfResults = std::unique_ptr<TLIBCDList, FreeWith<TAVOConfPortConflictResultListFree>>;
using OwnedList = std::unique_ptr<TLIBCDList, FreeWith<TLIBCDListFree>>;
using OwnedNames = std::unique_ptr<TLIBCSzList, FreeWith<TLIBCSzListFree>>;
using OwnedTable = std::unique_ptr<TLIBCSzHash, FreeWith<TLIBCSzHashFree>>;
using OwnedText = std::unique_ptr<char, FreeWith<std::free>>;

template <typename Owner>
Owner OrThrow(Owner owner) {
    if (!owner) {
        throw std::bad_alloc();
    }
    return owner;
}

}  // namespace tavo::tool

#endif
