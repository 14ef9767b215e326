// The plugins of one folder.
#ifndef TAVO_PLATFORM_PLUGINSDK_PLUGIN_FOLDER_H
#define TAVO_PLATFORM_PLUGINSDK_PLUGIN_FOLDER_H

#include <string_view>

#include "tavopluginsdk.h"

namespace tavo {

// The caller of an action, who may want the exit status of each plugin.
struct PluginReport {
    TLIBPluginReport function;
    void *context;

    void operator()(const char *path, int status) const {
        if (function != nullptr) {
            function(path, status, context);
        }
    }
};

// Runs every plugin of ROOT/GROUP for `action`, with `input` as its standard input. `group` is a
// file name. Returns 0, also if the folder does not exist; -1 with the error set if anything fails,
// after all other plugins have run.
int RunPluginsOf(const char *root, const char *group, const char *action, std::string_view input,
                 const PluginReport &report);

}  // namespace tavo

#endif
