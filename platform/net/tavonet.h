/*
 * libtavonet: the network of the appliance.
 *
 * The part of the appliance's networking library that libtavoserviceconf calls.
 */
#ifndef TAVONET_H
#define TAVONET_H

#if defined(__GNUC__)
#define TAVONET_API __attribute__((visibility("default")))
#else
#define TAVONET_API
#endif

#ifdef __cplusplus
extern "C" {
#endif

/* Stores in pSlots the local ports in nLow..nHigh, both included, that a TCP socket (a UDP socket
 * when blTCP is 0) of this network namespace holds now, over IPv4 and IPv6, each once, ascending,
 * whatever the socket's state except TIME_WAIT. A TCP socket that is bound but neither listens nor
 * connects counts if the kernel reports it (the socket diagnostics of Linux 6.8 and later).
 *
 * The ends may be any numbers, of which 1..65535 are ports. On entry *pnCount is the number of
 * slots (0 or less: one per port of the range), on return the number that was filled; ports that do
 * not fit are left out, and the other slots are unchanged.
 *
 * 0, also when no port is in use; -1 for a NULL argument or nLow above nHigh (0xD00), or when
 * neither the kernel's socket diagnostics nor /proc/net can be read (0x900); pSlots and *pnCount
 * are then unchanged. */
TAVONET_API int TAVONetGetPortUsedInRange(int *pSlots, int *pnCount, int nLow, int nHigh,
                                          int blTCP);

#ifdef __cplusplus
}
#endif

#endif /* TAVONET_H */
