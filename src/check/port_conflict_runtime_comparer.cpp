// Selects the holders of one port from a list, and adds a record for a port without any.
#include "check/result_records.h"

int RuntimeResultListFilter(const TLIBCDList *pSourceResultList, uint16_t uPort, uint16_t uProtocol,
                            TLIBCDList *pFilteredResultList) {
    return tavo::Filter<tavo::RuntimeResults>(TAVO_HERE, pSourceResultList, uPort, uProtocol,
                                              pFilteredResultList);
}

int RuntimeNotConflictResultAppend(TLIBCDList *pResultList, uint16_t uPort, uint16_t uProtocol) {
    return tavo::AppendNobody<tavo::RuntimeResults>(TAVO_HERE, pResultList, uPort, uProtocol);
}
