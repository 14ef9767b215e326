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

#ifdef __cplusplus
}
#endif

#endif /* TAVOCSYSTEMD_H */
