/*
 * libtavoftp: the FTP server of the appliance.
 *
 * The part of the appliance's FTP library that libtavoserviceconf calls. The ports are settings of
 * /etc/tavoinfo.conf, read in every call: ftpport, ftplowport and ftphighport, which are 21,
 * 50000 and 50031 when absent or empty. A port is decimal digits with a value of 0..65535.
 */
#ifndef TAVOFTP_H
#define TAVOFTP_H

#include <tavocore.h>

#if defined(__GNUC__)
#define TAVOFTP_API __attribute__((visibility("default")))
#else
#define TAVOFTP_API
#endif

#ifdef __cplusplus
extern "C" {
#endif

/* ftphighport, the last port of the passive range; -1 if the settings cannot be read (0x700 for a
 * missing file, 0x900, 0x200) or the value is not a port (0xD00). */
TAVOFTP_API int TAVOFTPHighPortGet(void);

/* Stores in *ppPorts a new list of the ports that the firewall opens for FTP: the control port
 * ("21") and the passive range ("50000-50031"), its smaller port first; a range of one port is that
 * port. 0; -1 for NULL (0xD00), when one of the three settings fails as for TAVOFTPHighPortGet, or
 * when memory runs out (0x200); *ppPorts is then unchanged. The caller frees the list with
 * TLIBCSzListFree. */
TAVOFTP_API int TAVOFTPFwPorts(TLIBCSzList **ppPorts);

#ifdef __cplusplus
}
#endif

#endif /* TAVOFTP_H */
