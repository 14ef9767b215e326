// A networking library that cannot see any socket.
#include "tavonet.h"

int TAVONetGetPortUsedInRange(int *, int *, int, int, int) {
    return -1;
}
