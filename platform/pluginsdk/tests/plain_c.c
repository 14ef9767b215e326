/* A plain C99 program that includes tavopluginsdk.h alone. */
#include "tavopluginsdk.h"

int main(void) {
    TLIBPluginHandle *pHandle = TLIBPluginSDKInit("no-such-group", "test");
    const int nSet = TLIBPluginSetArg(pHandle, "KEY", "value");
    const int nResult = TLIBPluginAction(5, pHandle);
    TLIBPluginExit(pHandle);
    return nSet == 0 && nResult == 0 ? 0 : 1;
}
