// A networking library that is kept from seeing any socket.
#include "tavonet.h"

int TAVONetGetPortUsedInRange(int *, int *, int, int, int) {
    return -1;
}
