// The layout of the public records is part of the ABI: programs built years ago read these fields
// at these offsets. Moving a field breaks them, so it does not compile.
#include <cstddef>

#include "tavoserviceconf.h"

namespace {

// The offset of a field of pointer size after `end` bytes.
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

using PortRange = TAVO_PORT_RANGE;
static_assert(offsetof(PortRange, nCount) == 0);
static_assert(offsetof(PortRange, pRanges) == AfterPadding(4));
static_assert(sizeof(PortRange) == AfterPadding(4) + Pointers(1));

using Row = TAVO_FW_SERVICE_REG;
static_assert(offsetof(Row, szName) == 0);
static_assert(offsetof(Row, szSupportKey) == Pointers(1));
static_assert(offsetof(Row, blSupportDefault) == Pointers(2));
static_assert(offsetof(Row, blPortForward) == Pointers(2) + 4);
static_assert(offsetof(Row, strDesc) == Pointers(2) + 8);
static_assert(offsetof(Row, strTitle) == Pointers(2) + 712);
static_assert(offsetof(Row, blHasSrcPorts) == Pointers(2) + 1416);
static_assert(offsetof(Row, nSrcProtocol) == Pointers(2) + 1420);
static_assert(offsetof(Row, szSrcPorts) == Pointers(2) + 1424);
static_assert(offsetof(Row, pfnSrcPorts) == Pointers(3) + 1424);
static_assert(offsetof(Row, blHasDstPorts) == Pointers(4) + 1424);
static_assert(offsetof(Row, nDstProtocol) == Pointers(4) + 1428);
static_assert(offsetof(Row, szDstPorts) == Pointers(4) + 1432);
static_assert(offsetof(Row, pfnDstPorts) == Pointers(5) + 1432);
static_assert(sizeof(Row) == Pointers(6) + 1432);

using Service = TAVO_FW_SERVICE;
static_assert(offsetof(Service, szName) == 0);
static_assert(offsetof(Service, blSupported) == 256);
static_assert(offsetof(Service, blPortForward) == 260);
static_assert(offsetof(Service, strTitle) == 264);
static_assert(offsetof(Service, strDesc) == 968);
static_assert(offsetof(Service, nDstProtocol) == 1672);
static_assert(offsetof(Service, pDstPortList) == AfterPadding(1676));
static_assert(offsetof(Service, nSrcProtocol) == AfterPadding(1676) + Pointers(1));
static_assert(offsetof(Service, pSrcPortList) == AfterPadding(1676) + Pointers(2));
static_assert(offsetof(Service, pNext) == AfterPadding(1676) + Pointers(3));
static_assert(sizeof(Service) == AfterPadding(1676) + Pointers(4));

using ConfResult = TAVO_CONF_PORT_CONFLICT_RESULT;
static_assert(offsetof(ConfResult, uPort) == 0);
static_assert(offsetof(ConfResult, uProtocol) == 2);
static_assert(offsetof(ConfResult, szService) == AfterPadding(4));
static_assert(offsetof(ConfResult, blConflict) == AfterPadding(4) + Pointers(1));
static_assert(sizeof(ConfResult) == AfterPadding(AfterPadding(4) + Pointers(1) + 4));

using RuntimeResult = TAVO_RUNTIME_PORT_CONFLICT_RESULT;
static_assert(offsetof(RuntimeResult, uPort) == 0);
static_assert(offsetof(RuntimeResult, uProtocol) == 2);
static_assert(offsetof(RuntimeResult, uPid) == 4);
static_assert(offsetof(RuntimeResult, uState) == 8);
static_assert(offsetof(RuntimeResult, szProgram) == AfterPadding(12));
static_assert(offsetof(RuntimeResult, blConflict) == AfterPadding(12) + Pointers(1));
static_assert(sizeof(RuntimeResult) == AfterPadding(AfterPadding(12) + Pointers(1) + 4));

using Socket = RawSocketInfo;
static_assert(offsetof(Socket, uPort) == 0);
static_assert(offsetof(Socket, uState) == 4);
static_assert(offsetof(Socket, ulInode) == 8);
static_assert(offsetof(Socket, uProtocol) == 16);
static_assert(sizeof(Socket) == 16 + alignof(uint64_t));

using SetParam = TAVO_SERVICE_CONF_SET_PARAM;
static_assert(offsetof(SetParam, nRestartMode) == 0);
static_assert(offsetof(SetParam, nRestartFlags) == 4);
static_assert(offsetof(SetParam, nWriteMode) == 8);
static_assert(offsetof(SetParam, nCheckFlags) == 12);
static_assert(offsetof(SetParam, szFileName) == 16);
static_assert(offsetof(SetParam, szSectionName) == 272);
static_assert(offsetof(SetParam, nLocation) == 528);
static_assert(sizeof(SetParam) == 532);

using Notify = TAVO_SERVICE_CONF_NOTIFY;
static_assert(offsetof(Notify, szOldConfPath) == 0);
static_assert(offsetof(Notify, szNewConfPath) == 4096);
static_assert(offsetof(Notify, blNotifyFw) == 8192);
static_assert(offsetof(Notify, blNotifyPf) == 8196);
static_assert(sizeof(Notify) == 8200);

using RemoveNotify = TAVO_SERVICE_CONF_REMOVE_NOTIFY;
static_assert(offsetof(RemoveNotify, pszConfPath) == 0);
static_assert(offsetof(RemoveNotify, blNotifyFw) == Pointers(1));
static_assert(offsetof(RemoveNotify, blNotifyPf) == Pointers(1) + 4);
static_assert(sizeof(RemoveNotify) == Pointers(1) + 8);

}  // namespace
