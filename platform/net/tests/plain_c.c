/* A plain C99 program that includes tavonet.h alone. */
#include "tavonet.h"

int main(void) {
    int anSlots[4];
    int nCount = 4;
    return TAVONetGetPortUsedInRange(anSlots, &nCount, 2, 1, 1) == -1 && nCount == 4 ? 0 : 1;
}
