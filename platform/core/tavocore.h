/*
 * libtavocore: error state, strings, lists, configuration files and programs.
 *
 * The base of all libraries of the appliance. This header is the contract; the host build beside it
 * implements it on any Linux machine, and an appliance has its own implementation.
 *
 * Conventions
 *
 *  1. Text is NUL-terminated bytes, independent of the locale. "Blank" is one of the six
 *     white space characters of ASCII; "letter" is an ASCII letter.
 *  2. An int result is 0 on success and -1 on failure, or a count, unless stated otherwise.
 *  3. A failure records an error code with its source file and line (TLIBCErrSetEx). A success
 *     does not clear it. The codes are TLIBC_ERR_*; other libraries add their own.
 *  4. On failure outputs are unchanged unless stated otherwise.
 *  5. Functions that push to a list take the address of its handle. In this build a handle never
 *     changes: *ppList has the same value before and after a call.
 *  6. The caller frees results with the function named in their description; strings looked up
 *     in a list or table belong to the container, and are valid until it changes them or is
 *     freed.
 *  7. The error state is per thread, and so is a file held with TLIBCFileHold; no other state is
 *     kept between calls. Different objects may be used from different threads at once; one
 *     object needs a lock of the caller.
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
            * is not a regular file; a program that cannot be run */
#define TLIBC_ERR_BAD_PARAMETER 0xD00U     /* invalid argument, or text that would break a file */
#define TLIBC_ERR_RENAME 0x2800U           /* the new file cannot be renamed over the old one */
#define TLIBC_ERR_BUFFER_TOO_SMALL 0xBF00U /* the text does not fit into the caller's buffer */

/* Records error nError, found at line nLine of szFile, for the calling thread. The name is copied
 * (at most 255 bytes); NULL is the same as "". Code 0 clears the state: file "" and line 0. */
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

/* A new, empty list. It grows as needed; nCapacity, which may be any number, is a hint. NULL when
 * memory runs out (0x200). Free with TLIBCSzListFree. */
TAVOCORE_API TLIBCSzList *TLIBCSzListAlloc(int nCapacity);

/* Appends a copy of szItem. Returns the new count; -1 for a NULL argument (0xD00) or when memory
 * runs out (0x200). */
TAVOCORE_API int TLIBCSzListPush(TLIBCSzList **ppList, const char *szItem);

/* The string at nIndex (from 0), owned by the list; NULL if the index is out of range or pList is
 * NULL; sets no error. */
TAVOCORE_API const char *TLIBCSzListGet(const TLIBCSzList *pList, int nIndex);

/* The index of the first string equal to szItem, -1 if there is none or an argument is NULL; sets
 * no error. Searches linearly. */
TAVOCORE_API int TLIBCSzListFind(const TLIBCSzList *pList, const char *szItem);

/* The number of strings in the list, 0 for NULL. */
TAVOCORE_API int TLIBCSzListCount(const TLIBCSzList *pList);

/* Removes and frees the string at nIndex; the following ones move up. 0; -1 (0xD00) if there is no
 * such index. */
TAVOCORE_API int TLIBCSzListRemove(TLIBCSzList *pList, int nIndex);

/* Frees the list and its strings; NULL is accepted. */
TAVOCORE_API void TLIBCSzListFree(TLIBCSzList *pList);

/* Writes every string, each followed by a newline, to pStream; nothing if either is NULL. */
TAVOCORE_API void TLIBCISzListDump(const TLIBCSzList *pList, FILE *pStream);

/* ---- Table of strings by string ---- */

typedef struct TLIBCSzHash TLIBCSzHash;

/* A new, empty table. It grows as needed; nCapacity, which may be any number, is a hint. NULL when
 * memory runs out (0x200). Free with TLIBCSzHashFree. */
TAVOCORE_API TLIBCSzHash *TLIBCSzHashAlloc(int nCapacity);

/* Stores a copy of szValue under a copy of szKey. An existing key keeps its place and gets the new
 * value; szValue may be the value that the table returned for the same key. 0; -1 for a NULL
 * argument (0xD00) or when memory runs out (0x200), the table then being unchanged. */
TAVOCORE_API int TLIBCSzHashSetValue(TLIBCSzHash *pHash, const char *szKey, const char *szValue);

/* The value of szKey, owned by the table and valid until that key is set again or the table is
 * cleared or freed; NULL when the key is absent or an argument is NULL, no error set. */
TAVOCORE_API const char *TLIBCSzHashGetValue(const TLIBCSzHash *pHash, const char *szKey);

/* The number of keys in the table, 0 for NULL. */
TAVOCORE_API int TLIBCSzHashCount(const TLIBCSzHash *pHash);

/* Returns entry nIndex (from 0) in the order in which the keys were first set; pszKey and pszValue
 * may each be NULL. 0; -1 (no error set) when there is no such index or pHash is NULL. */
TAVOCORE_API int TLIBCSzHashEnum(const TLIBCSzHash *pHash, int nIndex, const char **pszKey,
                                 const char **pszValue);

/* Removes every key. NULL is accepted. */
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

/* A new, empty list. Without pfnCopy the list stores the appended pointers themselves; without
 * pfnFree it does not free its elements. NULL when memory runs out (0x200). Free with
 * TLIBCDListFree. */
TAVOCORE_API TLIBCDList *TLIBCDListAlloc(TLIBCDListCopyFn pfnCopy, TLIBCDListFreeFn pfnFree);

/* Appends a copy of pElement, which the caller still owns. 0; -1 for a NULL argument (0xD00), when
 * the copy function fails (the error is the copy function's) or when memory runs out (0x200). */
TAVOCORE_API int TLIBCDListAppend(TLIBCDList *pList, const void *pElement);

/* The number of elements in the list, 0 for NULL. */
TAVOCORE_API int TLIBCDListCount(const TLIBCDList *pList);

/* The first node, NULL for an empty list or NULL. */
TAVOCORE_API TLIBCDListNode *TLIBCDListFirst(const TLIBCDList *pList);

/* The node after pNode, NULL after the last one or for NULL. */
TAVOCORE_API TLIBCDListNode *TLIBCDListNext(const TLIBCDListNode *pNode);

/* The element of a node, owned by the list; NULL for NULL. */
TAVOCORE_API void *TLIBCDListElement(const TLIBCDListNode *pNode);

/* Frees the list, its nodes and, with its free function, every element; NULL is accepted. */
TAVOCORE_API void TLIBCDListFree(TLIBCDList *pList);

/* ---- Strings ---- */

/* Splits szText at each of the characters of szSeparators and appends the non-empty pieces to
 * *ppList. Returns their number; -1 for a NULL argument or list (0xD00) or when memory runs out
 * (0x200), the list then being unchanged. */
TAVOCORE_API int TLIBCStrTok(const char *szText, const char *szSeparators, TLIBCSzList **ppList);

/* The same including empty pieces: "a,,b," gives "a", "", "b", "", and "" gives one empty piece. */
TAVOCORE_API int TLIBCStrSep(const char *szText, const char *szSeparators, TLIBCSzList **ppList);

/* Copies the non-empty piece number nIndex (from 0) into szBuf of cbBuf bytes, the terminator
 * included. 1 found; 0 no such piece, szBuf then ""; -1 for bad arguments (0xD00) or a piece that
 * does not fit (0xBF00), szBuf then being unchanged. */
TAVOCORE_API int TLIBCStrTokIndex(const char *szText, const char *szSeparators, int nIndex,
                                  char *szBuf, int cbBuf);

/* Removes the blanks at both ends, in place. 0; -1 for NULL (0xD00). */
TAVOCORE_API int TLIBCStrTrimSpace(char *szText);

/* Copies szText into szBuf of cbBuf bytes in lower case; szBuf may be szText. 0; -1 for bad
 * arguments (0xD00) or when it does not fit (0xBF00), szBuf then being unchanged. */
TAVOCORE_API int TLIBCStrCaseLower(const char *szText, char *szBuf, int cbBuf);

/* Appends szText to the text in *pszBuffer, which is NULL (then *pcbBuffer counts as 0) or a block
 * from malloc of *pcbBuffer bytes; the block grows as needed and *pcbBuffer with it. The caller
 * frees it with free. 0; -1 for invalid arguments (0xD00) or when memory runs out (0x200), both
 * then being unchanged. */
TAVOCORE_API int TLIBCStrCat(char **pszBuffer, int *pcbBuffer, const char *szText);

/* A new text formatted as by printf, to be released with TLIBCStrPut; NULL for a NULL format or a
 * failure of printf (0xD00), or when memory runs out (0x200). */
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
 *  - A line is a comment when its first non-blank character is # or ;. Blank lines are ignored.
 *    A line that, without the blanks around it, starts with [ and ends with ] starts the section
 *    named between them. Any other line that contains a = is key=value, split at the first =, key
 *    and value trimmed. CRLF is read as LF, the last line needs no newline, lines may have
 *    any length, and a UTF-8 byte-order mark at the start of the file is ignored.
 *  - A value that starts and ends with " (two of them) is read without that one pair. Nothing
 *    else is special inside a value: there are no escapes and no trailing comments.
 *  - The last of two equal keys counts; two sections of one name are one section. Names and keys
 *    are case-sensitive.
 *  - A line that is none of these, including one with an empty key or a NUL byte, is
 *    ignored by the readers and kept by the writers.
 *
 * Readers open without blocking and accept only regular files (symbolic links are followed), so a
 * pipe or a device is an error and does not block. A missing file is 0x700, one that cannot be
 * opened or read 0x900, out of memory 0x200, a NULL argument 0xD00.
 *
 * Writers change only the named section and keep every other byte: order, comments, blank lines,
 * spelling. An existing key keeps its place (if it is given more than once, the line that counts
 * gets the value), new keys are inserted after the last line of the section that is not blank or a
 * comment, and a new section is appended to the file. Values are written as given, key=value, so
 * blanks and one pair of quotes around them are lost when they are read.
 *
 * A line that already has the value keeps its spelling, and the file is not written if no line
 * changes:
 *  - TLIBCFileSetSectionValue keeps a line whose raw value is the given text, apart from blanks
 *    around either: k=1 for 1, but not k="1".
 *  - TLIBCFileSetSection and TLIBCFileAddSection also keep a line that is read as the value, k="1"
 *    for 1, so keys that were read and are written back keep every byte. A value given in quotes,
 *    "1", is compared as raw text: k=1 and k=""1"" both become k="1". A caller that writes back a
 *    value that was read with quotes or blanks at its ends must put a pair of quotes around it.
 *
 * A name or key that would not be read back as given, and a newline anywhere, is refused with
 * 0xD00, and the file is unchanged. Lines that are kept are not checked.
 *
 * A change is atomic: the new text is written to a temporary file beside the target, which gets its
 * mode and owner, is flushed to disk and renamed over it, and the folder is flushed. Symbolic links
 * are followed. After a failure the old file is complete; only if the folder can neither be flushed
 * nor get its old file back, it has the complete new one. Writers in one folder exclude each other:
 * each takes the lock of the folder (TLIBCFolderLockTake), waits for it at most 30 seconds, and
 * then fails with 0x900. On a file system without flock every writer fails at once with that code.
 * If a writer or TLIBCFileTouch fails with 0x700, 0x900 or 0x2800, errno is that of the failed
 * system call.
 */

typedef struct TLIBCFolderLock TLIBCFolderLock;

/* Takes the lock of the writers below for the folder szFolder (symbolic links are followed), so
 * that no writer of any process changes a file in it while the folder is copied or replaced. Waits
 * at most 30 seconds. The lock is the file .tavo-write/lock in the folder, locked with flock. Only
 * users who may write to the folder can take it. It is released when the process ends. Removing the
 * contents of the folder also removes the lock: a waiting writer can then take a new one.
 *
 * Release it with TLIBCFolderLockRelease, from any thread. The lock is not recursive: its holder
 * must not call a writer for a file of that folder meanwhile. It belongs to the process that took
 * it, but if that ends without releasing it, a child process created by fork keeps the folder
 * locked until it ends or runs another program. A platform may lack these two functions.
 *
 * NULL on failure: 0xD00 for a NULL or empty path, 0x700 for a missing folder, 0x900 if others hold
 * the lock all that time, the caller may not write to the folder, the lock file cannot be created,
 * or, at once, if the file system has no flock, 0x200 out of memory. */
TAVOCORE_API TLIBCFolderLock *TLIBCFolderLockTake(const char *szFolder);

/* Unlocks and frees pLock; NULL is accepted. The folder may have been removed or replaced
 * meanwhile; a copy of the lock file that came with its replacement is removed. In a child process
 * that inherited pLock it only frees the memory. The error state is unchanged. */
TAVOCORE_API void TLIBCFolderLockRelease(TLIBCFolderLock *pLock);

/* Takes a snapshot of szPath for the calling thread: until TLIBCFileRelease, the reading functions
 * below, called with the same path, read the snapshot instead of opening the file again. A change
 * of that file by a writer below in the same thread ends the hold; changes by others are not seen,
 * so do not compute a change from a held file. A platform may lack these two functions, so callers
 * check whether they exist. 0; -1 on failure, or if the thread already holds a file. Sets no error,
 * since the file can be read without a hold. */
TAVOCORE_API int TLIBCFileHold(const char *szPath);

/* Holds szPath in place of the file that the thread holds, for a caller that reads the files of a
 * folder one after the other. The last component of szPath is opened in the open folder nFolder. 0;
 * -1 on failure, the thread then holding no file, or if it held none. Sets no error. A platform may
 * lack this function. */
TAVOCORE_API int TLIBCFileHoldNext(int nFolder, const char *szPath);

/* Ends the hold, which a thread must do before it ends; does nothing if the thread holds no file.
 */
TAVOCORE_API void TLIBCFileRelease(void);

/* Appends the section names of szPath to *ppNames in file order, each name once. Returns their
 * number; -1 on failure. */
TAVOCORE_API int TLIBCFileEnumSection(const char *szPath, TLIBCSzList **ppNames);

/* Empties *ppHash, then fills it with the keys of section szSection in file order. Returns the
 * number of keys, 0 if there is no such section or it is empty; -1 on failure, the table then being
 * empty. */
TAVOCORE_API int TLIBCFileGetSection(const char *szPath, const char *szSection,
                                     TLIBCSzHash **ppHash);

/* Replaces the keys of section szSection by those of pHash: keys that are not in the table are
 * removed, the others set, new ones added in table order; a missing section is added. szReserved
 * and nFlags are reserved for the platform; callers pass NULL and 0. 0; -1 on failure, including a
 * missing file. */
TAVOCORE_API int TLIBCFileSetSection(const char *szPath, const char *szSection,
                                     const char *szReserved, const TLIBCSzHash *pHash, int nFlags);

/* Adds section szSection with the keys of pHash at the end of the file. If the section exists, the
 * keys of the table are set in it and others are kept. nFlags is reserved for the platform; callers
 * pass 0. 0; -1 on failure, including a missing file. */
TAVOCORE_API int TLIBCFileAddSection(const char *szPath, const char *szSection,
                                     const TLIBCSzHash *pHash, int nFlags);

/* Sets one key of an existing section. 0; -1 on failure, including a missing section (0xD00). */
TAVOCORE_API int TLIBCFileSetSectionValue(const char *szPath, const char *szSection,
                                          const char *szKey, const char *szValue);

/* Removes section szSection: its header, the lines up to its last one that is not blank or a
 * comment, and the blank lines after that. Comments after it are kept: they belong to the next
 * section. 0, also if there is no such section; -1 on failure. */
TAVOCORE_API int TLIBCFileRemoveSection(const char *szPath, const char *szSection);

/* Reads the value of key szKey, outside any section, into szBuf of cbBuf bytes (truncated to fit).
 * 1 found, 0 absent, -1 when the file cannot be read or an argument is bad. szBuf is always
 * terminated, and empty unless the key was found. */
TAVOCORE_API int TLIBCFileGetKeyValue(const char *szPath, const char *szKey, char *szBuf,
                                      int cbBuf);

/* Whether key szKey, outside any section, has the value szValue, letters compared without case when
 * blIgnoreCase is not 0. 1 equal; 0 not equal, absent or unreadable (which sets the error). */
TAVOCORE_API int TLIBCFileCheckKeyValue(const char *szPath, const char *szKey, const char *szValue,
                                        int blIgnoreCase);

/* Appends the lines of szPath, without their line ends, to *ppLines. It reads to the end regardless
 * of the size that the file reports, so tables of /proc are complete; a line ends at a NUL byte.
 * Returns the number of lines; -1 on failure. */
TAVOCORE_API int TLIBCFileReadLines(const char *szPath, TLIBCSzList **ppLines);

/* 1 if szPath exists, whatever its type; 0 if not, also for a dangling symbolic link and NULL. Sets
 * no error. */
TAVOCORE_API int TLIBCFileExist(const char *szPath);

/* Creates an empty file szPath (mode 0644 less the umask), or sets the times of an existing entry
 * to now. 0; -1 on failure. */
TAVOCORE_API int TLIBCFileTouch(const char *szPath);

/* ---- Programs ----
 *
 * Each runs szProgram (a path; no shell, no search) with its arguments, up to the first NULL, and
 * waits for it. The exit status 0..255; 128 + n when signal n ended it; -1 only when it could not
 * be run (0xD00 for a NULL program, 0x700 when there is no such file, 0x200 out of memory, 0x900
 * otherwise).
 *
 * Standard input is empty unless given, standard output and error are those of the caller, and the
 * program inherits no other descriptor, signal mask or handler. It works in a caller that ignores
 * SIGCHLD: during the call the signal then has its default action. If another thread of the caller
 * waits for any child (waitpid(-1)), it may get the status first; the result is then -1 with 0x900,
 * although the program ran. */

/* Up to four arguments, absent ones NULL. */
TAVOCORE_API int TLIBCExec(const char *szProgram, const char *szArg1, const char *szArg2,
                           const char *szArg3, const char *szArg4);

/* Any number of arguments, terminated by NULL. nOptions is reserved for the platform and ignored.
 */
TAVOCORE_API int TLIBCExecl(const char *szProgram, int nOptions, const char *szArg, ... /* NULL */);

/* Runs szProgram with the argument szArg or, for NULL, without one, and with the cbInput bytes at
 * pInput as its standard input: a file in memory that is complete before the program starts, so the
 * program need not read all of it. pInput may be NULL when cbInput is 0.
 *
 * The program is in its own process group and has nSeconds, at least 1, to end. After that the
 * group gets SIGTERM and, when the program has ended or 2 seconds later, SIGKILL; the result is -1
 * with 0x900. Processes that a program leaves running when it ends in time are not stopped.
 *
 * Fails as the two above, and with 0xD00 for an invalid input or limit and 0x200 or 0x900 if the
 * file in memory cannot be made. A platform may lack this function: only the host build of
 * libtavopluginsdk calls it. */
TAVOCORE_API int TLIBCExecInput(const char *szProgram, const char *szArg, const void *pInput,
                                size_t cbInput, int nSeconds);

#ifdef __cplusplus
}
#endif

#endif /* TAVOCORE_H */
