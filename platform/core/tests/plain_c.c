/* A plain C99 program that includes tavocore.h alone and uses a part of each value. */
#include "tavocore.h"

static int CountPieces(const char *szText) {
    TLIBCSzList *pList = TLIBCSzListAlloc(0);
    const int nPieces = TLIBCStrTok(szText, ",", &pList);
    TLIBCSzListFree(pList);
    return nPieces;
}

static int HoldsItsValue(void) {
    TLIBCSzHash *pHash = TLIBCSzHashAlloc(0);
    const int nResult = TLIBCSzHashSetValue(pHash, "key", "value");
    const char *szValue = TLIBCSzHashGetValue(pHash, "key");
    const int blHolds = nResult == 0 && szValue != NULL && szValue[0] == 'v';
    TLIBCSzHashFree(pHash);
    return blHolds;
}

int main(void) {
    char *szText = TLIBCStrGet("%d,%s", 80, "443");
    const int nPieces = CountPieces(szText);
    TLIBCStrPut(szText);
    TLIBCErrSetEx(0xD00, __FILE__, __LINE__);
    return nPieces == 2 && HoldsItsValue() && TLIBCErrGet() == 0xD00 ? 0 : 1;
}
