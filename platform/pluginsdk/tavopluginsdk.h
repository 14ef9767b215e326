/*
 * libtavopluginsdk: calling the plugins of the appliance.
 *
 * The part of the appliance's plugin library that libtavoserviceconf calls. Plugins are in groups;
 * a call names a group and an action, has arguments, and runs every plugin of the group.
 *
 * The plugins of group GROUP are the executables of /usr/tavo/lib/plugins/GROUP, the system's, and
 * of /usr/local/lib/plugins/GROUP, those of packages: regular files, through symbolic links too,
 * that this process may execute. Other entries are ignored. A plugin
 *
 *  - gets the action as its only argument;
 *  - reads the arguments of the call from its standard input, each as KEY=VALUE and a NUL byte
 *    (the format of "env -0"), in the order in which the keys were first set. The input is a file
 *    in memory, one per plugin, and need not be read;
 *  - inherits the environment, working folder, standard output and standard error of the caller,
 *    but no other descriptor, signal mask or handler. It is in its own process group;
 *  - reports success with exit status 0, and failure with any other or by a signal;
 *  - has 60 seconds. After that its process group gets SIGTERM and, at most 2 seconds later,
 *    SIGKILL, and the plugin counts as failed. Processes that a plugin leaves running when it
 *    ends in time are not stopped.
 */
#ifndef TAVOPLUGINSDK_H
#define TAVOPLUGINSDK_H

#include <tavocore.h>

#if defined(__GNUC__)
#define TAVOPLUGINSDK_API __attribute__((visibility("default")))
#else
#define TAVOPLUGINSDK_API
#endif

#ifdef __cplusplus
extern "C" {
#endif

/* A call in preparation: group, action and arguments. */
typedef struct TLIBPluginHandle TLIBPluginHandle;

/* A call of the plugins of szGroup for szAction, without arguments yet. A group is the name of a
 * folder, an action any text ("port_config/update"). NULL for a szGroup that is NULL or no such
 * name (empty, longer than 255 bytes, ".", "..", or containing a "/") or a NULL szAction (0xD00),
 * and when memory runs out (0x200). Free with TLIBPluginExit. */
TAVOPLUGINSDK_API TLIBPluginHandle *TLIBPluginSDKInit(const char *szGroup, const char *szAction);

/* Sets the argument szKey, any text without "=", to a copy of szValue, any text. A key that is set
 * again gets the new value and keeps its place. 0; -1 when an argument is NULL, or szKey is empty
 * or contains a "=" (0xD00), and when memory runs out (0x200). */
TAVOPLUGINSDK_API int TLIBPluginSetArg(TLIBPluginHandle *pHandle, const char *szKey,
                                       const char *szValue);

/* Runs the plugins one after the other, those of the system first, each folder sorted bytewise by
 * name, and waits for each. nMode is reserved for the platform and ignored. The handle may be used
 * again.
 *
 * 0 when each of them succeeded, also when there are none or there is no folder. -1 when a folder
 * cannot be listed, or a plugin fails or cannot be run (0x900), when memory runs out (0x200) and
 * for NULL (0xD00). After a plugin that fails or a folder that cannot be listed the others are
 * still run, and the code is that of the last failure. */
TAVOPLUGINSDK_API int TLIBPluginAction(int nMode, TLIBPluginHandle *pHandle);

/* Called by TLIBPluginActionReport when a plugin has ended: szPath is its path, nStatus its exit
 * status, 128 + n after signal n, or -1 if it could not be run or was stopped after its time
 * (0x900, or 0x200 out of memory). A folder that cannot be listed is reported with its path and -1
 * (likewise). szPath is valid during the call. */
typedef void (*TLIBPluginReport)(const char *szPath, int nStatus, void *pContext);

/* Like TLIBPluginAction, and calls pReport with pContext for each plugin, in the order in which
 * they run; pReport may be NULL. */
TAVOPLUGINSDK_API int TLIBPluginActionReport(int nMode, TLIBPluginHandle *pHandle,
                                             TLIBPluginReport pReport, void *pContext);

/* Frees the handle; NULL is ignored. */
TAVOPLUGINSDK_API void TLIBPluginExit(TLIBPluginHandle *pHandle);

#ifdef __cplusplus
}
#endif

#endif /* TAVOPLUGINSDK_H */
