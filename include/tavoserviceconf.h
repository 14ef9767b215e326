/*
 * libtavoserviceconf: the service configuration files of the appliance.
 *
 * A service configuration file (NAME.sc) declares the network services of one component: for each a
 * title, a description and the ports it uses. System components keep theirs in
 * /usr/tavo/etc/services.d, packages in /usr/local/etc/services.d. tavoserviceconf(5) tells the
 * format.
 *
 * Conventions
 *
 *  1. An int result is 0 for success and -1 for failure where nothing else is said.
 *  2. Most failures record an error code with the place that found it; TLIBCErrGet,
 *     TLIBCErrorGetFile and TLIBCErrorGetLine of tavocore.h give it back. A success clears
 *     nothing, and a file whose contents are at fault may set none: clear the state before a call
 *     whose code you want to look at, with TLIBCErrSetEx(0, NULL, 0).
 *     The codes are TLIBC_ERR_* of tavocore.h and TAVO_ERR_* below.
 *  3. Most failures also write one line to the system log, facility of the caller, priority
 *     LOG_ERR: "SOURCE:LINE MESSAGE", most with "[0xCODE SOURCE:LINE]" of the error state behind
 *     the message.
 *  4. On failure outputs and the caller's lists are as they were, where a function does not say
 *     otherwise.
 *  5. Records come from calloc and go back with the free function of their kind, which frees the
 *     whole list from the record on and accepts NULL. A caller may build records of its own with
 *     the same allocator and hand them over.
 *  6. Lists are chained through pNext. What is added to a caller's list is put in front.
 *  7. Text is bytes. A text longer than its field is cut to fit and always terminated; fields
 *     that a caller fills may lack the terminator.
 *  8. Nothing is kept between calls but the locks of a backup (see TLIBServiceConfBackup), and
 *     each call reads the files it needs anew. The exception is a file that the calling thread
 *     holds with TLIBCFileHold of tavocore.h: functions that change no file read it as it was when
 *     the hold began. Those that set a section or its ports, remove a section, install or update a
 *     file end the hold first. A call that is left by longjmp may leave a hold behind;
 *     TLIBCFileRelease ends it. Functions may be called from several threads at once as long as
 *     each uses its own records.
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
#define TAVO_ERR_BAD_SOURCE 0x600U         /* the source path is no folder or regular file */
#define TAVO_ERR_LIST_DIRECTORY 0x2A00U    /* a directory cannot be listed */
#define TAVO_ERR_COPY 0x3B00U              /* a file or folder cannot be copied */
#define TAVO_ERR_MAKE_DIRECTORY 0x3C00U    /* a directory cannot be made */
#define TAVO_ERR_FW_SERVICES 0x9900U       /* the firewall services cannot be enumerated */
#define TAVO_ERR_ALREADY_INSTALLED 0xC000U /* a file of that name is already installed */

/* ---- Records ---- */

/* Protocol flag word (nProtocol): only these two bits carry meaning. */
#define TAVO_PROTO_TCP 1
#define TAVO_PROTO_UDP 2
#define TAVO_PROTO_BOTH 3

/* nDirection of a port entry: which key of the section it comes from. */
#define TAVO_PORT_DIRECTION_SRC 0 /* src.ports */
#define TAVO_PORT_DIRECTION_DST 1 /* dst.ports */

/* nPortType of a port entry. */
#define TAVO_PORT_TYPE_SINGLE 0
#define TAVO_PORT_TYPE_RANGE 1

/* Where service files live; a directory selector is one of these or both (3). */
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

/* One service file. It does not hold the file's path. */
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

/* Puts a copy of pPort in front of *ppList (NULL: an empty list); pNext is not copied.
 * Fails with 0xD00 for a NULL argument, nPortType or nDirection above 1, an nProtocol without a bit
 * of the flag word, or a range whose start is above its end; 0x200 out of memory. */
TAVO_API int TAVOServiceComposePortInfo(const TAVO_SERVICE_CONF_PORT *pPort,
                                        TAVO_SERVICE_CONF_PORT **ppList);

/* Puts a deep copy of the one section pSection in front of *ppList (NULL: an empty list). The port
 * lists keep their order. The two szExtra texts are left out, so that writing the copy back drops
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

/* The protocol flag word (1, 2 or 3) of "tcp", "udp" or both with a comma between, any case, blanks
 * around a word allowed; 3 for NULL or ""; -1 (0xD00) for anything else. Changes szProto: pass a
 * copy. */
TAVO_API int TLIBServiceConfProtocolParse(char *szProto);

/* Prints a port list: its ports, from the head on, into szPorts of cbPorts bytes ("443,6000:6010",
 * ranges smaller port first) and the protocols of its head into szProto of cbProto bytes ("tcp",
 * "udp" or "tcp,udp"). Fails with 0xD00 for a bad argument, a head without protocol or entries of
 * different protocols; 0xBF00 when a text and its terminator do not fit; 0x200 out of memory. On
 * failure neither buffer is written. */
TAVO_API int TLIBServiceConfPortsToStr(const TAVO_SERVICE_CONF_PORT *pList, char *szPorts,
                                       int cbPorts, char *szProto, int cbProto);

/* ---- Reading service files ---- */

/* Reads the service file szPath into a new record in front of *ppList (NULL: an empty list). A
 * section that cannot be read is logged and left out. Fails when no service could be read: the file
 * is missing (0x700), cannot be opened (0x900), has no section or only [global] (no code), or none
 * of its services is whole (see TAVOServiceConfSectionGet; 0xD00 for a bad name); 0xD00 for a NULL
 * argument, 0x200 out of memory. Free with TAVOServiceConfFree. */
TAVO_API int TAVOServiceConfGet(const char *szPath, TAVO_SERVICE_CONF **ppList);

/* Reads section szSection of the service file szPath into a new record in front of *ppList (NULL:
 * an empty list). Fails when the section is missing or empty or lacks title, desc or dst.ports (no
 * code), or has a bad port list (0xD00); 0x700 and 0x900 for the file, 0xD00 for a NULL argument,
 * 0x200 out of memory. Free with TAVOServiceConfSectionFree. */
TAVO_API int TAVOServiceConfSectionGet(const char *szPath, const char *szSection,
                                       TAVO_SERVICE_CONF_SECTION **ppList);

/* Splits a reference into a string table into pString: SOURCE:SECTION:KEY (further colons belong to
 * the key), SECTION:KEY (szSource becomes empty), each part trimmed and cut to fit; text without a
 * colon goes to szText as it is. Other fields stay as they were. -1 for NULL, an empty text or no
 * memory; sets no error. */
TAVO_API int TAVOServiceConfServiceStringGet(const char *szRef, TAVO_SERVICE_CONF_STRING *pString);

/* Reads every service file of the directories in nDirFlags (TAVO_SERVICE_CONF_DIR_SYSTEM, _PACKAGE
 * or both; other bits are ignored) into records in front of *ppList (NULL: an empty list), names in
 * strcoll order, so that the list runs backwards: package files before system files, last name
 * first. Every regular file and every symbolic link is tried, whatever its name; one that is no
 * service file is logged and left out. Entries of other types, and those whose type the file system
 * does not report, are passed over. How many files were read; -1 (0xD00) for a NULL list or no
 * directory. A directory that cannot be listed counts as empty and sets 0x2A00. */
TAVO_API int TAVOServiceConfEnum(TAVO_SERVICE_CONF **ppList, int nDirFlags);

/* Whether the file szFile may be placed into directory szDir: 0 when it exists and nothing exists
 * by its base name in szDir (a symbolic link to nothing does not count). -1 for a NULL argument or
 * a path beyond PATH_MAX (0xD00), a missing file (0x700), a name that is taken (0xC000), or when
 * one of the two cannot be looked at, so that it is unknown whether it exists (0x900). */
TAVO_API int TAVOServiceConfFileVerify(const char *szFile, const char *szDir);

/* ---- Port range sets ----
 *
 * A set of ports kept as ascending ranges that neither overlap nor touch: 1:5 and 6:9 are 1:9. It
 * has no protocol; keep one set per protocol. Ports are any 32-bit values as they stand, and
 * arithmetic on them wraps. They fail with 0xD00 for what the caller got wrong and 0x200 out of
 * memory. */

typedef struct TAVO_PORT_RANGE {
    int32_t nCount;                  /* how many nodes pRanges has */
    TAVO_SERVICE_CONF_PORT *pRanges; /* the ranges; only nPortType, nPortStart, nPortEnd are used */
} TAVO_PORT_RANGE;

/* A new, empty set; NULL when out of memory. Free with TLIBPortRangeDestory. */
TAVO_API TAVO_PORT_RANGE *TLIBPortRangeCreate(void);

/* Frees the set and its nodes; NULL is accepted. */
TAVO_API void TLIBPortRangeDestory(TAVO_PORT_RANGE *pSet);

/* Adds the range nPortStart..nPortEnd of pPort, or the one port nPortStart when nPortType is 0;
 * then pPort's own nPortEnd is set to it. Ranges that it overlaps or touches become one with it.
 * The bounds are taken as given: a start above the end makes a node of just that. -1 for NULL or no
 * memory, the set then being as it was. */
TAVO_API int TLIBPortRangeAdd(TAVO_PORT_RANGE *pSet, TAVO_SERVICE_CONF_PORT *pPort);

/* Removes the ports nPortStart..nPortEnd of pPort; for one port set both. A range of the set whose
 * last port is nPortStart goes as a whole: removing 20:25 from 10:20 removes 10:20. A range that
 * meets none of the set changes nothing. -1 for NULL, an empty set, no range that ends at
 * nPortStart or later, or no memory; the set is then unchanged. */
TAVO_API int TLIBPortRangeRemove(TAVO_PORT_RANGE *pSet, const TAVO_SERVICE_CONF_PORT *pPort);

/* Adds every range of pSrc, which stays as it is, to pDst; both may be the same set. A node of type
 * 0 counts as its first port only, whatever its end, also one that Remove cut. -1 for NULL or
 * no memory; ranges that were added before stay. They need not be the first ones of a pSrc whose
 * ranges are not ascending. */
TAVO_API int TLIBPortRangeJoin(TAVO_PORT_RANGE *pDst, const TAVO_PORT_RANGE *pSrc);

/* Adds the ports that are in pA and in pB to pOut, which need not be empty and may be one of the
 * two. -1 for NULL or no memory; what was added before stays. */
TAVO_API int TLIBPortRangeOverlap(const TAVO_PORT_RANGE *pA, const TAVO_PORT_RANGE *pB,
                                  TAVO_PORT_RANGE *pOut);

/* Adds every item of a text such as "21,1024:1100". Numbers are what strtol reads: an item without
 * one, the empty item too, is port 0, and nothing is checked. -1 for NULL or no memory; what was
 * added before stays. */
TAVO_API int TLIBPortRangeImport(TAVO_PORT_RANGE *pSet, const char *szRanges);

/* The set as text, "21,1024:1100" (ports above 2147483647 print as negative numbers); NULL for
 * NULL, an empty set or no memory. Free with TLIBCStrPut. */
TAVO_API char *TLIBPortRangeExport(const TAVO_PORT_RANGE *pSet);

/* ---- Firewall services ----
 *
 * What the firewall can offer: a table of services that have no service file, and every service of
 * the service files. Port strings in these lists are "80" or "1000-2000". */

/* Works out the port strings of a service from the system's settings: stores a new list in
 * *ppPortList, which the caller frees with TLIBCSzListFree, and gives 0; negative on failure. */
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
    TAVO_FW_PORT_PROVIDER pfnSrcPorts; /* asked when szSrcPorts is NULL */
    uint32_t blHasDstPorts;
    uint32_t nDstProtocol;             /* protocol flag word */
    const char *szDstPorts;            /* ports between commas, no ranges; or NULL */
    TAVO_FW_PORT_PROVIDER pfnDstPorts; /* asked when szDstPorts is NULL */
} TAVO_FW_SERVICE_REG;

/* The built-in services: twelve rows, "telnet" to "ipp", and the one that ends the table. */
TAVO_API extern const TAVO_FW_SERVICE_REG rgServices[13];

/* A firewall service. Mind that strTitle and strDesc stand the other way round than in the table
 * above. */
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

/* Lists every firewall service, supported or not: how many there are, with the list in *ppServices
 * (NULL when 0). The services of the system's files come first, then those of packages, each in the
 * order of files and sections, and last the rows of rgServices from "ipp" back to "telnet". A
 * service that cannot be listed is logged and left out: its ports are bad or missing, its port
 * provider fails, its file cannot be read, or memory ran out. The list does not say so, and a port
 * that it does not name need not be free; TLIBIsPortConflict answers -1 then. -1 for NULL. Reads
 * /etc.defaults/tavoinfo.conf, the service files of both directories, and what the port providers
 * read. Free with TAVOFwServiceFree. */
TAVO_API int TAVOFwServiceEnum(TAVO_FW_SERVICE **ppServices);

/* Frees every service of the list with its port strings; NULL is accepted. */
TAVO_API void TAVOFwServiceFree(TAVO_FW_SERVICE *pList);

/* The first service of the list with exactly this name, owned by the list; NULL when there is none
 * or an argument is NULL. */
TAVO_API TAVO_FW_SERVICE *TAVOFWServiceFind(TAVO_FW_SERVICE *pList, const char *szServiceName);

/* Appends the names of the service file sections that make up a firewall service to
 * *ppSectionNames, a list of the caller: the count of the list, -1 on failure (0xD00 for NULL or no
 * list, 0x700 for a service that nobody knows, 0x900 for a package's file that cannot be read,
 * 0x200 out of memory). It asks, in this order: the service manager's unit of that name; the key of
 * that name in /usr/tavo/etc/firewall_service_mapping_table, then in
 * /usr/tavo/etc.defaults/firewall_service_mapping_table (names between commas, cut behind 1023
 * bytes; an empty value counts as none); the package's service file
 * /usr/local/etc/services.d/NAME.sc, all of whose sections count, [global] too. The name becomes
 * part of a path: pass none that a stranger chose. */
TAVO_API int TAVOFwSectionNameEnum(const char *szServiceName, TLIBCSzList **ppSectionNames);

/* The protocol flag word of a protocol number: 1, 2 and 3 as they are, 0 for anything else. */
TAVO_API uint32_t TAVOProtocolMapping(int nProtocol);

/* Port provider of NFS: 111, 892, 2049 and the ports of statd and of the lock manager, 662 and 4045
 * unless nfs_custom_port_enable in /etc/nfs/tavo_nfs_conf is "yes"; then its statd_port and
 * nlm_port as they are written, unchecked. -22 for NULL. */
TAVO_API int TAVOFwPortsNFS(TLIBCSzList **ppPortList);

/* Port provider of SSH: the ports, each once, of the SSH server and of the keys sftpPort and
 * rsync_sshd_port of /etc/tavoinfo.conf, which count as 22 when absent or outside 1..65535. */
TAVO_API int TAVOFwPortsSSH(TLIBCSzList **ppPortList);

/* Port providers of the camera search (55900-55910) and of multi-function printers (3240-3259).
 * Beware: both free the list before they return, and have always done so. What *ppPortList then
 * holds must not be used, nor freed. No row of rgServices calls them. */
TAVO_API int TAVOFwPortsSurveillanceCamSearch(TLIBCSzList **ppPortList);
TAVO_API int TAVOFwPortsMFP(TLIBCSzList **ppPortList);

/* Whether firewall rules may carry port ranges: always 1. */
TAVO_API int TAVOFwIsSupportPortRange(void);

/* ---- Port conflicts ---- */

/* Whom TLIBIsPortConflict asks: bits of nCheckFlags. */
#define TAVO_PORT_CHECK_DEFAULT 1      /* nobody; a legal value when no other bit is wanted */
#define TAVO_PORT_CHECK_PORT_FORWARD 2 /* the rules of the port-forwarding library's rule file */
#define TAVO_PORT_CHECK_FW_SERVICE 4   /* the firewall services */
#define TAVO_PORT_CHECK_SYS_KEY 8      /* ftpport, WebDavPort, ... of /etc/tavoinfo.conf */
#define TAVO_PORT_CHECK_RUNTIME 16     /* the sockets that hold a port now */

/* Whether ports are taken: 1 taken, 0 free, -1 unknown. A source that could not be read for want of
 * memory, or because a system call failed, makes it -1 and never 0, with one exception: when the
 * networking library fails twice to list the sockets, there are none.
 *
 * szSkipServices names whom to leave out, blanks or commas between them: firewall services,
 * service_id values of forwarding rules, and, for the settings, "ftp", "webdav_http",
 * "webdavs_https" and "syslog_server". It may be empty.
 *
 * szPort is "80", "80,443" or "1000:2000". Put commas between ports: the rules and the firewall
 * services take nothing else, and the settings read up to a blank only.
 *
 * szProtocol is "tcp", "udp" or "tcp,udp", in any case and of at most 1023 bytes; "" means both to
 * the firewall services and none to the sockets. With any other word, or a blank for the comma, no
 * firewall service collides. Rules and settings collide whatever the protocol.
 *
 * nCheckFlags is 1..31, bits of TAVO_PORT_CHECK_*.
 *
 * The colliding ports are put in front of *ppConflictPorts (NULL: an empty list) as entries of both
 * protocols, single ports with nPortEnd 0. The settings hand over a list of their own, ascending,
 * with protocol 0 and every end filled in, into which the caller's entries are merged; entries that
 * were there already then count as a conflict. The sockets add nothing. What was found before a
 * failure stays. Use only *ppConflictPorts after the call, whatever the result: former entries may
 * have been freed. Free it with TAVOServiceConfPortsFree.
 *
 * All enabled sources are asked in the order of their bits; the sockets are not asked further once
 * one is found. Port 412 named by itself counts as taken whatever is asked.
 *
 * Fails with 0xD00 for a NULL argument, flags outside 1..31, a bad port or, for the sockets, port
 * 0; 0xBF00 for protocols that are too long; 0x200 out of memory; 0x9900 when the services cannot
 * be enumerated for the sockets; and when a source cannot be read: a rule without its keys, a rule
 * file of which it is unknown whether it exists (0x900), a settings file that is missing (0x700) or
 * has a bad port, and a service that is left out of the catalogue because memory ran out (0x200) or
 * a file (0x900) or a folder (0x2A00) could not be read. A service file with invalid contents is
 * left out and is no failure.
 *
 * Services and sockets are those of one moment of the call: what is installed or opened meanwhile
 * may be missed. */
TAVO_API int TLIBIsPortConflict(const char *szSkipServices, const char *szPort,
                                const char *szProtocol, int nCheckFlags,
                                TAVO_SERVICE_CONF_PORT **ppConflictPorts);

/* Whether the destination ports of a service file are taken by a firewall service, a setting or a
 * socket: 1 as soon as one section collides, which skips itself; 0 when none does; -1 on failure.
 * Every section, [global] too, must have dst.ports, else it fails. A section whose check fails is
 * logged and passed over, so that a NULL ppConflictPorts gives 0. No section at all, or no readable
 * file, is 0. So 0 does not prove that the ports are free; ask TLIBIsPortConflict for each section
 * where that matters. The file is read once, before the first section is checked. ppConflictPorts
 * is that of TLIBIsPortConflict: entries that are in it on entry, or
 * that a section whose check failed has left, count as a conflict of the next section. */
TAVO_API int TLIBIsConfPortConflict(const char *szConfFile,
                                    TAVO_SERVICE_CONF_PORT **ppConflictPorts);

/* ---- Who declares a port ----
 *
 * The check of the configuration answers which ports are declared, by the system's settings or by a
 * firewall service, and by whom. It fills result lists: lists of the core library, walked with
 * TLIBCDListFirst, TLIBCDListNext and TLIBCDListElement, whose elements are result records that the
 * list owns. What is added to them is put behind what they hold. */

/* One port, one protocol, and one service that declares it, or nobody. */
typedef struct TAVO_CONF_PORT_CONFLICT_RESULT {
    uint16_t uPort;
    uint16_t uProtocol;  /* TAVO_PROTO_TCP or TAVO_PROTO_UDP, never both */
    char *szService;     /* owned; who declares the port; NULL when nobody does */
    uint32_t blConflict; /* 1 when szService declares the port, 0 when nobody does */
} TAVO_CONF_PORT_CONFLICT_RESULT, *PTAVO_CONF_PORT_CONFLICT_RESULT;

/* A record of zeros; NULL when out of memory. */
TAVO_API PTAVO_CONF_PORT_CONFLICT_RESULT TAVOConfPortConflictResultAlloc(void);

/* Frees a record and its text. NULL is not accepted. */
TAVO_API void TAVOConfPortConflictResultFree(PTAVO_CONF_PORT_CONFLICT_RESULT pResult);

/* A copy of pResult, which must not be NULL, with a text of its own; NULL when out of memory for
 * the record. Out of memory for the text leaves szService NULL. Sets no error. */
TAVO_API PTAVO_CONF_PORT_CONFLICT_RESULT
TAVOConfPortConflictResultCopy(const TAVO_CONF_PORT_CONFLICT_RESULT *pResult);

/* A new, empty list of records; NULL when out of memory. TLIBCDListAppend copies what it is given:
 * the caller's record stays the caller's. */
TAVO_API TLIBCDList *TAVOConfPortConflictResultListAlloc(void);

/* Frees the list and its records; NULL is accepted. */
TAVO_API void TAVOConfPortConflictResultListFree(TLIBCDList *pList);

/* A new list with copies of the records of pList, which must not be NULL; NULL when out of memory.
 */
TAVO_API TLIBCDList *TAVOConfPortConflictResultListCopy(const TLIBCDList *pList);

/* For each port of pPortList, in decimal, and each protocol of uProtocol (flag word, 1 to 3), TCP
 * first, appends to pResultList a record for everyone who declares it, else one record with
 * blConflict 0. A port that is 0 or no number is logged and passed over; one above 65535 wraps (see
 * ToUPort). A service that declares both protocols counts for UDP only, and one whose ports are
 * invalid, so that TAVOFwServiceEnum leaves it out, declares nothing. What is left out because it
 * could not be read may declare any port, and the check fails. Reads /etc/tavoinfo.conf, where an
 * absent file or key declares nothing, and what TAVOFwServiceEnum reads. Fails with 0xD00 for
 * another protocol word or a NULL argument, 0x200 out of memory, 0x900 when a file cannot be read
 * and 0x2A00 when a folder cannot be listed; what was appended before a failure stays. A declared
 * range takes memory and time for those of its ports that are asked for. */
TAVO_API int TAVOConfPortConflictCheck(const TLIBCSzList *pPortList, uint16_t uProtocol,
                                       TLIBCDList *pResultList);

/* The same into a new list, which the caller frees with TAVOConfPortConflictResultListFree; NULL on
 * failure. */
TAVO_API TLIBCDList *TAVOConfPortConflictResultListAllocAndCheck(const TLIBCSzList *pPortList,
                                                                 uint16_t uProtocol);

/* Appends to pConflictPortList, in decimal and each once, the ports of pResultList that are
 * declared for a protocol of uProtocol, unless they are in it already. The list must be one that
 * does not move when it grows, as those of the core library's host build. Fails with 0xD00 for
 * NULL, 0x200 out of memory; what was appended before a failure stays. */
TAVO_API int TAVOConfListConflictPorts(const TLIBCDList *pResultList, uint16_t uProtocol,
                                       TLIBCSzList *pConflictPortList);

/* What pResultList says of a port and the protocols of uProtocol: 1 declared, 0 listed but declared
 * by nobody, -2 not listed; -1 (0xD00) for NULL. */
TAVO_API int TAVOConfVerifyConflictPort(const TLIBCDList *pResultList, uint16_t uPort,
                                        uint16_t uProtocol);

/* 1 when a port of the list is declared for a protocol of uProtocol, else 0. Also 0 on every
 * failure, such as a service file that cannot be read: 0 does not mean that the port is free. Ask
 * TAVOConfPortConflictCheck, which returns -1 then, where that matters. */
TAVO_API int TAVOConfIsConflictPorts(const TLIBCSzList *pPortList, uint16_t uProtocol);

/* The same for one port. */
TAVO_API int TAVOConfIsConflictPort(uint16_t uPort, uint16_t uProtocol);

/* The same for the ports uFirst to uLast; 0 (0xD00) when uFirst is above uLast. uLast must not be
 * 65535: the call would never return. */
TAVO_API int TAVOConfIsConflictPortRange(uint16_t uFirst, uint16_t uLast, uint16_t uProtocol);

/* ---- Who holds a port ----
 *
 * The check of the running system answers which ports a process holds right now, and which process
 * that is. It has the shape of the check of the configuration. */

/* One port, one protocol, and one process that holds it in one state, or nobody. */
typedef struct TAVO_RUNTIME_PORT_CONFLICT_RESULT {
    uint16_t uPort;      /* local port of a socket */
    uint16_t uProtocol;  /* TAVO_PROTO_TCP or TAVO_PROTO_UDP, never both */
    uint32_t uPid;       /* the process; 0 when nobody holds the port */
    uint32_t uState;     /* the socket's state in the kernel's numbers, see TAVOTCPStateToString */
    char *szProgram;     /* owned; the process's executable as /proc/PID/exe reads; NULL when it
                            cannot be read, or nobody holds the port */
    uint32_t blConflict; /* 1 when the process holds the port, 0 when nobody does */
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
 * first, appends to pResultList a record for every process and state that holds it, else one record
 * with blConflict 0. Every socket counts, over IPv4 and IPv6 and whatever its state and address,
 * unless no process that the caller may look at holds it: without permission to look at the
 * processes of others their ports read as free. All ports are compared with one look at the system.
 * A port that is 0 or no number is logged and passed over; one above 65535 wraps. Reads
 * /proc/net/tcp, tcp6, udp and udp6, and /proc/PID/fd and /proc/PID/exe of every process. Fails
 * with 0xD00 for another protocol word or a NULL argument, 0x700 for a missing table of sockets,
 * 0x900 for one that cannot be read, or when /proc or a process cannot be read for another reason
 * than a missing permission or the end of the process, 0x200 out of memory; what was appended
 * before a failure stays. */
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

/* What pResultList says of a port and the protocols of uProtocol: 1 held, 0 listed but held by
 * nobody, -2 not listed; -1 (0xD00) for NULL. */
TAVO_API int TAVORuntimeVerifyConflictPort(const TLIBCDList *pResultList, uint16_t uPort,
                                           uint16_t uProtocol);

/* 1 when a port of the list is held for a protocol of uProtocol, else 0. Also 0 on every failure,
 * such as a process that cannot be read: 0 does not mean that the port is free. Ask
 * TAVORuntimePortConflictCheck, which returns -1 then, where that matters. With 1 it writes the
 * ports to standard error, one a line, after a line "pConflictPortList:". */
TAVO_API int TAVORuntimeIsConflictPorts(const TLIBCSzList *pPortList, uint16_t uProtocol);

/* The same for one port. */
TAVO_API int TAVORuntimeIsConflictPort(uint16_t uPort, uint16_t uProtocol);

/* The same for the ports uFirst to uLast; 0 (0xD00) when uFirst is above uLast. uLast must not be
 * 65535: the call would never return. */
TAVO_API int TAVORuntimeIsConflictPortRange(uint16_t uFirst, uint16_t uLast, uint16_t uProtocol);

/* ---- Changing service files ----
 *
 * Writing a section and its ports, installing, updating and removing a file, backup and restore,
 * and telling those who act on declared ports: the firewall tool, the router tool, the relay daemon
 * tavorelayd and the plugins of the group port_config.
 *
 * Callers need not serialise changes. Each of these functions locks the store that it changes while
 * it reads and writes it (/run/tavoserviceconf/STORE.lock, flock), and waits for other threads and
 * processes at most two minutes; then it fails with 0x900 and a log line that names the lock. The
 * stores are the service files of the system, those of packages, the rules of the firewall, and
 * those of port forwarding. The router tool runs under the lock, and so does the restart of
 * TLIBServiceConfSectionRemove, which may have to undo the removal: they must not change the same
 * stores. No lock is held while another restart or a notification runs. Two things are left to
 * callers: those who write a service file by other means than this library or the writers of
 * tavocore.h, and those who use TAVOServiceConfUpdateBaseNameWithoutNotify for one name at once,
 * since the copy that it hands out has a fixed name.
 *
 * The copies in /tmp have fixed names. Such a name is taken anew, for the caller's user alone: a
 * link, plain file, pipe, socket or empty folder that is there is removed, and the copy of a change
 * that is going on is waited for. A folder that is not empty is logged, and the copy then fails.
 * Folders that are made have the mode 0755 whatever the umask is.
 *
 * Names of files hold no ".." component, which is refused with 0xD00, and so lead to nothing
 * outside the directory; give plain ones, of at most 228 bytes: a longer one has no name for its
 * copies.
 *
 * A program that is run reads nothing, writes to the caller's standard output and error, and gets
 * no other descriptor of the caller. */

/* nRestartMode: whether TLIBServiceConfServRestart follows a change. */
#define TAVO_RESTART_MODE_NONE 1
#define TAVO_RESTART_MODE_RESTART 2

/* nRestartFlags, and the argument of TLIBServiceConfServRestart: bits of a word from 1 to 31. The
 * others are accepted and do nothing. */
#define TAVO_RESTART_FIREWALL 1 /* reload the firewall, and the relay daemon if it runs */
#define TAVO_RESTART_RELAY 2    /* reload the relay daemon if it runs */

/* nWriteMode. A section is written with the first only, removed with the last only. */
#define TAVO_WRITE_MODE_SET 1
#define TAVO_WRITE_MODE_NONE 2
#define TAVO_WRITE_MODE_REMOVE 3

/* What is to be changed, and how. Filled by the caller, read only. */
typedef struct TAVO_SERVICE_CONF_SET_PARAM {
    uint32_t nRestartMode;  /* TAVO_RESTART_MODE_*, 1 or 2 */
    uint32_t nRestartFlags; /* TAVO_RESTART_*, 1..31 */
    uint32_t nWriteMode;    /* TAVO_WRITE_MODE_*, 1..3 */
    uint32_t nCheckFlags;   /* TAVO_PORT_CHECK_*, 1..31; some bits also say which files change */
    char szFileName[256];   /* base name of the service file, "ftp.sc" */
    char szSectionName[256];
    uint32_t nLocation; /* TAVO_SERVICE_CONF_DIR_*, 1..3 */
} TAVO_SERVICE_CONF_SET_PARAM;

/* Writes the section pSection, all its keys, into the service file that pParam names; the directory
 * and the file are made when they are missing. 0 on success, also when there was nothing to write;
 * -1 on failure, the file then being as it was.
 *
 * 0 does not prove that the section was written: a write that fails, on a full disk for one, is
 * logged only. To find out, read the section back with TAVOServiceConfSectionGet; the log line and
 * the error state say why it was not written.
 *
 * pParam: every field must have one of its values; with both bits of nLocation set the system
 * directory is meant. szSectionName names the section whose keys that are not set here, desc_extra
 * for one, are kept, and the services that the check of the ports leaves out; give it the name in
 * pSection. pSection needs a name, a title, a description and destination ports; desc_extra and
 * pNext are not used. A text is written between double quotes as it stands, so that one with a
 * newline is not written at all, which is logged only.
 *
 * First TLIBIsPortConflict is asked, with nCheckFlags, for the destination ports: a conflict is a
 * failure. Without TAVO_PORT_CHECK_FW_SERVICE in nCheckFlags that is all, but for the restart. With
 * an nWriteMode other than 1 everything but the writing is done. With TAVO_PORT_CHECK_PORT_FORWARD
 * the router tool is told, and with nRestartMode 2 TLIBServiceConfServRestart follows; failures of
 * these two are logged only.
 *
 * Runs /bin/mkdir -p, /bin/cp -f FILE /tmp/NAME (a copy of the file as it was; it is gone when the
 * function returns) and /usr/tavo/sbin/tavoroutertool --update /tmp/NAME FILE. Sets 0xD00 for
 * what is wrong in the arguments, 0x900 for a file that cannot be looked at and for a lock; other
 * failures are logged and set what the failing function sets. */
TAVO_API int TLIBServiceConfSectionSet(const TAVO_SERVICE_CONF_SET_PARAM *pParam,
                                       const TAVO_SERVICE_CONF_SECTION *pSection);

/* Sets one port key of an existing section to the ports of pPortList, whose entries must have one
 * protocol word: dst.ports when the first entry's nDirection is not 0, else src.ports. The value
 * is written without quotes. Everything else is as in TLIBServiceConfSectionSet, except that file
 * and section must be there and that nWriteMode only has to be 1 to 3. */
TAVO_API int TLIBServiceConfPortsSet(const TAVO_SERVICE_CONF_SET_PARAM *pParam,
                                     const TAVO_SERVICE_CONF_PORT *pPortList);

/* Sets one port key of an existing section, chosen as in TLIBServiceConfPortsSet, without looking
 * for conflicts, and reloads the firewall (TAVOFwRuleHupWrap). nLocation 1 is the system directory,
 * any other value that of packages. Ports are printed in their order, ranges as they are, and the
 * protocols are those of the first entry. -1 for a NULL argument or a name that is refused
 * (0xD00), a missing file (0x700, and a log line), a text of 512 bytes or more (0xBF00), and when
 * writing or the reload fails; what was written then stays. The error state of a success may be
 * 0xC000, by which the file is found. */
TAVO_API int TAVOServiceConfSectionPortSet(int nLocation, const char *szFileName,
                                           const char *szSectionName,
                                           const TAVO_SERVICE_CONF_PORT *pPortList);

/* Installs the service file szSrcPath under its own base name into the directory nLocation,
 * TAVO_SERVICE_CONF_DIR_SYSTEM or _PACKAGE, both not being allowed here. 0 installed; 1 installed
 * although its ports collide with others; -1 on failure. A file of that name is replaced. Its place
 * always holds either the old file or all of the new one, which is copied with mode and times to a
 * file of its own in the folder tmp of the directory, flushed to disk and renamed; when copying or
 * renaming fails, that file stays there. The source is a regular file; anything else is a copy that
 * fails. Nobody is told.
 *
 * Runs TLIBIsConfPortConflict, /bin/mkdir -p and /bin/cp -f -p. Sets 0xD00 for NULL, a bad location
 * or a name that is refused, 0x700 for a missing source, whatever the name is, 0x900 for a lock,
 * 0x3C00 when a directory cannot be made, 0x3B00 when the copy and 0x2800 when the rename fails. An
 * installed file of that name sets the error state back to 0 on the way. */
TAVO_API int TAVOServiceConfInstall(const char *szSrcPath, int nLocation);

/* The same under the base name szBaseName. *ppConflictPorts is that of TLIBIsConfPortConflict, and
 * may be filled whatever the result; free it with TAVOServiceConfPortsFree. With a NULL
 * ppConflictPorts no conflict is found. */
TAVO_API int TAVOServiceConfInstallBaseName(const char *szBaseName, const char *szSrcPath,
                                            int nLocation,
                                            TAVO_SERVICE_CONF_PORT **ppConflictPorts);

/* What an update tells. */
typedef struct TAVO_SERVICE_CONF_NOTIFY {
    char szOldConfPath[4096]; /* a copy of the file as it was */
    char szNewConfPath[4096]; /* the file as it is */
    uint32_t blNotifyFw;      /* not 0: tell the firewall */
    uint32_t blNotifyPf;      /* not 0: tell port forwarding, which needs both paths */
} TAVO_SERVICE_CONF_NOTIFY;

/* What a removal tells. */
typedef struct TAVO_SERVICE_CONF_REMOVE_NOTIFY {
    const char *pszConfPath; /* a copy of the file that was removed */
    uint32_t blNotifyFw;     /* not looked at */
    uint32_t blNotifyPf;     /* not 0: tell port forwarding and the firewall */
} TAVO_SERVICE_CONF_REMOVE_NOTIFY;

/* Replaces the installed service file szBaseName by szSrcPath, as TAVOServiceConfInstallBaseName
 * does, and tells port forwarding and the firewall of it (TLIBServiceConfUpdateServNotify). 0; 1
 * when ports collide; -1 on failure. That the installation itself fails is logged only, the old
 * file then being as it was; so look at the file. A file that was not installed yet is
 * installed. Nothing is rolled back. Free *ppConflictPorts whatever the result.
 *
 * Runs /bin/cp -f FILE /tmp/servicetool.update.NAME.old; the copy is gone when the function
 * returns. */
TAVO_API int TAVOServiceConfUpdateBaseName(const char *szBaseName, const char *szSrcPath,
                                           int nLocation, TAVO_SERVICE_CONF_PORT **ppConflictPorts);

/* The same without telling anybody: *pNotify is filled for the caller, who hands it to
 * TLIBServiceConfUpdateServNotify and deletes the file szOldConfPath, unless that is empty: then
 * there was no old file. Until it is deleted, callers must make no other update of that name. A
 * failure leaves *pNotify as it was and no copy; NULL is 0xD00. */
TAVO_API int TAVOServiceConfUpdateBaseNameWithoutNotify(const char *szBaseName,
                                                        const char *szSrcPath, int nLocation,
                                                        TAVO_SERVICE_CONF_PORT **ppConflictPorts,
                                                        TAVO_SERVICE_CONF_NOTIFY *pNotify);

/* Removes the service file that pParam names and tells of it (TLIBServiceConfRemoveServNotify):
 * with TAVO_PORT_CHECK_PORT_FORWARD in nCheckFlags port forwarding and the firewall; the content
 * goes along when bit 1 or 2 is set. -1 on failure, the file then being as it was; what goes wrong
 * in telling is logged only.
 *
 * pParam: nRestartMode 1, or 2 with one of the low four bits of nRestartFlags, neither of which has
 * any other effect; nWriteMode 3; nCheckFlags with TAVO_PORT_CHECK_FW_SERVICE; the low two bits of
 * nLocation 1 or 2; a file name. Anything else is refused with 0xD00; a missing file is 0x700, one
 * that cannot be looked at 0x900.
 *
 * Runs /bin/cp -f FILE /tmp/servicetool.remove.NAME.PID; the copy is gone when the function
 * returns. Only that cp cannot be run counts as a failure of it. */
TAVO_API int TAVOServiceConfRemove(const TAVO_SERVICE_CONF_SET_PARAM *pParam);

/* The same function under another name. */
TAVO_API int TLIBServiceConfRemove(const TAVO_SERVICE_CONF_SET_PARAM *pParam);

/* TAVOServiceConfRemove of the file szFileName (cut to 255 bytes) in the directory nLocation, with
 * everybody told. -1 also for NULL (0xD00). */
TAVO_API int TAVOServiceConfRemoveBaseName(const char *szFileName, int nLocation);

/* The same function under another name. */
TAVO_API int TLIBServiceConfRemoveBaseName(const char *szFileName, int nLocation);

/* Copies what a change is going to touch to side copies beside it, named STORE.tmp.PID: with
 * TAVO_PORT_CHECK_FW_SERVICE in nCheckFlags the system's service files when nLocation is exactly 1,
 * those of packages when it is exactly 2 (none when it is 3), with bit 1 /usr/tavo/etc/firewall.d,
 * with TAVO_PORT_CHECK_PORT_FORWARD the rule file of the port-forwarding library. A store that is
 * missing has no side copy. -1 on failure, no side copy being left: 0xD00 for NULL, none of the low
 * four bits in nCheckFlags, or no directory, and then also after a copy that cannot be made. Other
 * fields are not looked at. Of a store that is a symbolic link, what it leads to is copied.
 *
 * The stores stay locked until TLIBServiceConfRestore or TLIBServiceBackupConfDelete of this
 * process, from any thread, names them; the thread that made the backup may change them meanwhile,
 * and make the backup anew. Let the backup name every store that is changed before its end: two
 * callers of which each waits for a store that the other has locked wait until one fails. A failure
 * locks nothing. A child made by fork has neither the locks nor the copies.
 *
 * Only the process that made them finds them again. Runs /bin/rm -rf and /bin/cp -rf, the latter
 * while the writers of tavocore.h wait, up to five times. That one of these cannot be run is a
 * failure, that it fails is not: a copy that did not become whole is removed and logged, and its
 * store then is not restored. A copy of that name that was there is removed, except when its store
 * is missing or empty or could not be restored: it may be the only whole one, and is renamed to
 * STORE.unrestored.PID.N, which is logged. */
TAVO_API int TLIBServiceConfBackup(const TAVO_SERVICE_CONF_SET_PARAM *pParam);

/* Puts every side copy of such a backup in the place of its store, which is removed first, and
 * unlocks the stores whatever the result. Runs /bin/rm -rf and /bin/mv -f; where the second fails,
 * the copy is renamed. -1 for the same bad arguments, when one of the two cannot be run, and, with
 * 0x2800, when the store cannot be removed, as a folder that something is mounted on, or not be
 * replaced. Every failure sets an error code and is logged. The side copy is then still there, or
 * its content is in the place of the store; stores that follow stay as they are. What is restored
 * has the modes that the store had and is the caller's. */
TAVO_API int TLIBServiceConfRestore(const TAVO_SERVICE_CONF_SET_PARAM *pParam);

/* Removes the side copies of such a backup and unlocks the stores whatever the result. A copy that
 * could not be restored is kept as by the next backup. -1 for the same bad arguments and when
 * /bin/rm -rf cannot be run. */
TAVO_API int TLIBServiceBackupConfDelete(const TAVO_SERVICE_CONF_SET_PARAM *pParam);

/* Removes a section from a service file as a transaction: the stores of TLIBServiceConfBackup are
 * copied first and restored when a later step fails, those of them of which a whole copy could be
 * made. With bit 1 in nCheckFlags the firewall drops the record of the service first
 * (TLIBFwServRemoveRecWrap); with nRestartMode 2 TLIBServiceConfServRestart follows, and once more
 * after a restore that its failure made needed. A file without a section but [global] is deleted. A
 * section, or a file, that is not there counts as removed; a file that cannot be looked at is a
 * failure (0x900). 0 when it is removed, -1 when not. The stores are locked from the backup to the
 * restore or the end of the restart.
 *
 * pParam is that of TAVOServiceConfRemove, with a section name. Anything else is refused with
 * 0xD00; nRestartFlags above 31 are refused by the restart, and undo the removal. Give exactly 1 or
 * 2 as nLocation: with more bits no service files are copied, and there is no way back. */
TAVO_API int TLIBServiceConfSectionRemove(const TAVO_SERVICE_CONF_SET_PARAM *pParam);

/* Lets the services take up changed ports: with bit TAVO_RESTART_FIREWALL TAVOFwRuleHupWrap, whose
 * failure is this one's; then, with that bit or TAVO_RESTART_RELAY, reloads the unit tavorelayd if
 * it is active. -1 with 0xD00 for flags outside 1..31. */
TAVO_API int TLIBServiceConfServRestart(int nRestartFlags);

/* Tells the plugins of the group port_config of a changed file (action port_config/update), and
 * reloads the unit tavorelayd if it is active. The arguments are OLD_PORT_CONFIG_CONTENT and
 * NEW_PORT_CONFIG_CONTENT, with blNotifyPf the texts of the two files ("" for one that does not
 * exist, and for both when one cannot be read), and NOTIFY_PF and NOTIFY_FW, "1" where port
 * forwarding or the firewall is to act. An empty path for port forwarding sets 0xD00 and sends no
 * content. When a plugin fails, the relay daemon is not reloaded. -1 for NULL (0xD00); anything
 * else that goes wrong is logged only, and gives 0. */
TAVO_API int TLIBServiceConfUpdateServNotify(const TAVO_SERVICE_CONF_NOTIFY *pNotify);

/* The same function under another name. */
TAVO_API int TLIBServiceConfServNotify(const TAVO_SERVICE_CONF_NOTIFY *pNotify);

/* The same for a file that was removed (action port_config/remove): the text of pszConfPath in
 * PORT_CONFIG_CONTENT, and both NOTIFY_PF and NOTIFY_FW with blNotifyPf. */
TAVO_API int TLIBServiceConfRemoveServNotify(const TAVO_SERVICE_CONF_REMOVE_NOTIFY *pNotify);

/* Reloads the firewall: runs /usr/tavo/bin/tavofirewall --reload. -1 when it cannot be run; how it
 * ends is not looked at. */
TAVO_API int TAVOFwRuleHupWrap(void);

/* Has the firewall drop the record of a service: runs /usr/tavo/bin/tavofirewall
 * --remove-serv-rec NAME. -1 for NULL (0xD00) and when it cannot be run. */
TAVO_API int TLIBFwServRemoveRecWrap(const char *szName);

/* ---- Internals that sibling programs use ----
 *
 * Exported by their plain names; the appliance's own programs and the tests call them. */

/* Tests of a protocol value. The first three compare the low 16 bits with exactly TCP, exactly UDP
 * or both; HasTCP and HasUDP look at the one bit and give its value (0 or 1; 0 or 2). */
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

/* Every port that is declared: result lists in which every record has blConflict 1, a record for
 * each port and declaring service, also for each port of a range. SysConfListFetch gives the
 * system's own five (keys syslogport and smsport of /etc/tavoinfo.conf, and 5005 and 5006; port 0,
 * which is logged, for a key that is absent or cannot be read), PkgConfListFetch those of the
 * firewall services that TAVOFwServiceEnum lists, in their order, ServiceConfListFetch the first
 * and then the second. NULL when out of memory for the list. What cannot be read is not in it:
 * TAVOConfPortConflictCheck, which fails then, compares with the same ports. Free with
 * TAVOConfPortConflictResultListFree. */
TAVO_API TLIBCDList *SysConfListFetch(void);
TAVO_API TLIBCDList *PkgConfListFetch(void);
TAVO_API TLIBCDList *ServiceConfListFetch(void);

/* Appends to pFilteredResultList, which must be another list, a copy of every record of
 * pSourceResultList with exactly this port and protocol: how many there are; -1 for NULL (0xD00) or
 * no memory (0x200), what was appended before then staying. */
TAVO_API int ConfResultListFilter(const TLIBCDList *pSourceResultList, uint16_t uPort,
                                  uint16_t uProtocol, TLIBCDList *pFilteredResultList);

/* Appends a record that says that nobody declares the port. Fails with 0xD00 for NULL, 0x200 out of
 * memory. */
TAVO_API int ConfNotConflictResultAppend(TLIBCDList *pResultList, uint16_t uPort,
                                         uint16_t uProtocol);

/* One line of the kernel's tables of sockets (Documentation/networking/proc_net_tcp.rst of the
 * Linux kernel). */
typedef struct RawSocketInfo {
    uint16_t uPort;     /* local port */
    uint32_t uState;    /* state in the kernel's numbers */
    uint64_t ulInode;   /* of the socket; 0 when no process has it */
    uint16_t uProtocol; /* TAVO_PROTO_TCP or TAVO_PROTO_UDP */
} RawSocketInfo;

/* A record of zeros; NULL when out of memory. */
TAVO_API RawSocketInfo *RawSocketInfoAlloc(void);

/* Frees a record; NULL is accepted. */
TAVO_API void RawSocketInfoFree(RawSocketInfo *pInfo);

/* A copy of pInfo, which must not be NULL; NULL when out of memory. Sets no error. */
TAVO_API RawSocketInfo *RawSocketInfoCopy(const RawSocketInfo *pInfo);

/* 1 when an equal record is in the list, else 0; 0 for NULL (0xD00). Walks the list. */
TAVO_API int ContainRawSocketInfo(const TLIBCDList *pRawSocketInfoList, const RawSocketInfo *pInfo);

/* Appends the sockets of the table szPath, one like /proc/net/tcp, to a list of RawSocketInfo as
 * sockets of uProtocol, each that is not in it yet. Lines that are no socket are passed over. Fails
 * with 0x700 for a missing file, 0x900 for one that cannot be read, 0xD00 for NULL, 0x200 out of
 * memory; what was appended before a failure stays. */
TAVO_API int ParseToRawSocketInfo(const char *szPath, uint16_t uProtocol,
                                  TLIBCDList *pRawSocketInfoList);

/* A new list of the sockets of uProtocol (flag word, 1 to 3), in the order of /proc/net/tcp, tcp6,
 * udp, udp6; NULL when one of these files cannot be read (as from ParseToRawSocketInfo) or for
 * another word (0xD00). Free with TLIBCDListFree. */
TAVO_API TLIBCDList *RawSocketInfoListFetch(uint16_t uProtocol);

/* A new list of the process numbers, in the order in which their texts sort; empty when /proc
 * cannot be listed; NULL when out of memory (0x200), which for a single number is logged and leaves
 * it out. Free with TLIBCSzListFree. */
TAVO_API TLIBCSzList *FetchPidList(void);

/* Enters the sockets that a process holds into a table: the key is the socket's inode, the value
 * the processes that hold it, each with a comma after it, the one entered last in front; one that
 * holds it twice is there twice. szPid is the process's number in decimal, as FetchPidList gives
 * it. A process that is gone, or that the caller has no permission to look at, enters nothing.
 * Reads /proc/PID/fd. Sets 0xD00 for NULL, 0x200 when out of memory, 0x900 when the process cannot
 * be read for another reason; what was entered before stays. */
TAVO_API void FetchInodeFromPid(TLIBCSzHash *pInodeToPidsTable, const char *szPid);

/* A new table of the sockets that the processes of FetchPidList hold; NULL when out of memory
 * (0x200) or when /proc or a process cannot be read (0x900), also when that concerns a single
 * process or socket only. A process that is gone, or that the caller has no permission to look at,
 * is left out. Free with TLIBCSzHashFree. */
TAVO_API TLIBCSzHash *InodeToPidsTableFetch(void);

/* A new list of the processes that such a table names for an inode, empty when there are none; NULL
 * when out of memory (0x200). Free with TLIBCSzListFree. */
TAVO_API TLIBCSzList *InodeToPidsGet(const TLIBCSzHash *pInodeToPidsTable, uint64_t ulInode);

/* The executable of a process as /proc/PID/exe reads, cut behind 1023 bytes ("/usr/bin/chatd", also
 * "/usr/bin/chatd (deleted)"); NULL when it cannot be read or out of memory. Free with free. */
TAVO_API char *ProgramCommandFetch(uint32_t uPid);

/* 1 when the list holds a record equal to pResult, szProgram not compared, else 0; 0 for NULL
 * (0xD00). Walks the list. */
TAVO_API int ContainRuntimeResult(const TLIBCDList *pResultList,
                                  const TAVO_RUNTIME_PORT_CONFLICT_RESULT *pResult);

/* What the runtime check compares with: a new result list with a record for every port, process and
 * state, all with blConflict 1, in the order of RawSocketInfoListFetch. NULL on failure, as
 * TAVORuntimePortConflictCheck, which reads the same: 0x700, 0x900 or 0x200. szProgram is NULL
 * where the program cannot be read. Free with TAVORuntimePortConflictResultListFree. */
TAVO_API TLIBCDList *RuntimeServiceListFetch(void);

/* As ConfResultListFilter and ConfNotConflictResultAppend, of the runtime check. */
TAVO_API int RuntimeResultListFilter(const TLIBCDList *pSourceResultList, uint16_t uPort,
                                     uint16_t uProtocol, TLIBCDList *pFilteredResultList);
TAVO_API int RuntimeNotConflictResultAppend(TLIBCDList *pResultList, uint16_t uPort,
                                            uint16_t uProtocol);

/* Writes the path of the installed service file szBaseName into szBuf of cbBuf bytes, cut to fit.
 * nLocation is TAVO_SERVICE_CONF_DIR_SYSTEM or _PACKAGE. Fails with 0xD00 for NULL, another
 * location or a name that is refused. */
TAVO_API int GetInstallPath(const char *szBaseName, int nLocation, char *szBuf, int cbBuf);

/* TAVOServiceConfInstallBaseName. */
TAVO_API int ServiceConfInstall(const char *szBaseName, const char *szSrcPath, int nLocation,
                                TAVO_SERVICE_CONF_PORT **ppConflictPorts);

/* Removes a file, or a folder with all that is in it, by /bin/rm -rf; a link to one is removed
 * itself. 0, also when there is nothing of that name, or something else, which then stays; -1 for
 * NULL or "" (0xD00) and when rm cannot be run: how it ends is not looked at. */
TAVO_API int RemovePath(const char *szPath);

/* Copies (/bin/cp -rf) or, with blMove, moves (/bin/mv -f) a folder or regular file to szDst, which
 * is removed first. Blanks around both paths are not part of them. -1 for NULL, an empty path, or a
 * file that is to go to a path that ends in a slash (0xD00), a source that is neither (0x600), no
 * memory (0x200), a folder szDst that cannot be removed, and when a program cannot be run: how it
 * ends is not looked at. */
TAVO_API int CopyOrMovePath(const char *szSrc, const char *szDst, int blMove);

/* Sets a plugin argument to the text of a file, up to its first NUL byte: as much of it as its size
 * said when it was opened. "" when there is no such file. -1 on failure, with a log line, except
 * for a NULL path, which is nothing to report. */
struct TLIBPluginHandle;
TAVO_API int PluginArgSetFileContent(struct TLIBPluginHandle *pHandle, const char *szKey,
                                     const char *szPath);

#ifdef __cplusplus
}
#endif

#endif /* TAVOSERVICECONF_H */
