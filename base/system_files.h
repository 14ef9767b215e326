// Files, folders and keys of the appliance that are used by more than one library or program.
#ifndef TAVO_BASE_SYSTEM_FILES_H
#define TAVO_BASE_SYSTEM_FILES_H

namespace tavo {

// The directories of service files.
inline constexpr char kSystemServiceDirectory[] = "/usr/tavo/etc/services.d";
inline constexpr char kPackageServiceDirectory[] = "/usr/local/etc/services.d";

// Settings: those of the administrator, and the properties of this model.
inline constexpr char kSettingsFile[] = "/etc/tavoinfo.conf";
inline constexpr char kFactorySettingsFile[] = "/etc.defaults/tavoinfo.conf";

// The settings of the FTP server: its port, and the range of ports for passive mode.
inline constexpr char kFtpPortKey[] = "ftpport";
inline constexpr char kFtpLowPortKey[] = "ftplowport";
inline constexpr char kFtpHighPortKey[] = "ftphighport";

// The configuration of the SSH server, sshd_config(5).
inline constexpr char kSshConfigFile[] = "/etc/ssh/sshd_config";

// The configuration of the NFS server, and its keys for the ports of statd and the lock manager.
inline constexpr char kNfsConfigFile[] = "/etc/nfs/tavo_nfs_conf";
inline constexpr char kNfsStatdPortKey[] = "statd_port";
inline constexpr char kNfsLockManagerPortKey[] = "nlm_port";

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
