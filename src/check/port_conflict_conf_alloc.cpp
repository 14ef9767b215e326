// Allocates, copies and frees result records of the configuration check and lists of them.
#include "check/result_records.h"

PTAVO_CONF_PORT_CONFLICT_RESULT TAVOConfPortConflictResultAlloc(void) {
    return tavo::AllocRecord<tavo::ConfResults>();
}

void TAVOConfPortConflictResultFree(PTAVO_CONF_PORT_CONFLICT_RESULT pResult) {
    tavo::FreeRecord<tavo::ConfResults>(pResult);
}

PTAVO_CONF_PORT_CONFLICT_RESULT
TAVOConfPortConflictResultCopy(const TAVO_CONF_PORT_CONFLICT_RESULT *pResult) {
    return tavo::CopyRecord<tavo::ConfResults>(TAVO_HERE, pResult);
}

TLIBCDList *TAVOConfPortConflictResultListAlloc(void) {
    return tavo::AllocList<tavo::ConfResults>();
}

void TAVOConfPortConflictResultListFree(TLIBCDList *pList) {
    TLIBCDListFree(pList);
}

TLIBCDList *TAVOConfPortConflictResultListCopy(const TLIBCDList *pList) {
    return tavo::CopyList<tavo::ConfResults>(TAVO_HERE, pList);
}
