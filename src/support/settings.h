// The settings files of the appliance, for the library.
#ifndef TAVO_SRC_SUPPORT_SETTINGS_H
#define TAVO_SRC_SUPPORT_SETTINGS_H

#include "base/system_files.h"

#endif
