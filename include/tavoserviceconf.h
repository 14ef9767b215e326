/*
 * libtavoserviceconf: the service configuration files of the appliance.
 *
 * A service configuration file (NAME.sc) declares the network services of one component: for each a
 * title, a description and the ports it uses. System components keep theirs in
 * /usr/tavo/etc/services.d, packages in /usr/local/etc/services.d. tavoserviceconf(5)
 * describes the format.
 *
 * Conventions
 *
 *  1. An int result is 0 on success and -1 on failure unless stated otherwise.
 *  2. Most failures record an error code with its source file and line; TLIBCErrGet,
 *     TLIBCErrorGetFile and TLIBCErrorGetLine of tavocore.h return them. A success does not clear
 *     the code, and invalid file contents may set none: before a call whose code you need, clear
 *     the state with TLIBCErrSetEx(0, NULL, 0).
 *     The codes are TLIBC_ERR_* of tavocore.h and TAVO_ERR_* below.
 *  3. Most failures also write one line to the system log, facility of the caller, priority
 *     LOG_ERR: "SOURCE:LINE MESSAGE", most followed by the error state "[0xCODE SOURCE:LINE]".
 *  4. On failure outputs and the caller's lists are unchanged unless stated otherwise.
 *  5. Records are allocated with calloc and freed with the free function of their kind, which
 *     frees the record and all that follow it in its list, and accepts NULL. Callers may build
 *     records with the same allocator and pass them on.
 *  6. Lists are linked through pNext. Records are prepended to the caller's list.
 *  7. Text is bytes. A text longer than its field is truncated and always terminated; fields
 *     that a caller fills may lack the terminator.
 *  8. No state is kept between calls except the locks of a backup (see TLIBServiceConfBackup), and
 *     each call reads the files it needs. The exception is a file that the calling thread holds
 *     with TLIBCFileHold of tavocore.h: functions that change no file read its content of the
 *     time when the hold began. Those that set a section or its ports, remove a section, install
 *     or update a file end the hold first. If a call is left by longjmp, a hold may remain;
 *     TLIBCFileRelease ends it. Functions may be called from several threads at once if each
 *     thread uses its own records.
 */
#ifndef TAVOSERVICECONF_H
#define TAVOSERVICECONF_H

#include <stdint.h>
#include <tavocore.h>

#if defined(__GNUC__)
#define TAVO_API __attribute__((visibility("default")))
#else
#define TAVO_API
#endif

#ifdef __cplusplus
extern "C" {
#endif

/* ---- Error codes ----
 *
 * Beside those of tavocore.h, of which TLIBC_ERR_BAD_PARAMETER (0xD00) also means bad syntax and a
 * bad record, TLIBC_ERR_FILE_UNUSABLE (0x900) also a store that cannot be locked in time, and
 * TLIBC_ERR_RENAME (0x2800) also a store that cannot be put back. */
#define TAVO_ERR_BAD_SOURCE 0x600U      /* the source path is neither a folder nor a regular file */
#define TAVO_ERR_LIST_DIRECTORY 0x2A00U /* a directory cannot be listed */
#define TAVO_ERR_COPY 0x3B00U           /* a file or folder cannot be copied */
#define TAVO_ERR_MAKE_DIRECTORY 0x3C00U /* a directory cannot be created */
#define TAVO_ERR_FW_SERVICES 0x9900U    /* the firewall services cannot be enumerated */
#define TAVO_ERR_ALREADY_INSTALLED 0xC000U /* a file of that name is already installed */

/* ---- Records ---- */

/* Protocol flag word (nProtocol): only these two bits are used. */
#define TAVO_PROTO_TCP 1
#define TAVO_PROTO_UDP 2
#define TAVO_PROTO_BOTH 3

/* nDirection of a port entry: which key of the section it comes from. */
#define TAVO_PORT_DIRECTION_SRC 0 /* src.ports */
#define TAVO_PORT_DIRECTION_DST 1 /* dst.ports */

/* nPortType of a port entry. */
#define TAVO_PORT_TYPE_SINGLE 0
#define TAVO_PORT_TYPE_RANGE 1

/* Where service files are; a directory selector is one of these or both (3). */
#define TAVO_SERVICE_CONF_DIR_SYSTEM 1  /* /usr/tavo/etc/services.d */
#define TAVO_SERVICE_CONF_DIR_PACKAGE 2 /* /usr/local/etc/services.d */

/* Sizes of the text fields, terminator included. */
#define TAVO_SERVICE_CONF_NAME_SIZE 256
#define TAVO_SERVICE_CONF_SOURCE_SIZE 256
#define TAVO_SERVICE_CONF_SECTION_SIZE 64
#define TAVO_SERVICE_CONF_KEY_SIZE 128
#define TAVO_SERVICE_CONF_TEXT_SIZE 128

/* One port or range of ports. */
typedef struct TAVO_SERVICE_CONF_PORT {
    uint32_t nDirection; /* TAVO_PORT_DIRECTION_SRC or _DST */
    uint32_t nPortType;  /* TAVO_PORT_TYPE_SINGLE or _RANGE */
    uint32_t nProtocol;  /* protocol flag word */
    uint32_t nPortStart; /* the port, or the first one of the range; 0..65535 from the parser */
    uint32_t nPortEnd;   /* the last port of the range; 0 for a single port from the parser */
    struct TAVO_SERVICE_CONF_PORT *pNext;
} TAVO_SERVICE_CONF_PORT;

/* A text to display: plain, or a reference into a string table of the user interface. */
typedef struct TAVO_SERVICE_CONF_STRING {
    char szSource[TAVO_SERVICE_CONF_SOURCE_SIZE];   /* SOURCE of SOURCE:SECTION:KEY, else empty */
    char szSection[TAVO_SERVICE_CONF_SECTION_SIZE]; /* SECTION of the reference */
    char szKey[TAVO_SERVICE_CONF_KEY_SIZE];         /* KEY of the reference */
    char szText[TAVO_SERVICE_CONF_TEXT_SIZE];       /* the plain text */
    char szExtra[TAVO_SERVICE_CONF_TEXT_SIZE];      /* extra text, used in descriptions only */
} TAVO_SERVICE_CONF_STRING;

/* One service: a section of a service file. */
typedef struct TAVO_SERVICE_CONF_SECTION {
    char szName[TAVO_SERVICE_CONF_NAME_SIZE]; /* the section's name, which identifies the service */
    TAVO_SERVICE_CONF_STRING strTitle;        /* keys title_key and title */
    TAVO_SERVICE_CONF_STRING strDesc;         /* keys desc_key, desc and desc_extra */
    uint32_t blPortForward;                   /* 1 when the router may forward the ports, else 0 */
    TAVO_SERVICE_CONF_PORT *pSrcPorts;        /* key src.ports; NULL when absent */
    TAVO_SERVICE_CONF_PORT *pDstPorts;        /* key dst.ports */
    struct TAVO_SERVICE_CONF_SECTION *pNext;
} TAVO_SERVICE_CONF_SECTION;

/* One service file. The path of the file is not stored. */
typedef struct TAVO_SERVICE_CONF {
    int32_t nVersion; /* [global] version; 1 when [global] lacks it, 0 without a usable [global] */
    char szSupportKey[TAVO_SERVICE_CONF_KEY_SIZE]; /* [global] support_key, empty when absent */
    char szRunKey[TAVO_SERVICE_CONF_KEY_SIZE];     /* [global] run_key, empty when absent */
    TAVO_SERVICE_CONF_SECTION *pSections; /* the services, last section of the file first */
    struct TAVO_SERVICE_CONF *pNext;
} TAVO_SERVICE_CONF;

/* A row of the protocol map. */
typedef struct TAVO_PROTO_TYPE_MAPPING {
    int32_t nProto;     /* bit of the protocol flag word */
    const char *szName; /* "tcp" or "udp" */
} TAVO_PROTO_TYPE_MAPPING;

/* The protocol map: {1, "tcp"}, {2, "udp"}. Protocol names are printed in this order everywhere. */
TAVO_API extern const TAVO_PROTO_TYPE_MAPPING gProtoTypeMapping[2];

/* Prepends a copy of pPort to *ppList (NULL: an empty list); pNext is not copied. Fails with 0xD00
 * for a NULL argument, nPortType or nDirection above 1, an nProtocol without a bit of the flag
 * word, or a range whose start is above its end; 0x200 out of memory. */
TAVO_API int TAVOServiceComposePortInfo(const TAVO_SERVICE_CONF_PORT *pPort,
                                        TAVO_SERVICE_CONF_PORT **ppList);

/* Prepends a deep copy of the one section pSection to *ppList (NULL: an empty list). The port lists
 * keep their order. The two szExtra texts are not copied, so writing the copy back removes
 * desc_extra. Fails with 0xD00 for a NULL argument, 0x200 out of memory. */
TAVO_API int TAVOServiceComposeSectionInfo(const TAVO_SERVICE_CONF_SECTION *pSection,
                                           TAVO_SERVICE_CONF_SECTION **ppList);

/* Frees every file record of the list with its sections and their ports. */
TAVO_API void TAVOServiceConfFree(TAVO_SERVICE_CONF *pList);

/* Frees every section of the list with its ports. */
TAVO_API void TAVOServiceConfSectionFree(TAVO_SERVICE_CONF_SECTION *pList);

/* Frees every port entry of the list. */
TAVO_API void TAVOServiceConfPortsFree(TAVO_SERVICE_CONF_PORT *pList);

/* ---- Port lists ---- */

/* Parses a port list such as "80,443/tcp", "6000:6010/tcp,udp" or "5000" (TCP and UDP) into
 * *ppList, which must be NULL on entry: one entry per item, the last item first, all with
 * nDirection (0 source, 1 destination) and the protocols of the whole list. The start of a range
 * may be above its end. The caller frees the list with TAVOServiceConfPortsFree. Fails with 0xD00
 * for a bad argument or bad syntax, 0x200 out of memory. */
TAVO_API int TAVOServiceConfPortsGet(const char *szPorts, unsigned int nDirection,
                                     TAVO_SERVICE_CONF_PORT **ppList);

/* 1 when szPort is one port number, decimal digits with a value of 0..65535; 0 otherwise (0xD00).
 * The value is the low 32 bits of what strtol reads: "4294967376" counts as 80. */
TAVO_API int TAVOServiceConfPortsCheck(const char *szPort);

/* The protocol flag word (1, 2 or 3) of "tcp", "udp" or both with a comma between, in upper or
 * lower case, blanks around a word allowed; 3 for NULL or ""; -1 (0xD00) for anything else. Changes
 * szProto: pass a copy. */
TAVO_API int TLIBServiceConfProtocolParse(char *szProto);

/* Formats a port list: its ports, in list order, into szPorts of cbPorts bytes ("443,6000:6010",
 * ranges smaller port first) and the protocols of its head into szProto of cbProto bytes ("tcp",
 * "udp" or "tcp,udp"). Fails with 0xD00 for a bad argument, a head without protocol or entries of
 * different protocols; 0xBF00 when a text and its terminator do not fit; 0x200 out of memory. On
 * failure neither buffer is written. */
TAVO_API int TLIBServiceConfPortsToStr(const TAVO_SERVICE_CONF_PORT *pList, char *szPorts,
                                       int cbPorts, char *szProto, int cbProto);

/* ---- Reading service files ---- */

/* Reads the service file szPath and prepends the record to *ppList (NULL: an empty list). A section
 * that cannot be read is logged and left out. Fails if no service could be read: the file is
 * missing (0x700), cannot be opened (0x900), has no section or only [global] (no code), or none of
 * its services is valid (see TAVOServiceConfSectionGet; 0xD00 for an invalid name); 0xD00 for a
 * NULL argument, 0x200 out of memory. Free with TAVOServiceConfFree. */
TAVO_API int TAVOServiceConfGet(const char *szPath, TAVO_SERVICE_CONF **ppList);

/* Reads section szSection of the service file szPath and prepends the record to *ppList (NULL: an
 * empty list). Fails if the section is missing or empty or lacks title, desc or dst.ports (no
 * code), or has an invalid port list (0xD00); 0x700 and 0x900 for the file, 0xD00 for a NULL
 * argument, 0x200 out of memory. Free with TAVOServiceConfSectionFree. */
TAVO_API int TAVOServiceConfSectionGet(const char *szPath, const char *szSection,
                                       TAVO_SERVICE_CONF_SECTION **ppList);

/* Splits a reference into a string table into pString: SOURCE:SECTION:KEY (further colons are part
 * of the key) or SECTION:KEY (szSource becomes empty), each part trimmed and truncated to fit; text
 * without a colon is copied to szText. Other fields are unchanged. -1 for NULL, an empty text or no
 * memory; sets no error. */
TAVO_API int TAVOServiceConfServiceStringGet(const char *szRef, TAVO_SERVICE_CONF_STRING *pString);

/* Reads every service file of the directories in nDirFlags (TAVO_SERVICE_CONF_DIR_SYSTEM, _PACKAGE
 * or both; other bits are ignored) and prepends the records to *ppList (NULL: an empty list), names
 * in strcoll order, so the list is in reverse order: package files before system files, last name
 * first. Every regular file and every symbolic link is read, whatever its name; one that is not a
 * service file is logged and left out. Entries of other types, and those whose type the file system
 * does not report, are ignored. Returns the number of files read; -1 (0xD00) for a NULL list or no
 * directory. A directory that cannot be listed counts as empty and sets 0x2A00. */
TAVO_API int TAVOServiceConfEnum(TAVO_SERVICE_CONF **ppList, int nDirFlags);

/* Whether the file szFile can be placed into directory szDir: 0 if it exists and its base name does
 * not exist in szDir (a dangling symbolic link does not count). -1 for a NULL argument or a path
 * beyond PATH_MAX (0xD00), a missing file (0x700), a name that is taken (0xC000), or if it is
 * unknown whether one of the two exists, since stat failed (0x900). */
TAVO_API int TAVOServiceConfFileVerify(const char *szFile, const char *szDir);

/* ---- Port range sets ----
 *
 * A set of ports, kept as ascending ranges that neither overlap nor touch: 1:5 and 6:9 are 1:9. It
 * has no protocol; keep one set per protocol. Ports are any 32-bit values, and arithmetic on them
 * wraps. The functions fail with 0xD00 for invalid arguments and 0x200 out of memory. */

typedef struct TAVO_PORT_RANGE {
    int32_t nCount;                  /* the number of nodes of pRanges */
    TAVO_SERVICE_CONF_PORT *pRanges; /* the ranges; only nPortType, nPortStart, nPortEnd are used */
} TAVO_PORT_RANGE;

/* A new, empty set; NULL when out of memory. Free with TLIBPortRangeDestory. */
TAVO_API TAVO_PORT_RANGE *TLIBPortRangeCreate(void);

/* Frees the set and its nodes; NULL is accepted. */
TAVO_API void TLIBPortRangeDestory(TAVO_PORT_RANGE *pSet);

/* Adds the range nPortStart..nPortEnd of pPort, or the one port nPortStart when nPortType is 0;
 * then nPortEnd of pPort is set to nPortStart. Ranges that it overlaps or touches are merged with
 * it. The bounds are not checked: a start above the end makes such a node. -1 for NULL or no
 * memory, the set then being unchanged. */
TAVO_API int TLIBPortRangeAdd(TAVO_PORT_RANGE *pSet, TAVO_SERVICE_CONF_PORT *pPort);

/* Removes the ports nPortStart..nPortEnd of pPort; for one port set both. A range of the set whose
 * last port is nPortStart is removed completely: removing 20:25 from 10:20 removes 10:20. A range
 * that overlaps none of the set changes nothing. -1 for NULL, an empty set, no range that ends at
 * nPortStart or later, or no memory; the set is then unchanged. */
TAVO_API int TLIBPortRangeRemove(TAVO_PORT_RANGE *pSet, const TAVO_SERVICE_CONF_PORT *pPort);

/* Adds every range of pSrc to pDst; both may be the same set. Of a node of type 0 only the first
 * port counts, whatever its end, even if Remove made it. -1 for NULL or no memory; ranges that were
 * already added remain. They need not be the first ones of a pSrc whose ranges are not ascending.
 */
TAVO_API int TLIBPortRangeJoin(TAVO_PORT_RANGE *pDst, const TAVO_PORT_RANGE *pSrc);

/* Adds the ports that are in both pA and pB to pOut, which need not be empty and may be one of the
 * two. -1 for NULL or no memory; ports that were already added remain. */
TAVO_API int TLIBPortRangeOverlap(const TAVO_PORT_RANGE *pA, const TAVO_PORT_RANGE *pB,
                                  TAVO_PORT_RANGE *pOut);

/* Adds every item of a text such as "21,1024:1100". Numbers are what strtol reads: an item without
 * one, including an empty item, is port 0, and nothing is checked. -1 for NULL or no memory; items
 * that were already added remain. */
TAVO_API int TLIBPortRangeImport(TAVO_PORT_RANGE *pSet, const char *szRanges);

/* The set as text, "21,1024:1100" (ports above 2147483647 print as negative numbers); NULL for
 * NULL, an empty set or no memory. Free with TLIBCStrPut. */
TAVO_API char *TLIBPortRangeExport(const TAVO_PORT_RANGE *pSet);

/* ---- Firewall services ----
 *
 * The firewall can offer a table of services that have no service file, and every service of the
 * service files. Port strings in these lists are "80" or "1000-2000". */

/* Gets the port strings of a service from the settings of the system: stores a new list in
 * *ppPortList, which the caller frees with TLIBCSzListFree, and returns 0; negative on failure. */
typedef int (*TAVO_FW_PORT_PROVIDER)(TLIBCSzList **ppPortList);

/* A built-in service. */
typedef struct TAVO_FW_SERVICE_REG {
    const char *szName;        /* NULL ends the table */
    const char *szSupportKey;  /* key of /etc.defaults/tavoinfo.conf that says "yes", or NULL */
    uint32_t blSupportDefault; /* whether the service is supported when szSupportKey is NULL */
    uint32_t blPortForward;    /* 1 when the router may forward the ports */
    TAVO_SERVICE_CONF_STRING strDesc;  /* only szSource, szSection and szKey are used */
    TAVO_SERVICE_CONF_STRING strTitle; /* only szSource, szSection and szKey are used */
    uint32_t blHasSrcPorts;
    uint32_t nSrcProtocol;             /* protocol flag word */
    const char *szSrcPorts;            /* ports between commas, no ranges; or NULL */
    TAVO_FW_PORT_PROVIDER pfnSrcPorts; /* used if szSrcPorts is NULL */
    uint32_t blHasDstPorts;
    uint32_t nDstProtocol;             /* protocol flag word */
    const char *szDstPorts;            /* ports between commas, no ranges; or NULL */
    TAVO_FW_PORT_PROVIDER pfnDstPorts; /* used if szDstPorts is NULL */
} TAVO_FW_SERVICE_REG;

/* The built-in services: twelve rows, "telnet" to "ipp", and the terminating row. */
TAVO_API extern const TAVO_FW_SERVICE_REG rgServices[13];

/* A firewall service. Note that strTitle and strDesc are in the opposite order of the table above.
 */
typedef struct TAVO_FW_SERVICE {
    char szName[TAVO_SERVICE_CONF_NAME_SIZE]; /* of the table's row or the section */
    uint32_t blSupported;                     /* 1 when this model supports the service, else 0 */
    uint32_t blPortForward;                   /* 1 when the router may forward the ports, else 0 */
    TAVO_SERVICE_CONF_STRING strTitle;
    TAVO_SERVICE_CONF_STRING strDesc;
    uint32_t nDstProtocol;     /* protocol flag word of the destination ports */
    TLIBCSzList *pDstPortList; /* destination port strings */
    uint32_t nSrcProtocol;     /* protocol flag word of the source ports */
    TLIBCSzList *pSrcPortList; /* source port strings; NULL when there are none */
    struct TAVO_FW_SERVICE *pNext;
} TAVO_FW_SERVICE;

/* Lists every firewall service, supported or not: returns their number and stores the list in
 * *ppServices (NULL if 0). The services of the system's files come first, then those of packages,
 * each in the order of files and sections, and last the rows of rgServices from "ipp" back to
 * "telnet". A service that cannot be listed is logged and left out: its ports are invalid or
 * missing, its port provider fails, its file cannot be read, or memory ran out. The list does not
 * show this, so a port that is not in it need not be free; TLIBIsPortConflict returns -1 then. -1
 * for NULL. Reads /etc.defaults/tavoinfo.conf, the service files of both directories, and what the
 * port providers read. Free with TAVOFwServiceFree. */
TAVO_API int TAVOFwServiceEnum(TAVO_FW_SERVICE **ppServices);

/* Frees every service of the list with its port strings; NULL is accepted. */
TAVO_API void TAVOFwServiceFree(TAVO_FW_SERVICE *pList);

/* The first service of the list with exactly this name, owned by the list; NULL when there is none
 * or an argument is NULL. */
TAVO_API TAVO_FW_SERVICE *TAVOFWServiceFind(TAVO_FW_SERVICE *pList, const char *szServiceName);

/* Appends the names of the service file sections that make up a firewall service to
 * *ppSectionNames, a list of the caller: the count of the list, -1 on failure (0xD00 for NULL or no
 * list, 0x700 for an unknown service, 0x900 for a package's file that cannot be read, 0x200 out of
 * memory). It reads the first of these that has any: the unit of that name of the service manager;
 * the key of that name in /usr/tavo/etc/firewall_service_mapping_table, then in
 * /usr/tavo/etc.defaults/firewall_service_mapping_table (names separated by commas, truncated to
 * 1023 bytes; an empty value counts as none); the package's service file
 * /usr/local/etc/services.d/NAME.sc, all of whose sections count, including [global]. The name
 * becomes part of a path: do not pass untrusted names. */
TAVO_API int TAVOFwSectionNameEnum(const char *szServiceName, TLIBCSzList **ppSectionNames);

/* The protocol flag word of a protocol number: 1, 2 and 3 are unchanged, anything else is 0. */
TAVO_API uint32_t TAVOProtocolMapping(int nProtocol);

/* Port provider of NFS: 111, 892, 2049 and the ports of statd and of the lock manager, 662 and 4045
 * unless nfs_custom_port_enable in /etc/nfs/tavo_nfs_conf is "yes"; then its statd_port and
 * nlm_port, unchecked. -22 for NULL. */
TAVO_API int TAVOFwPortsNFS(TLIBCSzList **ppPortList);

/* Port provider of SSH: the ports, each once, of the SSH server and of the keys sftpPort and
 * rsync_sshd_port of /etc/tavoinfo.conf, which count as 22 when absent or outside 1..65535. */
TAVO_API int TAVOFwPortsSSH(TLIBCSzList **ppPortList);

/* Port providers of the camera search (55900-55910) and of multi-function printers (3240-3259).
 * Beware: both free the list before they return, which is kept for compatibility. *ppPortList must
 * then be neither used nor freed. No row of rgServices calls them. */
TAVO_API int TAVOFwPortsSurveillanceCamSearch(TLIBCSzList **ppPortList);
TAVO_API int TAVOFwPortsMFP(TLIBCSzList **ppPortList);

/* Whether firewall rules can have port ranges: always 1. */
TAVO_API int TAVOFwIsSupportPortRange(void);

/* ---- Port conflicts ---- */

/* The sources that TLIBIsPortConflict reads: bits of nCheckFlags, a word from 1 to
 * TAVO_PORT_CHECK_ALL. */
#define TAVO_PORT_CHECK_DEFAULT 1      /* none; a legal value when no other bit is wanted */
#define TAVO_PORT_CHECK_PORT_FORWARD 2 /* the rules of the port-forwarding library's rule file */
#define TAVO_PORT_CHECK_FW_SERVICE 4   /* the firewall services */
#define TAVO_PORT_CHECK_SYS_KEY 8      /* ftpport, WebDavPort, ... of /etc/tavoinfo.conf */
#define TAVO_PORT_CHECK_RUNTIME 16     /* the sockets that hold a port now */
#define TAVO_PORT_CHECK_ALL 31         /* all of these */

/* The first bit in nCheckFlags of TAVO_SERVICE_CONF_SET_PARAM. It selects no source in a check of
 * ports. For TLIBServiceConfBackup, TLIBServiceConfRestore and TLIBServiceBackupConfDelete it
 * selects the rules of the firewall, /usr/tavo/etc/firewall.d. With it TLIBServiceConfSectionRemove
 * makes the firewall drop the record of the service, and TAVOServiceConfRemove sends the content of
 * the file to the plugins. */
#define TAVO_PORT_CHECK_FW_RULES TAVO_PORT_CHECK_DEFAULT

/* Whether ports are taken: 1 taken, 0 free, -1 unknown. If a source cannot be read because memory
 * ran out or a system call failed, the result is -1 and never 0, with one exception: if the
 * networking library fails twice to list the sockets, there are none.
 *
 * szSkipServices is a list of names to ignore, separated by blanks or commas: firewall services,
 * service_id values of forwarding rules, and, for the settings, "ftp", "webdav_http",
 * "webdavs_https" and "syslog_server". It may be empty.
 *
 * szPort is "80", "80,443" or "1000:2000". Separate ports by commas: the rules and the firewall
 * services accept nothing else, and the settings read only up to a blank.
 *
 * szProtocol is "tcp", "udp" or "tcp,udp", in upper or lower case and of at most 1023 bytes; ""
 * means both for the firewall services and none for the sockets. With any other word, or a blank
 * instead of the comma, no firewall service conflicts. Rules and settings conflict whatever the
 * protocol.
 *
 * nCheckFlags is 1..TAVO_PORT_CHECK_ALL, bits of TAVO_PORT_CHECK_*.
 *
 * The conflicting ports are prepended to *ppConflictPorts (NULL: an empty list) as entries of both
 * protocols, single ports with nPortEnd 0. The check of the settings replaces the list by an
 * ascending one with protocol 0 and nPortEnd always set, into which the entries of the caller are
 * merged; entries that were already in the list then count as a conflict. Sockets add no entries.
 * Entries found before a failure remain. Use only *ppConflictPorts after the call, whatever the
 * result: former entries may have been freed. Free it with TAVOServiceConfPortsFree.
 *
 * All selected sources are read in the order of their bits; the check of the sockets stops at the
 * first conflict. Port 412, named by itself, is always taken.
 *
 * Fails with 0xD00 for a NULL argument, flags outside 1..31, a bad port or, for the sockets, port
 * 0; 0xBF00 for protocols that are too long; 0x200 out of memory; 0x9900 when the services cannot
 * be enumerated for the sockets; and when a source cannot be read: a rule without its keys, a rule
 * file of which it is unknown whether it exists (0x900), a settings file that is missing (0x700) or
 * has an invalid port, and a service that is left out of the catalogue because memory ran out
 * (0x200) or a file (0x900) or a folder (0x2A00) could not be read. A service file with invalid
 * contents is left out; this is not a failure.
 *
 * Services and sockets are read once per call: what is installed or opened meanwhile may be missed.
 */
TAVO_API int TLIBIsPortConflict(const char *szSkipServices, const char *szPort,
                                const char *szProtocol, int nCheckFlags,
                                TAVO_SERVICE_CONF_PORT **ppConflictPorts);

/* Whether the destination ports of a service file are taken by a firewall service, a setting or a
 * socket: 1 as soon as one section conflicts, the installed service of its name not counting; 0 if
 * none does; -1 on failure. Every section, including [global], must have dst.ports. A section whose
 * check fails is logged and skipped, so a NULL ppConflictPorts gives 0. A file without sections, or
 * one that cannot be read, gives 0. So 0 does not prove that the ports are free; call
 * TLIBIsPortConflict for each section if that matters. The file is read once, before the first
 * section is checked. ppConflictPorts is that of TLIBIsPortConflict: entries that are in it on
 * entry, or that were left by a section whose check failed, count as a conflict of the next
 * section. */
TAVO_API int TLIBIsConfPortConflict(const char *szConfFile,
                                    TAVO_SERVICE_CONF_PORT **ppConflictPorts);

/* ---- Who declares a port ----
 *
 * The check of the configuration reports which ports are declared, by the settings of the system or
 * by a firewall service, and by which. It appends to result lists: lists of the core library,
 * iterated with TLIBCDListFirst, TLIBCDListNext and TLIBCDListElement, whose elements are result
 * records that the list owns. */

/* One port, one protocol, and one service that declares it, or none. */
typedef struct TAVO_CONF_PORT_CONFLICT_RESULT {
    uint16_t uPort;
    uint16_t uProtocol;  /* TAVO_PROTO_TCP or TAVO_PROTO_UDP, never both */
    char *szService;     /* owned; the declarer of the port; NULL if there is none */
    uint32_t blConflict; /* 1 if szService declares the port, 0 if no service does */
} TAVO_CONF_PORT_CONFLICT_RESULT, *PTAVO_CONF_PORT_CONFLICT_RESULT;

/* A record of zeros; NULL when out of memory. */
TAVO_API PTAVO_CONF_PORT_CONFLICT_RESULT TAVOConfPortConflictResultAlloc(void);

/* Frees a record and its text. NULL is not accepted. */
TAVO_API void TAVOConfPortConflictResultFree(PTAVO_CONF_PORT_CONFLICT_RESULT pResult);

/* A copy of pResult, which must not be NULL, with a text of its own; NULL when out of memory for
 * the record. Out of memory for the text leaves szService NULL. Sets no error. */
TAVO_API PTAVO_CONF_PORT_CONFLICT_RESULT
TAVOConfPortConflictResultCopy(const TAVO_CONF_PORT_CONFLICT_RESULT *pResult);

/* A new, empty list of records; NULL when out of memory. TLIBCDListAppend copies the record; the
 * caller still owns the original. */
TAVO_API TLIBCDList *TAVOConfPortConflictResultListAlloc(void);

/* Frees the list and its records; NULL is accepted. */
TAVO_API void TAVOConfPortConflictResultListFree(TLIBCDList *pList);

/* A new list with copies of the records of pList, which must not be NULL; NULL when out of memory.
 */
TAVO_API TLIBCDList *TAVOConfPortConflictResultListCopy(const TLIBCDList *pList);

/* For each port of pPortList, in decimal, and each protocol of uProtocol (flag word, 1 to 3), TCP
 * first, appends to pResultList one record per declarer, or one record with blConflict 0 if there
 * is none. A port that is 0 or not a number is logged and skipped; one above 65535 wraps (see
 * ToUPort). A service that declares both protocols counts for UDP only, and one whose ports are
 * invalid, so that TAVOFwServiceEnum leaves it out, declares nothing. The check fails if a file or
 * service cannot be read, since it may declare any port. Reads /etc/tavoinfo.conf, where an absent
 * file or key declares nothing, and what TAVOFwServiceEnum reads. Fails with 0xD00 for another
 * protocol word or a NULL argument, 0x200 out of memory, 0x900 when a file cannot be read and
 * 0x2A00 when a folder cannot be listed; records appended before a failure remain. A declared range
 * takes memory and time only for the requested ports. */
TAVO_API int TAVOConfPortConflictCheck(const TLIBCSzList *pPortList, uint16_t uProtocol,
                                       TLIBCDList *pResultList);

/* The same into a new list, which the caller frees with TAVOConfPortConflictResultListFree; NULL on
 * failure. */
TAVO_API TLIBCDList *TAVOConfPortConflictResultListAllocAndCheck(const TLIBCSzList *pPortList,
                                                                 uint16_t uProtocol);

/* Appends to pConflictPortList, in decimal and each once, the ports of pResultList that are
 * declared for a protocol of uProtocol, unless they are in it already. The handle of the list must
 * not change when it grows, which is so in the host build of the core library. Fails with 0xD00 for
 * NULL, 0x200 out of memory; ports appended before a failure remain. */
TAVO_API int TAVOConfListConflictPorts(const TLIBCDList *pResultList, uint16_t uProtocol,
                                       TLIBCSzList *pConflictPortList);

/* Looks a port and the protocols of uProtocol up in pResultList: 1 declared, 0 listed but not
 * declared, -2 not listed; -1 (0xD00) for NULL. */
TAVO_API int TAVOConfVerifyConflictPort(const TLIBCDList *pResultList, uint16_t uPort,
                                        uint16_t uProtocol);

/* 1 when a port of the list is declared for a protocol of uProtocol, else 0. Also 0 on every
 * failure, such as a service file that cannot be read: 0 does not mean that the port is free. Call
 * TAVOConfPortConflictCheck, which returns -1 then, if that matters. */
TAVO_API int TAVOConfIsConflictPorts(const TLIBCSzList *pPortList, uint16_t uProtocol);

/* The same for one port. */
TAVO_API int TAVOConfIsConflictPort(uint16_t uPort, uint16_t uProtocol);

/* The same for the ports uFirst to uLast; 0 (0xD00) when uFirst is above uLast. uLast must not be
 * 65535: the call would never return. */
TAVO_API int TAVOConfIsConflictPortRange(uint16_t uFirst, uint16_t uLast, uint16_t uProtocol);

/* ---- Who holds a port ----
 *
 * The check of the running system reports which ports are held by a process, and by which. It has
 * the same functions as the check of the configuration. */

/* One port, one protocol, and one process that holds it in one state, or none. */
typedef struct TAVO_RUNTIME_PORT_CONFLICT_RESULT {
    uint16_t uPort;      /* local port of a socket */
    uint16_t uProtocol;  /* TAVO_PROTO_TCP or TAVO_PROTO_UDP, never both */
    uint32_t uPid;       /* the process; 0 if no process holds the port */
    uint32_t uState;     /* the socket's state in the kernel's numbers, see TAVOTCPStateToString */
    char *szProgram;     /* owned; the executable, the target of /proc/PID/exe; NULL if it cannot be
                            read, or no process holds the port */
    uint32_t blConflict; /* 1 if the process holds the port, 0 if none does */
} TAVO_RUNTIME_PORT_CONFLICT_RESULT, *PTAVO_RUNTIME_PORT_CONFLICT_RESULT;

/* A record of zeros; NULL when out of memory. */
TAVO_API PTAVO_RUNTIME_PORT_CONFLICT_RESULT TAVORuntimePortConflictResultAlloc(void);

/* Frees a record and its text. NULL is not accepted. */
TAVO_API void TAVORuntimePortConflictResultFree(PTAVO_RUNTIME_PORT_CONFLICT_RESULT pResult);

/* A copy of pResult, which must not be NULL, with a text of its own; NULL when out of memory for
 * the record. Out of memory for the text leaves szProgram NULL. Sets no error. */
TAVO_API PTAVO_RUNTIME_PORT_CONFLICT_RESULT
TAVORuntimePortConflictResultCopy(const TAVO_RUNTIME_PORT_CONFLICT_RESULT *pResult);

/* A new, empty list of records; NULL when out of memory. */
TAVO_API TLIBCDList *TAVORuntimePortConflictResultListAlloc(void);

/* Frees the list and its records; NULL is accepted. */
TAVO_API void TAVORuntimePortConflictResultListFree(TLIBCDList *pList);

/* A new list with copies of the records of pList, which must not be NULL; NULL when out of memory.
 */
TAVO_API TLIBCDList *TAVORuntimePortConflictResultListCopy(const TLIBCDList *pList);

/* For each port of pPortList, in decimal, and each protocol of uProtocol (flag word, 1 to 3), TCP
 * first, appends to pResultList one record per process and state that holds it, or one record with
 * blConflict 0 if there is none. Every socket counts, over IPv4 and IPv6 and whatever its state and
 * address, if a process that the caller may look at holds it: without permission to look at the
 * processes of others, their ports are reported as free. The system is read once for all ports. A
 * port that is 0 or not a number is logged and skipped; one above 65535 wraps. Reads /proc/net/tcp,
 * tcp6, udp and udp6, and /proc/PID/fd and /proc/PID/exe of every process. Fails with 0xD00 for
 * another protocol word or a NULL argument, 0x700 for a missing table of sockets, 0x900 for one
 * that cannot be read, or if /proc or a process cannot be read for another reason than a missing
 * permission or the end of the process, 0x200 out of memory; records appended before a failure
 * remain. */
TAVO_API int TAVORuntimePortConflictCheck(const TLIBCSzList *pPortList, uint16_t uProtocol,
                                          TLIBCDList *pResultList);

/* The same into a new list, which the caller frees with TAVORuntimePortConflictResultListFree; NULL
 * on failure. */
TAVO_API TLIBCDList *TAVORuntimePortConflictResultListAllocAndCheck(const TLIBCSzList *pPortList,
                                                                    uint16_t uProtocol);

/* Appends to pConflictPortList, in decimal and each once, the ports of pResultList that are held
 * for a protocol of uProtocol, unless they are in it already; see TAVOConfListConflictPorts. */
TAVO_API int TAVORuntimeListConflictPorts(const TLIBCDList *pResultList, uint16_t uProtocol,
                                          TLIBCSzList *pConflictPortList);

/* Looks a port and the protocols of uProtocol up in pResultList: 1 held, 0 listed but not held, -2
 * not listed; -1 (0xD00) for NULL. */
TAVO_API int TAVORuntimeVerifyConflictPort(const TLIBCDList *pResultList, uint16_t uPort,
                                           uint16_t uProtocol);

/* 1 when a port of the list is held for a protocol of uProtocol, else 0. Also 0 on every failure,
 * such as a process that cannot be read: 0 does not mean that the port is free. Call
 * TAVORuntimePortConflictCheck, which returns -1 then, if that matters. If the result is 1, the
 * ports are written to standard error, one per line, after a line "pConflictPortList:". */
TAVO_API int TAVORuntimeIsConflictPorts(const TLIBCSzList *pPortList, uint16_t uProtocol);

/* The same for one port. */
TAVO_API int TAVORuntimeIsConflictPort(uint16_t uPort, uint16_t uProtocol);

/* The same for the ports uFirst to uLast; 0 (0xD00) when uFirst is above uLast. uLast must not be
 * 65535: the call would never return. */
TAVO_API int TAVORuntimeIsConflictPortRange(uint16_t uFirst, uint16_t uLast, uint16_t uProtocol);

/* ---- Changing service files ----
 *
 * Writing a section and its ports, installing, updating and removing a file, backup and restore,
 * and notifying the programs that act on declared ports: the firewall tool, the router tool, the
 * relay daemon tavorelayd and the plugins of the group port_config.
 *
 * Callers need not serialise changes. Each of these functions locks the store that it changes while
 * it reads and writes it (/run/tavoserviceconf/STORE.lock, flock), and waits at most two minutes
 * for other threads and processes; then it fails with 0x900 and a log line that names the lock. The
 * stores are the service files of the system, those of packages, the rules of the firewall, and
 * those of port forwarding. The router tool and the restart of TLIBServiceConfSectionRemove, which
 * may have to undo the removal, run with the lock held and must not change the same stores. No lock
 * is held during other restarts and notifications. Callers must serialise only two things: writing
 * a service file by other means than this library or the writers of tavocore.h, and calls of
 * TAVOServiceConfUpdateBaseNameWithoutNotify for the same name, since the copy that it returns has
 * a fixed name.
 *
 * The copies in /tmp have fixed names. Such a file is always created anew, for the caller's user
 * only: an existing link, regular file, pipe, socket or empty folder is removed, and the copy of a
 * change in progress is waited for. A folder that is not empty is logged, and the copy then fails.
 * Folders are created with mode 0755 whatever the umask.
 *
 * File names with a ".." component are refused with 0xD00, so that they cannot lead outside the
 * directory. Use plain names of at most 228 bytes: the names of the copies of a longer one would be
 * too long.
 *
 * Programs that are run have an empty standard input, share the caller's standard output and error,
 * and get no other descriptor of the caller. */

/* nRestartMode: whether TLIBServiceConfServRestart follows a change. */
#define TAVO_RESTART_MODE_NONE 1
#define TAVO_RESTART_MODE_RESTART 2

/* nRestartFlags, and the argument of TLIBServiceConfServRestart: bits of a word from 1 to
 * TAVO_RESTART_ALL. The others are accepted and do nothing. */
#define TAVO_RESTART_FIREWALL 1 /* reload the firewall, and the relay daemon if it runs */
#define TAVO_RESTART_RELAY 2    /* reload the relay daemon if it runs */
#define TAVO_RESTART_ALL 31     /* every bit that is accepted */

/* nWriteMode. A section is written only with the first, and removed only with the last. */
#define TAVO_WRITE_MODE_SET 1
#define TAVO_WRITE_MODE_NONE 2
#define TAVO_WRITE_MODE_REMOVE 3

/* Describes a change. Filled by the caller; not modified. */
typedef struct TAVO_SERVICE_CONF_SET_PARAM {
    uint32_t nRestartMode;  /* TAVO_RESTART_MODE_*, 1 or 2 */
    uint32_t nRestartFlags; /* TAVO_RESTART_*, 1..31 */
    uint32_t nWriteMode;    /* TAVO_WRITE_MODE_*, 1..3 */
    uint32_t nCheckFlags;   /* TAVO_PORT_CHECK_*, 1..31; some bits also select files to change */
    char szFileName[256];   /* base name of the service file, "ftp.sc" */
    char szSectionName[256];
    uint32_t nLocation; /* TAVO_SERVICE_CONF_DIR_*, 1..3 */
} TAVO_SERVICE_CONF_SET_PARAM;

/* Writes the section pSection, all its keys, into the service file that pParam names; the directory
 * and the file are created if they are missing. 0 on success, also if there was nothing to write;
 * -1 on failure, the file then being unchanged.
 *
 * 0 does not prove that the section was written: a write that fails, for example because the disk
 * is full, is only logged. To find out, read the section back with TAVOServiceConfSectionGet; the
 * log line and the error state say why it was not written.
 *
 * pParam: every field must have one of its values; with both bits of nLocation set, the system
 * directory is used. szSectionName names the section whose other keys, such as desc_extra, are
 * kept, and the services that the check of the ports ignores; use the name in pSection. pSection
 * needs a name, a title, a description and destination ports; desc_extra and pNext are not used. A
 * text is written unchanged between double quotes, so nothing is written if one contains a newline,
 * which is only logged.
 *
 * First the destination ports are checked by TLIBIsPortConflict with nCheckFlags: a conflict is a
 * failure. Without TAVO_PORT_CHECK_FW_SERVICE in nCheckFlags nothing else is done but the restart.
 * With an nWriteMode other than 1 everything but the writing is done. With
 * TAVO_PORT_CHECK_PORT_FORWARD the router tool is notified, and with nRestartMode 2
 * TLIBServiceConfServRestart follows; failures of these two are only logged.
 *
 * Runs /bin/mkdir -p, /bin/cp -f FILE /tmp/NAME (a copy of the old file, removed before the
 * function returns) and /usr/tavo/sbin/tavoroutertool --update /tmp/NAME FILE. Sets 0xD00 for
 * invalid arguments, 0x900 if stat of the file or the lock fails; other failures are logged and set
 * the code of the failing function. */
TAVO_API int TLIBServiceConfSectionSet(const TAVO_SERVICE_CONF_SET_PARAM *pParam,
                                       const TAVO_SERVICE_CONF_SECTION *pSection);

/* Sets one port key of an existing section to the ports of pPortList, whose entries must have one
 * protocol word: dst.ports when the first entry's nDirection is not 0, else src.ports. The value is
 * written without quotes. Everything else is as in TLIBServiceConfSectionSet, except that file and
 * section must exist and that nWriteMode may be 1 to 3. */
TAVO_API int TLIBServiceConfPortsSet(const TAVO_SERVICE_CONF_SET_PARAM *pParam,
                                     const TAVO_SERVICE_CONF_PORT *pPortList);

/* Sets one port key of an existing section, selected as in TLIBServiceConfPortsSet, without a check
 * for conflicts, and reloads the firewall (TAVOFwRuleHupWrap). nLocation 1 is the system directory,
 * any other value that of packages. Ports are written in list order, ranges as given, and the
 * protocols are those of the first entry. -1 for a NULL argument or a name that is refused (0xD00),
 * a missing file (0x700, and a log line), a text of 512 bytes or more (0xBF00), and if writing or
 * the reload fails; what was written then remains. On success the error state may be 0xC000, which
 * the test for the file sets. */
TAVO_API int TAVOServiceConfSectionPortSet(int nLocation, const char *szFileName,
                                           const char *szSectionName,
                                           const TAVO_SERVICE_CONF_PORT *pPortList);

/* Installs the service file szSrcPath under its own base name into the directory nLocation,
 * TAVO_SERVICE_CONF_DIR_SYSTEM or _PACKAGE, but not both. 0 installed; 1 installed although its
 * ports are taken; -1 on failure. A file of that name is replaced. The replacement is atomic: the
 * new file is copied with mode and times to a temporary file in the folder tmp of the directory,
 * flushed to disk and renamed. If copying or renaming fails, the temporary file remains. The source
 * must be a regular file, otherwise the copy fails. Nobody is notified.
 *
 * Runs TLIBIsConfPortConflict, /bin/mkdir -p and /bin/cp -f -p. Sets 0xD00 for NULL, a bad location
 * or a name that is refused, 0x700 for a missing source, whatever the name is, 0x900 for a lock,
 * 0x3C00 when a directory cannot be made, 0x3B00 when the copy and 0x2800 when the rename fails. If
 * a file of that name is installed, the error state is reset to 0 first. */
TAVO_API int TAVOServiceConfInstall(const char *szSrcPath, int nLocation);

/* The same under the base name szBaseName. *ppConflictPorts is that of TLIBIsConfPortConflict, and
 * may be filled with any result; free it with TAVOServiceConfPortsFree. With a NULL ppConflictPorts
 * no conflict is found. */
TAVO_API int TAVOServiceConfInstallBaseName(const char *szBaseName, const char *szSrcPath,
                                            int nLocation,
                                            TAVO_SERVICE_CONF_PORT **ppConflictPorts);

/* Describes an update to those who are notified. */
typedef struct TAVO_SERVICE_CONF_NOTIFY {
    char szOldConfPath[4096]; /* a copy of the old file */
    char szNewConfPath[4096]; /* the installed file */
    uint32_t blNotifyFw;      /* not 0: notify the firewall */
    uint32_t blNotifyPf;      /* not 0: notify port forwarding, which needs both paths */
} TAVO_SERVICE_CONF_NOTIFY;

/* Describes a removal to those who are notified. */
typedef struct TAVO_SERVICE_CONF_REMOVE_NOTIFY {
    const char *pszConfPath; /* a copy of the file that was removed */
    uint32_t blNotifyFw;     /* ignored */
    uint32_t blNotifyPf;     /* not 0: notify port forwarding and the firewall */
} TAVO_SERVICE_CONF_REMOVE_NOTIFY;

/* Replaces the installed service file szBaseName by szSrcPath, as TAVOServiceConfInstallBaseName
 * does, and notifies port forwarding and the firewall (TLIBServiceConfUpdateServNotify). 0; 1 if
 * ports are taken; -1 on failure. A failure of the installation itself is only logged, the old file
 * then being unchanged; so check the file. A file that is not installed yet is installed. Nothing
 * is rolled back. Free *ppConflictPorts with any result.
 *
 * Runs /bin/cp -f FILE /tmp/servicetool.update.NAME.old; the copy is removed before the function
 * returns. */
TAVO_API int TAVOServiceConfUpdateBaseName(const char *szBaseName, const char *szSrcPath,
                                           int nLocation, TAVO_SERVICE_CONF_PORT **ppConflictPorts);

/* The same without notifications: *pNotify is filled for the caller, who passes it to
 * TLIBServiceConfUpdateServNotify and deletes the file szOldConfPath, which is empty if there was
 * no old file. Until it is deleted, callers must not make another update of that name. On failure
 * *pNotify is unchanged and there is no copy; NULL is 0xD00. */
TAVO_API int TAVOServiceConfUpdateBaseNameWithoutNotify(const char *szBaseName,
                                                        const char *szSrcPath, int nLocation,
                                                        TAVO_SERVICE_CONF_PORT **ppConflictPorts,
                                                        TAVO_SERVICE_CONF_NOTIFY *pNotify);

/* Removes the service file that pParam names and sends the notifications
 * (TLIBServiceConfRemoveServNotify): with TAVO_PORT_CHECK_PORT_FORWARD in nCheckFlags to port
 * forwarding and the firewall; the content is sent with that bit or TAVO_PORT_CHECK_FW_RULES. -1 on
 * failure, the file then being unchanged; a failed notification is only logged.
 *
 * pParam: nRestartMode 1, or 2 with one of the low four bits of nRestartFlags, neither of which has
 * any other effect; nWriteMode 3; nCheckFlags with TAVO_PORT_CHECK_FW_SERVICE; the low two bits of
 * nLocation 1 or 2; a file name. Anything else is refused with 0xD00; a missing file is 0x700, and
 * a failure of stat 0x900.
 *
 * Runs /bin/cp -f FILE /tmp/servicetool.remove.NAME.PID; the copy is removed before the function
 * returns. The exit status of cp is ignored; it is a failure only if cp cannot be run. */
TAVO_API int TAVOServiceConfRemove(const TAVO_SERVICE_CONF_SET_PARAM *pParam);

/* The same function under another name. */
TAVO_API int TLIBServiceConfRemove(const TAVO_SERVICE_CONF_SET_PARAM *pParam);

/* TAVOServiceConfRemove of the file szFileName (truncated to 255 bytes) in the directory nLocation,
 * with all notifications. -1 also for NULL (0xD00). */
TAVO_API int TAVOServiceConfRemoveBaseName(const char *szFileName, int nLocation);

/* The same function under another name. */
TAVO_API int TLIBServiceConfRemoveBaseName(const char *szFileName, int nLocation);

/* Makes side copies of the stores that a change is going to affect, named STORE.tmp.PID: with
 * TAVO_PORT_CHECK_FW_SERVICE in nCheckFlags the system's service files when nLocation is exactly 1,
 * those of packages when it is exactly 2 (none when it is 3), with TAVO_PORT_CHECK_FW_RULES
 * /usr/tavo/etc/firewall.d, with TAVO_PORT_CHECK_PORT_FORWARD the rule file of the port-forwarding
 * library. A missing store has no side copy. -1 on failure, no side copy being left: 0xD00 for
 * NULL, none of the low four bits in nCheckFlags, or no directory; also if a copy cannot be made.
 * Other fields are ignored. Symbolic links are followed.
 *
 * The stores remain locked until TLIBServiceConfRestore or TLIBServiceBackupConfDelete of this
 * process, from any thread, names them; the thread that made the backup may change them meanwhile,
 * and repeat the backup. A backup must name every store that is changed before it ends: two callers
 * that wait for each other's stores wait until one of them fails. After a failure nothing is
 * locked. A child process created by fork has neither the locks nor the copies.
 *
 * The copies belong to the process that made them. Runs /bin/rm -rf and /bin/cp -rf, the latter up
 * to five times, while the writers of tavocore.h wait. It is a failure if one of these cannot be
 * run, but not if it exits with an error: an incomplete copy is removed and logged, and its store
 * is then not restored. An existing copy of that name is removed, unless its store is missing or
 * empty or could not be restored: it may be the only complete one, and is renamed to
 * STORE.unrestored.PID.N, which is logged. */
TAVO_API int TLIBServiceConfBackup(const TAVO_SERVICE_CONF_SET_PARAM *pParam);

/* Replaces every store by its side copy of such a backup, and unlocks the stores with any result.
 * Runs /bin/rm -rf and /bin/mv -f; if the second fails, the copy is renamed. -1 for the same
 * invalid arguments, if one of the two cannot be run, and, with 0x2800, if the store cannot be
 * removed, such as a mount point, or not be replaced. Every failure sets an error code and is
 * logged. The side copy then still exists, or its content has replaced the store; the remaining
 * stores are unchanged. Restored files have the modes of the store and belong to the caller. */
TAVO_API int TLIBServiceConfRestore(const TAVO_SERVICE_CONF_SET_PARAM *pParam);

/* Removes the side copies of such a backup and unlocks the stores with any result. A copy that
 * could not be restored is kept and renamed as by the next backup. -1 for the same invalid
 * arguments and if /bin/rm -rf cannot be run. */
TAVO_API int TLIBServiceBackupConfDelete(const TAVO_SERVICE_CONF_SET_PARAM *pParam);

/* Removes a section from a service file as a transaction: the stores of TLIBServiceConfBackup are
 * copied first, and those with a complete copy are restored if a later step fails. With
 * TAVO_PORT_CHECK_FW_RULES in nCheckFlags the firewall first drops the record of the service
 * (TLIBFwServRemoveRecWrap); with nRestartMode 2 TLIBServiceConfServRestart follows, and again
 * after a restore that its failure caused. A file without a section but [global] is deleted. A
 * section or file that does not exist counts as removed; a failure of stat is a failure (0x900). 0
 * if it is removed, -1 if not. The stores are locked from the backup to the restore or the end of
 * the restart.
 *
 * pParam is that of TAVOServiceConfRemove, with a section name. Anything else is refused with
 * 0xD00; nRestartFlags above 31 are refused by the restart, which undoes the removal. nLocation
 * should be exactly 1 or 2: with more bits no service files are copied, and the removal cannot be
 * undone. */
TAVO_API int TLIBServiceConfSectionRemove(const TAVO_SERVICE_CONF_SET_PARAM *pParam);

/* Makes changed ports take effect: with bit TAVO_RESTART_FIREWALL calls TAVOFwRuleHupWrap and
 * returns its failure; then, with that bit or TAVO_RESTART_RELAY, reloads the unit tavorelayd if it
 * is active. -1 with 0xD00 for flags outside 1..31. */
TAVO_API int TLIBServiceConfServRestart(int nRestartFlags);

/* Notifies the plugins of the group port_config of a changed file (action port_config/update), and
 * reloads the unit tavorelayd if it is active. The arguments are OLD_PORT_CONFIG_CONTENT and
 * NEW_PORT_CONFIG_CONTENT, with blNotifyPf the texts of the two files ("" for one that does not
 * exist, and for both when one cannot be read), and NOTIFY_PF and NOTIFY_FW, "1" if port forwarding
 * or the firewall must act. An empty path for port forwarding sets 0xD00 and sends no content. If a
 * plugin fails, the relay daemon is not reloaded. -1 for NULL (0xD00); all other failures are only
 * logged, and the result is 0. */
TAVO_API int TLIBServiceConfUpdateServNotify(const TAVO_SERVICE_CONF_NOTIFY *pNotify);

/* The same function under another name. */
TAVO_API int TLIBServiceConfServNotify(const TAVO_SERVICE_CONF_NOTIFY *pNotify);

/* The same for a file that was removed (action port_config/remove): the text of pszConfPath in
 * PORT_CONFIG_CONTENT, and both NOTIFY_PF and NOTIFY_FW with blNotifyPf. */
TAVO_API int TLIBServiceConfRemoveServNotify(const TAVO_SERVICE_CONF_REMOVE_NOTIFY *pNotify);

/* Reloads the firewall: runs /usr/tavo/bin/tavofirewall --reload. -1 if it cannot be run; its exit
 * status is ignored. */
TAVO_API int TAVOFwRuleHupWrap(void);

/* Makes the firewall drop the record of a service: runs /usr/tavo/bin/tavofirewall
 * --remove-serv-rec NAME. -1 for NULL (0xD00) and when it cannot be run. */
TAVO_API int TLIBFwServRemoveRecWrap(const char *szName);

/* ---- Internals that sibling programs use ----
 *
 * These are exported for the appliance's own programs and the tests. */

/* Tests of a protocol value. The first three compare the low 16 bits with exactly TCP, exactly UDP
 * or both; HasTCP and HasUDP return the value of the one bit (0 or 1; 0 or 2). */
TAVO_API int IsTCP(int nProtocol);
TAVO_API int IsUDP(int nProtocol);
TAVO_API int IsBothTCPAndUDP(int nProtocol);
TAVO_API int HasTCP(int nProtocol);
TAVO_API int HasUDP(int nProtocol);

/* 1 when the low 16 bits are 1, 2 or 3, else 0. */
TAVO_API int IsLegalProtocol(int nProtocol);

/* The port that sscanf reads from szPort with "%hu", trailing text and overflow included (it wraps
 * within strtoul's range: "65536" is 0, "-1" is 65535); 0 and a log line when there is no
 * number. */
TAVO_API uint16_t ToUPort(const char *szPort);

/* The name of a TCP state by its number in /proc/net/tcp (include/net/tcp_states.h of the Linux
 * kernel): "TCP_ESTABLISHED" for 1 to "TCP_CLOSING" for 11, else
 * "Illegal_TCP_STATE". A constant. */
TAVO_API const char *TAVOTCPStateToString(unsigned int nState);

/* How many rows gProtoTypeMapping has: 2. */
TAVO_API int TLIBServiceProtoMapSizeGet(void);

/* Stores the protocol bit of row nIndex in *pnProto. Fails with 0xD00 for NULL or a row that is not
 * there. */
TAVO_API int TLIBServiceProtoIndexGet(int nIndex, int *pnProto);

/* Copies the protocol name of row nIndex into szBuf of cbBuf bytes. Fails with 0xD00 for NULL, a
 * size below 1 or a row that is not there; 0xBF00 when name and terminator do not fit. */
TAVO_API int TLIBServiceProtoStrGet(int nIndex, char *szBuf, int cbBuf);

/* All declared ports: result lists in which every record has blConflict 1, one record per port and
 * declaring service, also for each port of a range. SysConfListFetch returns the five of the system
 * (keys syslogport and smsport of /etc/tavoinfo.conf, and 5005 and 5006; port 0, which is logged,
 * for a key that is absent or cannot be read), PkgConfListFetch those of the firewall services that
 * TAVOFwServiceEnum lists, in their order, ServiceConfListFetch the first followed by the second.
 * NULL when out of memory for the list. What cannot be read is missing; TAVOConfPortConflictCheck,
 * which compares with the same ports, fails then. Free with TAVOConfPortConflictResultListFree. */
TAVO_API TLIBCDList *SysConfListFetch(void);
TAVO_API TLIBCDList *PkgConfListFetch(void);
TAVO_API TLIBCDList *ServiceConfListFetch(void);

/* Appends to pFilteredResultList, which must be another list, a copy of every record of
 * pSourceResultList with exactly this port and protocol: returns their number; -1 for NULL (0xD00)
 * or no memory (0x200), records that were already appended then remaining. */
TAVO_API int ConfResultListFilter(const TLIBCDList *pSourceResultList, uint16_t uPort,
                                  uint16_t uProtocol, TLIBCDList *pFilteredResultList);

/* Appends a record that says that the port is not declared. Fails with 0xD00 for NULL, 0x200 out of
 * memory. */
TAVO_API int ConfNotConflictResultAppend(TLIBCDList *pResultList, uint16_t uPort,
                                         uint16_t uProtocol);

/* One line of the socket tables of the kernel (Documentation/networking/proc_net_tcp.rst of the
 * Linux kernel). */
typedef struct RawSocketInfo {
    uint16_t uPort;     /* local port */
    uint32_t uState;    /* state in the kernel's numbers */
    uint64_t ulInode;   /* of the socket; 0 if no process has it */
    uint16_t uProtocol; /* TAVO_PROTO_TCP or TAVO_PROTO_UDP */
} RawSocketInfo;

/* A record of zeros; NULL when out of memory. */
TAVO_API RawSocketInfo *RawSocketInfoAlloc(void);

/* Frees a record; NULL is accepted. */
TAVO_API void RawSocketInfoFree(RawSocketInfo *pInfo);

/* A copy of pInfo, which must not be NULL; NULL when out of memory. Sets no error. */
TAVO_API RawSocketInfo *RawSocketInfoCopy(const RawSocketInfo *pInfo);

/* 1 when an equal record is in the list, else 0; 0 for NULL (0xD00). Searches linearly. */
TAVO_API int ContainRawSocketInfo(const TLIBCDList *pRawSocketInfoList, const RawSocketInfo *pInfo);

/* Appends the sockets of the table szPath, one like /proc/net/tcp, to a list of RawSocketInfo as
 * sockets of uProtocol, each unless it is already in the list. Lines that are not sockets are
 * ignored. Fails with 0x700 for a missing file, 0x900 for one that cannot be read, 0xD00 for NULL,
 * 0x200 out of memory; records appended before a failure remain. */
TAVO_API int ParseToRawSocketInfo(const char *szPath, uint16_t uProtocol,
                                  TLIBCDList *pRawSocketInfoList);

/* A new list of the sockets of uProtocol (flag word, 1 to 3), in the order of /proc/net/tcp, tcp6,
 * udp, udp6; NULL when one of these files cannot be read (as from ParseToRawSocketInfo) or for
 * another word (0xD00). Free with TLIBCDListFree. */
TAVO_API TLIBCDList *RawSocketInfoListFetch(uint16_t uProtocol);

/* A new list of the process numbers, sorted as text; empty if /proc cannot be listed; NULL when out
 * of memory (0x200), except that a single number that cannot be appended is logged and left out.
 * Free with TLIBCSzListFree. */
TAVO_API TLIBCSzList *FetchPidList(void);

/* Adds the sockets that a process holds to a table: the key is the inode of the socket, the value
 * the processes that hold it, each followed by a comma, the last added first; a process that holds
 * it twice is added twice. szPid is the number of the process in decimal, as in FetchPidList. A
 * process that has ended, or that the caller has no permission to look at, adds nothing. Reads
 * /proc/PID/fd. Sets 0xD00 for NULL, 0x200 when out of memory, 0x900 if the process cannot be read
 * for another reason; what was already added remains. */
TAVO_API void FetchInodeFromPid(TLIBCSzHash *pInodeToPidsTable, const char *szPid);

/* A new table of the sockets that the processes of FetchPidList hold; NULL when out of memory
 * (0x200) or when /proc or a process cannot be read (0x900), also if that concerns only a single
 * process or socket. A process that has ended, or that the caller has no permission to look at, is
 * left out. Free with TLIBCSzHashFree. */
TAVO_API TLIBCSzHash *InodeToPidsTableFetch(void);

/* A new list of the processes of an inode in such a table, empty if there are none; NULL when out
 * of memory (0x200). Free with TLIBCSzListFree. */
TAVO_API TLIBCSzList *InodeToPidsGet(const TLIBCSzHash *pInodeToPidsTable, uint64_t ulInode);

/* The executable of a process, the target of /proc/PID/exe, truncated to 1023 bytes
 * ("/usr/bin/chatd", also "/usr/bin/chatd (deleted)"); NULL when it cannot be read or out of
 * memory. Free with free. */
TAVO_API char *ProgramCommandFetch(uint32_t uPid);

/* 1 when the list holds a record equal to pResult, szProgram not compared, else 0; 0 for NULL
 * (0xD00). Searches linearly. */
TAVO_API int ContainRuntimeResult(const TLIBCDList *pResultList,
                                  const TAVO_RUNTIME_PORT_CONFLICT_RESULT *pResult);

/* All held ports: a new result list with one record per port, process and state, all with
 * blConflict 1, in the order of RawSocketInfoListFetch. NULL on failure, as
 * TAVORuntimePortConflictCheck, which reads the same: 0x700, 0x900 or 0x200. szProgram is NULL
 * where the program cannot be read. Free with TAVORuntimePortConflictResultListFree. */
TAVO_API TLIBCDList *RuntimeServiceListFetch(void);

/* As ConfResultListFilter and ConfNotConflictResultAppend, of the runtime check. */
TAVO_API int RuntimeResultListFilter(const TLIBCDList *pSourceResultList, uint16_t uPort,
                                     uint16_t uProtocol, TLIBCDList *pFilteredResultList);
TAVO_API int RuntimeNotConflictResultAppend(TLIBCDList *pResultList, uint16_t uPort,
                                            uint16_t uProtocol);

/* Writes the path of the installed service file szBaseName into szBuf of cbBuf bytes, truncated to
 * fit. nLocation is TAVO_SERVICE_CONF_DIR_SYSTEM or _PACKAGE. Fails with 0xD00 for NULL, another
 * location or a refused name. */
TAVO_API int GetInstallPath(const char *szBaseName, int nLocation, char *szBuf, int cbBuf);

/* The same as TAVOServiceConfInstallBaseName. */
TAVO_API int ServiceConfInstall(const char *szBaseName, const char *szSrcPath, int nLocation,
                                TAVO_SERVICE_CONF_PORT **ppConflictPorts);

/* Removes a file, or a folder with all that is in it, by /bin/rm -rf; of a symbolic link only the
 * link is removed. 0, also if there is nothing of that name, or something else, which is not
 * removed; -1 for NULL or "" (0xD00) and if rm cannot be run; its exit status is ignored. */
TAVO_API int RemovePath(const char *szPath);

/* Copies (/bin/cp -rf) or, with blMove, moves (/bin/mv -f) a folder or regular file to szDst, which
 * is removed first. Blanks around both paths are ignored. -1 for NULL, an empty path, or a file as
 * source and a destination that ends in a slash (0xD00), a source that is neither (0x600), no
 * memory (0x200), a folder szDst that cannot be removed, and if a program cannot be run; its exit
 * status is ignored. */
TAVO_API int CopyOrMovePath(const char *szSrc, const char *szDst, int blMove);

/* Sets a plugin argument to the text of a file, up to its first NUL byte and the size that it had
 * when it was opened; "" if there is no such file. -1 on failure, with a log line except for a NULL
 * path. */
struct TLIBPluginHandle;
TAVO_API int PluginArgSetFileContent(struct TLIBPluginHandle *pHandle, const char *szKey,
                                     const char *szPath);

#ifdef __cplusplus
}
#endif

#endif /* TAVOSERVICECONF_H */
