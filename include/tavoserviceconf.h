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
 *        0xD00   bad parameter, bad syntax or bad record
 *        0x200   out of memory
 *        0x700   file does not exist
 *        0x900   file cannot be opened
 *        0xBF00  output buffer too small
 *        0x2A00  directory cannot be listed
 *        0xC000  a file of that name is already installed
 *  3. Most failures also write one line to the system log, facility of the caller, priority
 *     LOG_ERR: "SOURCE:LINE MESSAGE", most with "[0xCODE SOURCE:LINE]" of the error state behind
 *     the message.
 *  4. On failure outputs and the caller's lists are as they were.
 *  5. Records come from calloc and go back with the free function of their kind, which frees the
 *     whole list from the record on and accepts NULL. A caller may build records of its own with
 *     the same allocator and hand them over.
 *  6. Lists are chained through pNext. What is added to a caller's list is put in front.
 *  7. Text is bytes. A text longer than its field is cut to fit and always terminated; fields
 *     that a caller fills may lack the terminator.
 *  8. Nothing is kept between calls: each reads the files it needs anew. Functions may be called
 *     from several threads at once as long as each uses its own records.
 */
#ifndef TAVOSERVICECONF_H
#define TAVOSERVICECONF_H

#include <stdint.h>

#if defined(__GNUC__)
#define TAVO_API __attribute__((visibility("default")))
#else
#define TAVO_API
#endif

#ifdef __cplusplus
extern "C" {
#endif

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
 * a path beyond PATH_MAX (0xD00), a missing file (0x700) or a name that is taken (0xC000). */
TAVO_API int TAVOServiceConfFileVerify(const char *szFile, const char *szDir);

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

#ifdef __cplusplus
}
#endif

#endif /* TAVOSERVICECONF_H */
