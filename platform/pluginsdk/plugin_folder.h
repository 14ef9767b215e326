// The plugins of one folder.
#ifndef TAVO_PLATFORM_PLUGINSDK_PLUGIN_FOLDER_H
#define TAVO_PLATFORM_PLUGINSDK_PLUGIN_FOLDER_H

#include <string_view>

namespace tavo {

// Runs every plugin of ROOT/GROUP for `action`, with `input` as its standard input. 0, also without
// such a folder; -1 with the error set when anything fails, all others having run. `group` is a
// file name.
int RunPluginsOf(const char *root, const char *group, const char *action, std::string_view input);

}  // namespace tavo

#endif
