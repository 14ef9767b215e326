// The table of services without a service file, and the port providers: functions that determine
// the ports of those services whose ports an administrator can change.
//
// Other programs read the table directly, so it is constant data that needs no constructor.
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string_view>

#include "base/system_files.h"
#include "catalogue/firewall_service.h"
#include "model/port_text.h"
#include "support/failure.h"
#include "support/held_file.h"
#include "support/owners.h"
#include "support/text.h"
#include "tavoftp.h"
#include "tavoserviceconf.h"
#include "tavossh.h"

namespace {

// The fields in which the rows differ. Each row has destination ports, fixed ones or a provider,
// and no source ports. The texts are SECTION:KEY in the string tables of the user interface.
struct BuiltIn {
    const char *name;
    const char *support_key;
    uint32_t forwarded;
    std::string_view desc;
    std::string_view title;
    uint32_t protocol;
    const char *ports;
    TAVO_FW_PORT_PROVIDER provider = nullptr;
};
constexpr const char *kAlwaysSupported = nullptr;
constexpr uint32_t kForwarded = 1;
constexpr uint32_t kNotForwarded = 0;
constexpr const char *kFromProvider = nullptr;

consteval TAVO_SERVICE_CONF_STRING Text(std::string_view reference) {
    TAVO_SERVICE_CONF_STRING text = {};
    const std::size_t colon = reference.find(':');
    reference.substr(0, colon).copy(text.szSection, sizeof(text.szSection) - 1);
    reference.substr(colon + 1).copy(text.szKey, sizeof(text.szKey) - 1);
    return text;
}

consteval TAVO_FW_SERVICE_REG Row(const BuiltIn &service) {
    TAVO_FW_SERVICE_REG row = {};
    row.szName = service.name;
    row.szSupportKey = service.support_key;
    row.blSupportDefault = 1;
    row.blPortForward = service.forwarded;
    row.strDesc = Text(service.desc);
    row.strTitle = Text(service.title);
    row.blHasDstPorts = 1;
    row.nDstProtocol = service.protocol;
    row.szDstPorts = service.ports;
    row.pfnDstPorts = service.provider;
    return row;
}

}  // namespace

constinit const TAVO_FW_SERVICE_REG rgServices[13] = {
    Row({"telnet", kAlwaysSupported, kForwarded, "firewall:firewall_service_desc_telnet",
         "firewall:firewall_service_opt_telnet", TAVO_PROTO_TCP, "23"}),
    Row({"ssh", kAlwaysSupported, kForwarded, "firewall:firewall_service_desc_ssh",
         "firewall:firewall_service_opt_ssh", TAVO_PROTO_TCP, kFromProvider, TAVOFwPortsSSH}),
    Row({"ups_server", "supportups", kNotForwarded, "firewall:firewall_service_desc_ups",
         "tree:leaf_ups", TAVO_PROTO_TCP, "3493"}),
    Row({"lanprobed", kAlwaysSupported, kNotForwarded, "firewall:firewall_service_desc_lanprobed",
         "firewall:firewall_service_opt_lanprobed", TAVO_PROTO_UDP, "1234,9997,9998,9999"}),
    Row({"nfs", "supportNFS", kForwarded, "firewall:firewall_service_desc_nfs", "tree:leaf_nfs",
         TAVO_PROTO_BOTH, kFromProvider, TAVOFwPortsNFS}),
    Row({"afp", kAlwaysSupported, kForwarded, "firewall:firewall_service_desc_afp",
         "network:apple_subject", TAVO_PROTO_TCP, "548"}),
    Row({"ftp", kAlwaysSupported, kForwarded, "firewall:firewall_service_desc_ftp", "tree:leaf_ftp",
         TAVO_PROTO_TCP, kFromProvider, TAVOFTPFwPorts}),
    Row({"snmp", kAlwaysSupported, kNotForwarded, "firewall:firewall_service_desc_snmp",
         "tree:leaf_snmp", TAVO_PROTO_UDP, "161"}),
    // In the next two rows the description refers to the "opt" text and the title to the "desc"
    // text, unlike in all other rows. Programs that read the table expect this, so it is kept.
    Row({"bonjour", kAlwaysSupported, kNotForwarded, "firewall:firewall_service_opt_bonjour",
         "firewall:firewall_service_desc_bonjour", TAVO_PROTO_UDP, "5353"}),
    Row({"kx20", "cv_kx", kNotForwarded, "firewall:firewall_service_opt_kx20",
         "firewall:firewall_service_desc_kx20", TAVO_PROTO_UDP, "19999"}),
    Row({"lpr", kAlwaysSupported, kNotForwarded, "firewall:firewall_service_desc_lpr",
         "firewall:firewall_service_opt_lpr", TAVO_PROTO_TCP, "515"}),
    Row({"ipp", kAlwaysSupported, kNotForwarded, "firewall:firewall_service_desc_ipp",
         "firewall:firewall_service_opt_ipp", TAVO_PROTO_TCP, "631"}),
    {},
};

namespace {

// The size of the value of a setting; a longer value is truncated.
constexpr std::size_t kValueSize = 16;

// The fixed ports of the NFS server (portmapper, mountd, nfsd), and the default ports of statd and
// the lock manager, which the administrator can change.
constexpr char kNfsFixedPorts[] = "111,892,2049";
constexpr char kNfsStatdPort[] = "662";
constexpr char kNfsLockManagerPort[] = "4045";

constexpr unsigned int kDefaultSshPort = 22;

tavo::OwnedNames NewPortList() {
    tavo::OwnedNames ports(TLIBCSzListAlloc(tavo::kPortListCapacity));
    if (ports == nullptr) {
        TAVO_LOG("Failed to allocate for ports number, errno=0x%X", TLIBCErrGet());
    }
    return ports;
}

int PushNfsFixedPorts(TLIBCSzList *ports) {
    const tavo::OwnedText copy(strdup(kNfsFixedPorts));
    if (copy == nullptr) {
        return TAVO_FAIL(TLIBC_ERR_NO_MEMORY, "Failed to strdup, errno=0x%X",
                         static_cast<unsigned int>(errno));
    }
    for (char *rest = copy.get(); rest != nullptr;) {
        if (TLIBCSzListPush(&ports, tavo::CutPiece(rest, ',')) < 0) {
            return -1;
        }
    }
    return 0;
}

// Pushes the port that the administrator set under `key`, without validating it.
int PushNfsCustomPort(const char *key, const char *name, TLIBCSzList *ports) {
    char port[kValueSize];
    const int found = TLIBCFileGetKeyValue(tavo::kNfsConfigFile, key, port, sizeof(port));
    if (found < 1 || *port == '\0') {
        if (found >= 0) {
            TAVO_SET_ERROR(TLIBC_ERR_BAD_PARAMETER);
        }
        return TAVO_LOG("Failed to get val of '%s', errno=0x%X", name, TLIBCErrGet());
    }
    return TLIBCSzListPush(&ports, port);
}

// Pushes the ports of statd and the lock manager.
int PushNfsChosenPorts(TLIBCSzList *ports) {
    // The switch for custom ports and the ports must come from the same version of the file.
    const tavo::HeldFile held(tavo::kNfsConfigFile);
    char custom[kValueSize];
    if (TLIBCFileGetKeyValue(tavo::kNfsConfigFile, "nfs_custom_port_enable", custom,
                             sizeof(custom)) < 0) {
        return TAVO_LOG("Failed to get val of 'NFS custom port', errno=0x%X", TLIBCErrGet());
    }
    if (std::strcmp(custom, "yes") == 0) {
        if (PushNfsCustomPort(tavo::kNfsStatdPortKey, "NFS statd port", ports) < 0) {
            return -1;
        }
        return PushNfsCustomPort(tavo::kNfsLockManagerPortKey, "NFS nlockmgr port", ports);
    }
    if (TLIBCSzListPush(&ports, kNfsStatdPort) < 0) {
        return -1;
    }
    return TLIBCSzListPush(&ports, kNfsLockManagerPort);
}

// Reads a port from the settings. If it is absent or out of range, the default port of SSH is used.
int ReadSshPort(const char *key, unsigned int &port) {
    char text[kValueSize];
    if (TLIBCFileGetKeyValue(tavo::kSettingsFile, key, text, sizeof(text)) < 0) {
        return TAVO_LOG_STATE("Failed to get %s of tavoinfo.conf. ", key);
    }
    const long value = std::strtol(text, nullptr, 10);
    port =
        value >= 1 && value < tavo::kPortCount ? static_cast<unsigned int>(value) : kDefaultSshPort;
    return 0;
}

int PushPort(unsigned int port, TLIBCSzList *ports) {
    return TLIBCSzListPush(&ports, tavo::Decimal(port).Get());
}

// Stores a list with this one range in `*port_list` and frees it, which is kept. The callers of the
// two range providers use only the return value, and a list that is not freed would leak with every
// call.
int StoreReleasedRange(int first, int last, TLIBCSzList **port_list) {
    if (port_list == nullptr) {
        return TAVO_FAIL(TLIBC_ERR_BAD_PARAMETER, "Bad parameters");
    }
    const tavo::OwnedNames ports = NewPortList();
    if (ports == nullptr) {
        return -1;
    }
    TLIBCSzList *list = ports.get();
    if (TAVOFwIsSupportPortRange() != 0) {
        char range[2 * kValueSize];
        std::snprintf(range, sizeof(range), "%d-%d", first, last);
        if (TLIBCSzListPush(&list, range) < 0) {
            return -1;
        }
    }
    *port_list = list;
    return 0;
}

}  // namespace

// The only provider with a separate return value for invalid arguments.
int TAVOFwPortsNFS(TLIBCSzList **ppPortList) {
    if (ppPortList == nullptr) {
        TAVO_FAIL(TLIBC_ERR_BAD_PARAMETER, "Bad parameters");
        return -EINVAL;
    }
    tavo::OwnedNames ports = NewPortList();
    if (ports == nullptr || PushNfsFixedPorts(ports.get()) < 0) {
        return -1;
    }
    if (PushNfsChosenPorts(ports.get()) < 0) {
        return TAVO_LOG("Failed to push statd nlockmgr ports");
    }
    *ppPortList = ports.release();
    return 0;
}

int TAVOFwPortsSSH(TLIBCSzList **ppPortList) {
    if (ppPortList == nullptr) {
        return TAVO_FAIL(TLIBC_ERR_BAD_PARAMETER, "Bad parameters");
    }
    tavo::OwnedNames ports = NewPortList();
    if (ports == nullptr) {
        return -1;
    }
    const int server_port = TAVOServiceSSHPortGet();
    if (server_port < 0) {
        return TAVO_LOG("Failed to get ssh_port");
    }
    const auto ssh = static_cast<unsigned int>(server_port);
    unsigned int sftp = 0;
    unsigned int rsync = 0;
    if (ReadSshPort("sftpPort", sftp) < 0 || ReadSshPort("rsync_sshd_port", rsync) < 0) {
        return -1;
    }
    if (PushPort(ssh, ports.get()) < 0 || (sftp != ssh && PushPort(sftp, ports.get()) < 0) ||
        (rsync != ssh && rsync != sftp && PushPort(rsync, ports.get()) < 0)) {
        return -1;
    }
    *ppPortList = ports.release();
    return 0;
}

int TAVOFwPortsSurveillanceCamSearch(TLIBCSzList **ppPortList) {
    return StoreReleasedRange(55900, 55910, ppPortList);
}

int TAVOFwPortsMFP(TLIBCSzList **ppPortList) {
    return StoreReleasedRange(3240, 3259, ppPortList);
}

int TAVOFwIsSupportPortRange(void) {
    return 1;
}
