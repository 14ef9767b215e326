/*
 * libtavopluginsdk: calling the plugins of the appliance.
 *
 * The part of the appliance's plugin library that libtavoserviceconf calls. Plugins come in groups;
 * a call names a group and an action, carries arguments, and reaches every plugin of the group.
 *
 * The plugins of group GROUP are the executables of /usr/tavo/lib/plugins/GROUP, the system's, and
 * of /usr/local/lib/plugins/GROUP, those of packages: regular files, through symbolic links too,
 * that this process may execute. Other entries are passed over. A plugin
 *
 *  - gets the action as its only argument;
 *  - reads the arguments of the call from its standard input, each as KEY=VALUE and a NUL byte
 *    (what "env -0" prints), in the order in which the keys were first set. It is a file in
 *    memory, its own, and it may leave it unread;
 *  - has the caller's environment, working folder, standard output and standard error, but none of
 *    its other descriptors, its signal mask or its handlers. It leads a process group of its own;
 *  - reports success with exit status 0, and failure with any other or by a signal;
 *  - has 60 seconds. Then its process group gets SIGTERM and, 2 seconds later at the latest,
 *    SIGKILL, and the plugin counts as failed. What a plugin that ends in time leaves running is
 *    left alone.
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
 * name (empty, longer than 255 bytes, ".", "..", with a "/" in it) or a NULL szAction (0xD00), and
 * when memory runs out (0x200). Free with TLIBPluginExit. */
TAVOPLUGINSDK_API TLIBPluginHandle *TLIBPluginSDKInit(const char *szGroup, const char *szAction);

/* Sets the argument szKey, any text without "=", to a copy of szValue, any text. A key that is set
 * again takes the new value and keeps its place. 0; -1 when an argument is NULL, or szKey empty or
 * with a "=" in it (0xD00), and when memory runs out (0x200). */
TAVOPLUGINSDK_API int TLIBPluginSetArg(TLIBPluginHandle *pHandle, const char *szKey,
                                       const char *szValue);

/* Runs the plugins one after the other, each folder in the order of the names' bytes, the system's
 * first, and waits for each. nMode is the platform's and has no effect here. The handle stays as it
 * is and may be used again.
 *
 * 0 when each of them succeeded, also when there are none or there is no folder. -1 when a folder
 * cannot be listed, or a plugin fails or cannot be run (0x900), when memory runs out (0x200) and
 * for NULL (0xD00); neither a plugin that fails nor a folder that cannot be listed keeps the others
 * from running, and the code is that of the last failure. */
TAVOPLUGINSDK_API int TLIBPluginAction(int nMode, TLIBPluginHandle *pHandle);

/* What TLIBPluginActionReport calls when a plugin has ended: szPath is its path, nStatus its exit
 * status, 128 + n after signal n, or -1 when it could not be run or was out of time (0x900, or
 * 0x200 out of memory). A folder that cannot be listed is reported by its path and -1 (likewise).
 * szPath lives as long as the call. */
typedef void (*TLIBPluginReport)(const char *szPath, int nStatus, void *pContext);

/* TLIBPluginAction that reports each plugin, in the order in which they run. pReport gets pContext
 * with each; NULL reports nothing. */
TAVOPLUGINSDK_API int TLIBPluginActionReport(int nMode, TLIBPluginHandle *pHandle,
                                             TLIBPluginReport pReport, void *pContext);

/* Frees the handle; NULL is ignored. */
TAVOPLUGINSDK_API void TLIBPluginExit(TLIBPluginHandle *pHandle);

#ifdef __cplusplus
}
#endif

#endif /* TAVOPLUGINSDK_H */
