// Files and folders of the appliance that are used by more than one library or program.
#ifndef TAVO_BASE_SYSTEM_FILES_H
#define TAVO_BASE_SYSTEM_FILES_H

namespace tavo {

// The directories of service files.
inline constexpr char kSystemServiceDirectory[] = "/usr/tavo/etc/services.d";
inline constexpr char kPackageServiceDirectory[] = "/usr/local/etc/services.d";

// Settings: those of the administrator, and the properties of this model.
inline constexpr char kSettingsFile[] = "/etc/tavoinfo.conf";
inline constexpr char kFactorySettingsFile[] = "/etc.defaults/tavoinfo.conf";

// The lock files of changes. /run is empty after each boot, so the folder is created if it is
// missing. This is a macro because the paths of the locks are built from it.
#define TAVO_LOCK_FOLDER "/run/tavoserviceconf"

// The socket tables of the kernel for IPv4 and IPv6. A kernel without IPv6 lacks the latter.
inline constexpr char kTcpTable[] = "/proc/net/tcp";
inline constexpr char kTcp6Table[] = "/proc/net/tcp6";
inline constexpr char kUdpTable[] = "/proc/net/udp";
inline constexpr char kUdp6Table[] = "/proc/net/udp6";

}  // namespace tavo

#endif
