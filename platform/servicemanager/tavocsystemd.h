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
 * as its unit says: the names between the commas of Sections in [X-TavoFirewall], each trimmed,
 * empty ones left out. The unit is the file szService.service of /etc/systemd/system or, when that
 * has none, of /usr/lib/systemd/system: a unit in the first hides that in the second whatever it
 * says. Drop-ins and templates are not looked at; the file is read by the rules of tavocore.h, so
 * that the last of two Sections counts.
 *
 * 1 when the unit names at least one section, else 0, *ppSections then being as it was. A unit that
 * is missing or names none is an answer and sets no error, and so is a szService that no unit can
 * have for a name: one that is empty, too long or holds a "/". 0 with an error code is a failure:
 * NULL (0xD00), a unit that cannot be read (0x900), no memory (0x200). */
TAVOCSYSTEMD_API int TAVOCSystemdFirewallSectionsGet(const char *szService,
                                                     TLIBCSzList **ppSections);

/* Whether the unit szUnit is active: 1 active; 0 in any other state, unknown to the service
 * manager, or on a machine without /bin/systemctl; -1 when it cannot be told. Runs
 * "/bin/systemctl is-active --quiet UNIT" and waits for it. Fails with 0xD00 for NULL, an empty
 * name or one that begins with a dash; 0x900 when systemctl cannot be started or a signal ends it;
 * 0x200 out of memory. */
TAVOCSYSTEMD_API int TAVOCSystemdActiveStatusGet(const char *szUnit);

/* Has the unit szUnit read its configuration anew: 0, or -1 on failure. Runs "/bin/systemctl reload
 * UNIT" and waits for it. Fails with 0xD00 for NULL, an empty name or one that begins with a dash;
 * 0x700 without systemctl; 0x900 when it cannot be started or reports failure; 0x200 out of
 * memory. */
TAVOCSYSTEMD_API int TAVOCSystemdReload(const char *szUnit);

#ifdef __cplusplus
}
#endif

#endif /* TAVOCSYSTEMD_H */
