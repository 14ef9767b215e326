// Files and folders of the appliance that more than one library or program uses.
#ifndef TAVO_BASE_SYSTEM_FILES_H
#define TAVO_BASE_SYSTEM_FILES_H

namespace tavo {

// Where service files live.
inline constexpr char kSystemServiceDirectory[] = "/usr/tavo/etc/services.d";
inline constexpr char kPackageServiceDirectory[] = "/usr/local/etc/services.d";

// Settings: what the administrator has set, and what this model is and supports.
inline constexpr char kSettingsFile[] = "/etc/tavoinfo.conf";
inline constexpr char kFactorySettingsFile[] = "/etc.defaults/tavoinfo.conf";

// The locks of changes. /run is empty after each start, so the folder is made when it is missing.
// A macro, since the names of the locks in it are made of it.
#define TAVO_LOCK_FOLDER "/run/tavoserviceconf"

// The kernel's tables of sockets, for IPv4 and IPv6. A kernel without IPv6 lacks the second.
inline constexpr char kTcpTable[] = "/proc/net/tcp";
inline constexpr char kTcp6Table[] = "/proc/net/tcp6";
inline constexpr char kUdpTable[] = "/proc/net/udp";
inline constexpr char kUdp6Table[] = "/proc/net/udp6";

}  // namespace tavo

#endif
