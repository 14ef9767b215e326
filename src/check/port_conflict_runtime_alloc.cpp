// Allocates, copies and frees result records of the runtime check and lists of them.
#include "check/result_records.h"

PTAVO_RUNTIME_PORT_CONFLICT_RESULT TAVORuntimePortConflictResultAlloc(void) {
    return tavo::AllocRecord<tavo::RuntimeResults>();
}

void TAVORuntimePortConflictResultFree(PTAVO_RUNTIME_PORT_CONFLICT_RESULT pResult) {
    tavo::FreeRecord<tavo::RuntimeResults>(pResult);
}

PTAVO_RUNTIME_PORT_CONFLICT_RESULT
TAVORuntimePortConflictResultCopy(const TAVO_RUNTIME_PORT_CONFLICT_RESULT *pResult) {
    return tavo::CopyRecord<tavo::RuntimeResults>(TAVO_HERE, pResult);
}

TLIBCDList *TAVORuntimePortConflictResultListAlloc(void) {
    return tavo::AllocList<tavo::RuntimeResults>();
}

void TAVORuntimePortConflictResultListFree(TLIBCDList *pList) {
    TLIBCDListFree(pList);
}

TLIBCDList *TAVORuntimePortConflictResultListCopy(const TLIBCDList *pList) {
    return tavo::CopyList<tavo::RuntimeResults>(TAVO_HERE, pList);
}
