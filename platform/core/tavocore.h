/*
 * libtavocore: error state, strings, lists, configuration files and programs.
 *
 * The floor that every library of the appliance stands on. This header is the contract; the host
 * build beside it keeps that contract on any Linux machine, and an appliance brings its own.
 *
 * Conventions
 *
 *  1. Text is bytes ended by a NUL, never interpreted in any locale. "Blank" is one of the six
 *     white space characters of ASCII; "letter" is an ASCII letter.
 *  2. An int result is 0 for success and -1 for failure, or a count, where nothing else is said.
 *  3. A failure records an error code with the place in the source that found it (TLIBCErrSetEx).
 *     A success never clears what an earlier failure recorded. The codes are TLIBC_ERR_*; a
 *     library above adds its own.
 *  4. On failure an output is left as it was, except where a function says otherwise.
 *  5. A list is handed by address to the functions that push to it. In this build a handle never
 *     moves: what *ppList holds before a call it holds after it.
 *  6. What a function hands out is the caller's to free with the function named there; strings
 *     looked up in a list or table stay the container's, and last until it changes them or is
 *     freed.
 *  7. The error state is per thread, and so is a file held with TLIBCFileHold; no other state is
 *     kept between calls. Different objects may be used from different threads at once; one
 *     object needs the caller's own lock.
 */
#ifndef TAVOCORE_H
#define TAVOCORE_H

#include <stdio.h>

#if defined(__GNUC__)
#define TAVOCORE_API __attribute__((visibility("default")))
#define TAVOCORE_PRINTF(nFormat, nFirst) __attribute__((format(printf, nFormat, nFirst)))
#else
#define TAVOCORE_API
#define TAVOCORE_PRINTF(nFormat, nFirst)
#endif

#ifdef __cplusplus
extern "C" {
#endif

/* ---- Error state ---- */

/* Error codes. */
#define TLIBC_ERR_NO_MEMORY 0x200U /* out of memory */
#define TLIBC_ERR_NO_FILE 0x700U   /* the file or program does not exist */
#define TLIBC_ERR_FILE_UNUSABLE                                         \
    0x900U /* a file that cannot be opened, read, locked or written, or \
            * is no regular file; a program that cannot be run */
#define TLIBC_ERR_BAD_PARAMETER 0xD00U     /* bad argument, or text that would break a file */
#define TLIBC_ERR_RENAME 0x2800U           /* the new file cannot be renamed over the old one */
#define TLIBC_ERR_BUFFER_TOO_SMALL 0xBF00U /* the text does not fit into the caller's buffer */

/* Records error nError, found at line nLine of szFile, for the calling thread. The name is copied
 * (at most 255 bytes); NULL counts as "". Code 0 clears the state: file "" and line 0. */
TAVOCORE_API void TLIBCErrSetEx(unsigned int nError, const char *szFile, int nLine);

/* The code of the calling thread's last failure, 0 when there was none. */
TAVOCORE_API unsigned int TLIBCErrGet(void);

/* The source file of the last failure; never NULL, "" when there was none. Valid until the thread's
 * next TLIBCErrSetEx. */
TAVOCORE_API const char *TLIBCErrorGetFile(void);

/* The line of the last failure, 0 when there was none. */
TAVOCORE_API int TLIBCErrorGetLine(void);

/* ---- List of strings ---- */

typedef struct TLIBCSzList TLIBCSzList;

/* A new, empty list. It grows as needed; nCapacity, any number, is a hint of how many strings it
 * will hold. NULL when memory runs out (0x200). Free with TLIBCSzListFree. */
TAVOCORE_API TLIBCSzList *TLIBCSzListAlloc(int nCapacity);

/* Appends a copy of szItem. The new count; -1 for a NULL argument (0xD00) or when memory runs out
 * (0x200). */
TAVOCORE_API int TLIBCSzListPush(TLIBCSzList **ppList, const char *szItem);

/* The string at nIndex (from 0), owned by the list; NULL when the index is out of range or pList is
 * NULL, which is an answer and sets no error. */
TAVOCORE_API const char *TLIBCSzListGet(const TLIBCSzList *pList, int nIndex);

/* The index of the first string equal to szItem, -1 when there is none or an argument is NULL. Not
 * finding is an answer and sets no error. Walks the list. */
TAVOCORE_API int TLIBCSzListFind(const TLIBCSzList *pList, const char *szItem);

/* How many strings the list holds, 0 for NULL. */
TAVOCORE_API int TLIBCSzListCount(const TLIBCSzList *pList);

/* Takes out and frees the string at nIndex; those behind it move up. 0; -1 (0xD00) when there is no
 * such index. */
TAVOCORE_API int TLIBCSzListRemove(TLIBCSzList *pList, int nIndex);

/* Frees the list and its strings; NULL is accepted. */
TAVOCORE_API void TLIBCSzListFree(TLIBCSzList *pList);

/* Writes every string and a newline behind each to pStream; nothing when either is NULL. */
TAVOCORE_API void TLIBCISzListDump(const TLIBCSzList *pList, FILE *pStream);

/* ---- Table of strings by string ---- */

typedef struct TLIBCSzHash TLIBCSzHash;

/* A new, empty table. It grows as needed; nCapacity, any number, is a hint of how many keys it will
 * hold. NULL when memory runs out (0x200). Free with TLIBCSzHashFree. */
TAVOCORE_API TLIBCSzHash *TLIBCSzHashAlloc(int nCapacity);

/* Stores a copy of szValue under a copy of szKey. A key that is there already keeps its place and
 * gets the new value; szValue may be the value that the table gave out for the same key. 0; -1 for
 * a NULL argument (0xD00) or when memory runs out (0x200), the table then being as it was. */
TAVOCORE_API int TLIBCSzHashSetValue(TLIBCSzHash *pHash, const char *szKey, const char *szValue);

/* The value of szKey, owned by the table and valid until that key is set again or the table is
 * cleared or freed; NULL when the key is absent or an argument is NULL, no error set. */
TAVOCORE_API const char *TLIBCSzHashGetValue(const TLIBCSzHash *pHash, const char *szKey);

/* How many keys the table holds, 0 for NULL. */
TAVOCORE_API int TLIBCSzHashCount(const TLIBCSzHash *pHash);

/* Looks at entry nIndex (from 0) in the order in which the keys were first set; pszKey and pszValue
 * may each be NULL. 0; -1 (no error set) when there is no such index or pHash is NULL. */
TAVOCORE_API int TLIBCSzHashEnum(const TLIBCSzHash *pHash, int nIndex, const char **pszKey,
                                 const char **pszValue);

/* Takes every key out. NULL is accepted. */
TAVOCORE_API void TLIBCSzHashClear(TLIBCSzHash *pHash);

/* Frees the table, its keys and values; NULL is accepted. */
TAVOCORE_API void TLIBCSzHashFree(TLIBCSzHash *pHash);

/* ---- Linked list of copied elements ---- */

typedef struct TLIBCDList TLIBCDList;
typedef struct TLIBCDListNode TLIBCDListNode;

/* Makes the list's own copy of an element; NULL means failure. It sets its own error. */
typedef void *(*TLIBCDListCopyFn)(const void *pElement);

/* Frees one of the list's own copies. */
typedef void (*TLIBCDListFreeFn)(void *pElement);

/* A new, empty list. Without pfnCopy the list holds the very pointers that are appended; without
 * pfnFree it frees none of its elements. NULL when memory runs out (0x200). Free with
 * TLIBCDListFree. */
TAVOCORE_API TLIBCDList *TLIBCDListAlloc(TLIBCDListCopyFn pfnCopy, TLIBCDListFreeFn pfnFree);

/* Appends a copy of pElement, which stays the caller's. 0; -1 for a NULL argument (0xD00), when the
 * copy function fails (the error is the copy function's) or when memory runs out (0x200). */
TAVOCORE_API int TLIBCDListAppend(TLIBCDList *pList, const void *pElement);

/* How many elements the list holds, 0 for NULL. */
TAVOCORE_API int TLIBCDListCount(const TLIBCDList *pList);

/* The first node, NULL for an empty list or NULL. */
TAVOCORE_API TLIBCDListNode *TLIBCDListFirst(const TLIBCDList *pList);

/* The node behind pNode, NULL behind the last one or for NULL. */
TAVOCORE_API TLIBCDListNode *TLIBCDListNext(const TLIBCDListNode *pNode);

/* The element of a node, owned by the list; NULL for NULL. */
TAVOCORE_API void *TLIBCDListElement(const TLIBCDListNode *pNode);

/* Frees the list, its nodes and, with its free function, every element; NULL is accepted. */
TAVOCORE_API void TLIBCDListFree(TLIBCDList *pList);

/* ---- Strings ---- */

/* Appends to *ppList the non-empty pieces of szText between any of the characters of szSeparators.
 * How many there were; -1 for a NULL argument or list (0xD00) or when memory runs out (0x200), the
 * list then being as it was. */
TAVOCORE_API int TLIBCStrTok(const char *szText, const char *szSeparators, TLIBCSzList **ppList);

/* The same with every piece, empty ones too: "a,,b," gives "a", "", "b", "", and "" gives one empty
 * piece. */
TAVOCORE_API int TLIBCStrSep(const char *szText, const char *szSeparators, TLIBCSzList **ppList);

/* Copies the non-empty piece number nIndex (from 0) into szBuf of cbBuf bytes, the terminator
 * included. 1 found; 0 no such piece, szBuf then ""; -1 for bad arguments (0xD00) or a piece that
 * does not fit (0xBF00), szBuf then as it was. */
TAVOCORE_API int TLIBCStrTokIndex(const char *szText, const char *szSeparators, int nIndex,
                                  char *szBuf, int cbBuf);

/* Takes the blanks off both ends, in place. 0; -1 for NULL (0xD00). */
TAVOCORE_API int TLIBCStrTrimSpace(char *szText);

/* Copies szText into szBuf of cbBuf bytes with its letters lowered; szBuf may be szText. 0; -1 for
 * bad arguments (0xD00) or when it does not fit (0xBF00), szBuf then as it was. */
TAVOCORE_API int TLIBCStrCaseLower(const char *szText, char *szBuf, int cbBuf);

/* Appends szText to the text in *pszBuffer, which is NULL (then *pcbBuffer counts as 0) or a block
 * from malloc of *pcbBuffer bytes; the block grows as needed and *pcbBuffer with it. The caller
 * frees it with free. 0; -1 for bad arguments (0xD00) or when memory runs out (0x200), both then as
 * they were. */
TAVOCORE_API int TLIBCStrCat(char **pszBuffer, int *pcbBuffer, const char *szText);

/* A new text formatted as by printf, to be released with TLIBCStrPut; NULL for a NULL format or
 * what cannot be formatted (0xD00), or when memory runs out (0x200). */
TAVOCORE_API char *TLIBCStrGet(const char *szFormat, ...) TAVOCORE_PRINTF(1, 2);

/* Releases a text made by TLIBCStrGet; NULL is accepted. */
TAVOCORE_API void TLIBCStrPut(char *szText);

/* ---- Configuration files ----
 *
 * A file holds keys in sections, or keys without a section:
 *
 *    # a comment; so is a line that starts with ;
 *    [name]
 *    key=value
 *
 *  - A line is a comment when its first non-blank character is # or ;, and blank lines separate.
 *    A line that, without the blanks around it, starts with [ and ends with ] opens the section
 *    named between them. Any other line that holds a = is key=value, split at the first =, key
 *    and value trimmed. CRLF is read as LF, a last line without a newline counts, a line may be
 *    of any length, and a UTF-8 byte-order mark at the start of the file is skipped.
 *  - A value that starts and ends with " (two of them) is read without that one pair. Nothing
 *    else is special inside a value: no escapes, no trailing comments.
 *  - The last of two equal keys counts; two sections of one name are one section. Names and keys
 *    are case-sensitive.
 *  - A line that is none of these, one with an empty key and one that holds a NUL byte included,
 *    is skipped by the readers and kept by the writers.
 *
 * Readers open without blocking and take regular files only (through symbolic links), so that a
 * pipe or a device behind a name is an error and not a hang. A missing file is 0x700, one that
 * cannot be opened or read 0x900, out of memory 0x200, a NULL argument 0xD00.
 *
 * Writers change the named section only and keep every other byte: order, comments, blank lines,
 * spelling. A key that is there keeps its place (where it stands more than once, the line that
 * counts gets the value), new keys go behind the section's last line that is not blank or a
 * comment, and a new section goes to the end of the file. Values are written as given, key=value,
 * so that blanks and one pair of quotes around them are lost when they are read.
 *
 * A line that has the wanted value already keeps its spelling, and the file stays untouched when no
 * line changes:
 *  - TLIBCFileSetSectionValue keeps a line whose value, as it stands in the file, is the very text
 *    given, but for blanks around either: k=1 for 1, but not k="1".
 *  - TLIBCFileSetSection and TLIBCFileAddSection also keep a line that is read as the value, k="1"
 *    for 1, so that keys which were read and are handed back keep every byte. A value that is given
 *    in quotes, "1", is the very text again: k=1 and k=""1"" both become k="1". A caller that hands
 *    back a value which was read with quotes or blanks at its ends puts a pair of quotes around it.
 *
 * A name or key that would not be read back as given, and a newline anywhere, is refused with 0xD00
 * and the file stays as it was. A line that is kept is not refused, whatever its key.
 *
 * A change is all or nothing: the new text goes to a temporary file beside the target, takes over
 * its mode and owner, is flushed to disk and renamed over it, and the folder is flushed. A symbolic
 * link is followed to the file that it names. Whatever fails, the old file is whole; only a folder
 * that can neither be flushed nor get its old file back leaves the new one, just as whole. Writers
 * in one folder exclude each other: each takes the lock of the folder (TLIBCFolderLockTake) and
 * waits for it at most 30 seconds, then fails with 0x900. On a file system without flock every
 * writer fails so at once. After a failure of a writer or of TLIBCFileTouch with 0x700, 0x900 or
 * 0x2800 errno says what the system refused.
 */

typedef struct TLIBCFolderLock TLIBCFolderLock;

/* Takes the lock that the writers below take, of the folder szFolder (through symbolic links), so
 * that no writer of any process changes a file in it: to copy the folder, or to replace it as a
 * whole. Waits at most 30 seconds. The lock is the file .tavo-write/lock in the folder, locked with
 * flock. Only users who may write to the folder can take it. A lock whose process ends is free.
 * Whoever removes what is in the folder removes the lock with it: a writer that waited can take a
 * new one in what is left.
 *
 * Release it with TLIBCFolderLockRelease, from any thread. The lock is not recursive: its holder
 * must not call a writer for a file of that folder meanwhile. It belongs to the process that took
 * it, but where that ends without releasing it, a child made by fork keeps the folder locked until
 * it ends or runs another program. A platform may lack these two functions.
 *
 * NULL on failure: 0xD00 for a NULL or empty path, 0x700 for a missing folder, 0x900 when the lock
 * is held by others all that time, the caller may not write to the folder, something else is in the
 * lock's place, or, at once, when the file system has no flock, 0x200 out of memory. */
TAVOCORE_API TLIBCFolderLock *TLIBCFolderLockTake(const char *szFolder);

/* Unlocks and frees pLock; NULL is accepted. The folder may have been removed or replaced
 * meanwhile; a copy of the lock file that came with its replacement is removed. In a child process
 * that inherited pLock it only frees the memory. The error state is unchanged. */
TAVOCORE_API void TLIBCFolderLockRelease(TLIBCFolderLock *pLock);

/* Takes a snapshot of szPath for the calling thread: until TLIBCFileRelease, the reading functions
 * below, given the very same path, read the snapshot instead of opening the file again. A change of
 * that file by a writer below in the same thread ends the hold; changes by others are not seen, so
 * compute no change from a held reading. A platform may lack these two, so callers look whether
 * they are there. 0; -1 when it cannot, or the thread holds a file already. Sets no error: who
 * cannot hold a file reads it all the same. */
TAVOCORE_API int TLIBCFileHold(const char *szPath);

/* Ends what TLIBCFileHold began, which a thread must do before it ends; nothing when the thread
 * holds no file. */
TAVOCORE_API void TLIBCFileRelease(void);

/* Appends the section names of szPath to *ppNames in file order, each name once. How many there
 * are, 0 when there are none; -1 on failure. */
TAVOCORE_API int TLIBCFileEnumSection(const char *szPath, TLIBCSzList **ppNames);

/* Empties *ppHash, then fills it with the keys of section szSection in file order. How many keys
 * there are, 0 when there is no such section or it is empty; -1 on failure, the table then being
 * empty. */
TAVOCORE_API int TLIBCFileGetSection(const char *szPath, const char *szSection,
                                     TLIBCSzHash **ppHash);

/* Makes the keys of section szSection those of pHash: keys that the table lacks are taken out, the
 * others set, new ones added in table order; a missing section is added. szReserved and nFlags are
 * the platform's; callers pass NULL and 0. 0; -1 on failure, a missing file included. */
TAVOCORE_API int TLIBCFileSetSection(const char *szPath, const char *szSection,
                                     const char *szReserved, const TLIBCSzHash *pHash, int nFlags);

/* Adds section szSection with the keys of pHash at the end of the file. A section that is there
 * already is filled in its place: the keys of the table are set, others stay. nFlags is the
 * platform's; callers pass 0. 0; -1 on failure, a missing file included. */
TAVOCORE_API int TLIBCFileAddSection(const char *szPath, const char *szSection,
                                     const TLIBCSzHash *pHash, int nFlags);

/* Sets one key of an existing section. 0; -1 on failure, a missing section included (0xD00). */
TAVOCORE_API int TLIBCFileSetSectionValue(const char *szPath, const char *szSection,
                                          const char *szKey, const char *szValue);

/* Takes section szSection out: its header and what follows up to its last line that is not blank or
 * a comment, and the blank lines behind that. Comments behind it stay: they lead the next section.
 * 0, also when there is no such section; -1 on failure. */
TAVOCORE_API int TLIBCFileRemoveSection(const char *szPath, const char *szSection);

/* Reads the value of key szKey, outside any section, into szBuf of cbBuf bytes (cut to fit). 1
 * found, 0 absent, -1 when the file cannot be read or an argument is bad. szBuf is always
 * terminated, and empty unless the key was found. */
TAVOCORE_API int TLIBCFileGetKeyValue(const char *szPath, const char *szKey, char *szBuf,
                                      int cbBuf);

/* Whether key szKey, outside any section, has the value szValue, letters compared without case when
 * blIgnoreCase is not 0. 1 equal; 0 not equal, absent or unreadable (which sets the error). */
TAVOCORE_API int TLIBCFileCheckKeyValue(const char *szPath, const char *szKey, const char *szValue,
                                        int blIgnoreCase);

/* Appends the lines of szPath, without their line ends, to *ppLines. It reads to the end whatever
 * size the file reports, so the tables of /proc come whole; a line is cut at a NUL byte. How many
 * lines there are; -1 on failure. */
TAVOCORE_API int TLIBCFileReadLines(const char *szPath, TLIBCSzList **ppLines);

/* 1 when szPath names an existing entry of any kind, a folder too; 0 when it does not, as for a
 * symbolic link to nothing or NULL. Sets no error. */
TAVOCORE_API int TLIBCFileExist(const char *szPath);

/* Makes an empty file szPath (mode 0644 less the umask), or sets the times of an existing entry to
 * now. 0; -1 on failure. */
TAVOCORE_API int TLIBCFileTouch(const char *szPath);

/* ---- Programs ----
 *
 * Each runs szProgram (a path; no shell, no search) with its arguments, up to the first NULL, and
 * waits for it. The exit status 0..255; 128 + n when signal n ended it; -1 only when it could not
 * be run (0xD00 for a NULL program, 0x700 when there is no such file, 0x200 out of memory, 0x900
 * otherwise).
 *
 * Standard input is empty where none is given, standard output and error are the caller's, and no
 * other descriptor of the caller, nor its signal mask and handlers, reaches the program. It works
 * in a caller that ignores SIGCHLD: for the time of the call the signal then has its default
 * action. A caller that collects the status of every child in another thread (waitpid(-1)) may get
 * it before this does; the result is then -1 with 0x900, though the program ran.
 */

/* Up to four arguments, absent ones NULL. */
TAVOCORE_API int TLIBCExec(const char *szProgram, const char *szArg1, const char *szArg2,
                           const char *szArg3, const char *szArg4);

/* Any number of arguments, ended by NULL. nOptions is the platform's and has no effect here. */
TAVOCORE_API int TLIBCExecl(const char *szProgram, int nOptions, const char *szArg, ... /* NULL */);

/* Runs szProgram with the argument szArg or, for NULL, without one, and with the cbInput bytes at
 * pInput as its standard input: a file in memory, whole before the program starts, so that it may
 * read as much of it as it likes. pInput may be NULL when cbInput is 0.
 *
 * The program leads a process group of its own and has nSeconds, at least 1, to end. When they are
 * over the group gets SIGTERM and, once the program has ended or 2 seconds later, SIGKILL; the
 * result is -1 with 0x900. What a program that ends in time leaves running is left alone.
 *
 * Fails as the two above, and with 0xD00 for a bad input or limit and 0x200 or 0x900 when the input
 * cannot be held. A platform may lack this function: of what is here only libtavopluginsdk, as the
 * host builds it, calls it. */
TAVOCORE_API int TLIBCExecInput(const char *szProgram, const char *szArg, const void *pInput,
                                size_t cbInput, int nSeconds);

#ifdef __cplusplus
}
#endif

#endif /* TAVOCORE_H */
