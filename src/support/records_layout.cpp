// The layout of the public records is part of the ABI: programs built years ago read these fields
// at these places. Whoever moves one breaks them, so it does not compile.
#include <cstddef>

#include "tavoserviceconf.h"

namespace {

// Where a field of pointer size lands behind `end` bytes.
constexpr std::size_t AfterPadding(std::size_t end) {
    return (end + sizeof(void *) - 1) / sizeof(void *) * sizeof(void *);
}

constexpr std::size_t Pointers(std::size_t count) {
    return count * sizeof(void *);
}

using Port = TAVO_SERVICE_CONF_PORT;
static_assert(offsetof(Port, nDirection) == 0);
static_assert(offsetof(Port, nPortType) == 4);
static_assert(offsetof(Port, nProtocol) == 8);
static_assert(offsetof(Port, nPortStart) == 12);
static_assert(offsetof(Port, nPortEnd) == 16);
static_assert(offsetof(Port, pNext) == AfterPadding(20));
static_assert(sizeof(Port) == AfterPadding(20) + Pointers(1));

using String = TAVO_SERVICE_CONF_STRING;
static_assert(offsetof(String, szSource) == 0);
static_assert(offsetof(String, szSection) == 256);
static_assert(offsetof(String, szKey) == 320);
static_assert(offsetof(String, szText) == 448);
static_assert(offsetof(String, szExtra) == 576);
static_assert(sizeof(String) == 704);

using Section = TAVO_SERVICE_CONF_SECTION;
static_assert(offsetof(Section, szName) == 0);
static_assert(offsetof(Section, strTitle) == 256);
static_assert(offsetof(Section, strDesc) == 960);
static_assert(offsetof(Section, blPortForward) == 1664);
static_assert(offsetof(Section, pSrcPorts) == AfterPadding(1668));
static_assert(offsetof(Section, pDstPorts) == AfterPadding(1668) + Pointers(1));
static_assert(offsetof(Section, pNext) == AfterPadding(1668) + Pointers(2));
static_assert(sizeof(Section) == AfterPadding(1668) + Pointers(3));

using Conf = TAVO_SERVICE_CONF;
static_assert(offsetof(Conf, nVersion) == 0);
static_assert(offsetof(Conf, szSupportKey) == 4);
static_assert(offsetof(Conf, szRunKey) == 132);
static_assert(offsetof(Conf, pSections) == AfterPadding(260));
static_assert(offsetof(Conf, pNext) == AfterPadding(260) + Pointers(1));
static_assert(sizeof(Conf) == AfterPadding(260) + Pointers(2));

using ProtoMapping = TAVO_PROTO_TYPE_MAPPING;
static_assert(offsetof(ProtoMapping, nProto) == 0);
static_assert(offsetof(ProtoMapping, szName) == AfterPadding(4));
static_assert(sizeof(ProtoMapping) == AfterPadding(4) + Pointers(1));

}  // namespace
