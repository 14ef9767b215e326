// The settings files of the appliance.
#ifndef TAVO_SRC_SUPPORT_SETTINGS_H
#define TAVO_SRC_SUPPORT_SETTINGS_H

namespace tavo {

// What the administrator has set.
constexpr char kSettingsFile[] = "/etc/tavoinfo.conf";

// What this model is and supports.
constexpr char kFactorySettingsFile[] = "/etc.defaults/tavoinfo.conf";

}  // namespace tavo

#endif
