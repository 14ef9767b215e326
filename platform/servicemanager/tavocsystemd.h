/*
 * libtavocsystemd: the service manager of the appliance.
 *
 * The part of the appliance's service manager library that libtavoserviceconf calls.
 */
#ifndef TAVOCSYSTEMD_H
#define TAVOCSYSTEMD_H

#include <tavocore.h>

#if defined(__GNUC__)
#define TAVOCSYSTEMD_API __attribute__((visibility("default")))
#else
#define TAVOCSYSTEMD_API
#endif

#ifdef __cplusplus
extern "C" {
#endif

/* Appends to *ppSections the sections of service files that make up the firewall service szService,
 * as listed in its unit: the comma-separated names of Sections in [X-TavoFirewall], each trimmed,
 * empty ones ignored. The unit is the file szService.service of /etc/systemd/system or, if it does
 * not exist there, of /usr/lib/systemd/system: a unit in the first completely overrides that in the
 * second. Drop-ins and templates are ignored. The file is read by the rules of tavocore.h, so the
 * last of two Sections keys counts.
 *
 * 1 if the unit names at least one section, else 0, *ppSections then being unchanged. A unit that
 * is missing or names none sets no error, nor does a szService that cannot be the name of a unit:
 * one that is empty, too long or contains a "/". 0 with an error code is a failure: NULL (0xD00), a
 * unit that cannot be read (0x900), no memory (0x200). */
TAVOCSYSTEMD_API int TAVOCSystemdFirewallSectionsGet(const char *szService,
                                                     TLIBCSzList **ppSections);

/* Whether the unit szUnit is active: 1 active; 0 in any other state, unknown to the service
 * manager, or on a machine without /bin/systemctl; -1 if that is unknown. Runs "/bin/systemctl
 * is-active --quiet UNIT" and waits for it. Fails with 0xD00 for NULL, an empty name or one that
 * begins with a dash; 0x900 when systemctl cannot be started or a signal ends it; 0x200 out of
 * memory. */
TAVOCSYSTEMD_API int TAVOCSystemdActiveStatusGet(const char *szUnit);

/* Reloads the unit szUnit: 0, or -1 on failure. Runs "/bin/systemctl reload UNIT" and waits for it.
 * Fails with 0xD00 for NULL, an empty name or one that begins with a dash; 0x700 without systemctl;
 * 0x900 when it cannot be started or reports failure; 0x200 out of memory. */
TAVOCSYSTEMD_API int TAVOCSystemdReload(const char *szUnit);

#ifdef __cplusplus
}
#endif

#endif /* TAVOCSYSTEMD_H */
