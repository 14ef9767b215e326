// The sources of taken ports that are files, as everything in the engine reads them. The readers
// are defined beside TLIBIsPortConflict: their log lines name its source file.
#ifndef TAVO_SRC_ENGINE_CONFLICT_SOURCES_H
#define TAVO_SRC_ENGINE_CONFLICT_SOURCES_H

#include <optional>

#include "support/held_file.h"
#include "support/owners.h"
#include "tavoserviceconf.h"

namespace tavo {

// The bits of TAVO_PORT_CHECK_* that name a source.
constexpr int kEverySource = TAVO_PORT_CHECK_PORT_FORWARD | TAVO_PORT_CHECK_FW_SERVICE |
                             TAVO_PORT_CHECK_SYS_KEY | TAVO_PORT_CHECK_RUNTIME;

// Named on its own, this port always counts as taken; a range that contains it does not.
constexpr int kReservedPort = 412;

// ---- Port-forwarding rules ----

constexpr char kRuleService[] = "service_id";
constexpr char kRuleTitle[] = "service name";
constexpr char kRuleProtocol[] = "protocol name";
constexpr char kRuleAppliancePorts[] = "s_port";
constexpr char kRuleRouterPorts[] = "r_port";

// A rule leads ports of the router to ports of the appliance. A key that it lacks is null.
struct ForwardingRule {
    const char *section = nullptr;
    const char *service = nullptr;
    const char *title = nullptr;
    const char *protocol = nullptr;
    const char *appliance_ports = nullptr;
    const char *router_ports = nullptr;

    // The first key that a rule needs and this one lacks; null when it has them all.
    const char *MissingKey() const {
        return protocol == nullptr          ? kRuleProtocol
               : appliance_ports == nullptr ? kRuleAppliancePorts
               : router_ports == nullptr    ? kRuleRouterPorts
                                            : nullptr;
    }
};

// Reads the rules one by one, in file order. The file is held while this lives.
class ForwardingRules {
  public:
    enum class Step { kRule, kEnd, kFailed };

    // The texts of the rule are valid until the next call. A file that is absent has no rules. A
    // failure is logged, and the error state holds its code.
    Step Next(ForwardingRule &rule);

    const char *Path() const { return path_; }

    // The errno of the look for the file; 0 when it is there.
    int LookError() const { return look_error_; }

    // The section that could not be read; null when the file could not.
    const char *FailedSection() const;

  private:
    Step Open();
    Step Read(const char *section);

    const char *path_ = nullptr;
    int look_error_ = 0;
    OwnedTable keys_;
    OwnedNames names_;
    std::optional<HeldFile> held_;
    int next_ = -1;  // -1: the file has not been opened
};

// ---- Settings of the system ----

// The two keys of the passive range of FTP. It takes no part in any comparison, it only has to be
// known: what the settings hold for it is read by the FTP library, from the key for the high port.
constexpr char kFtpLowPortKey[] = "ftplowport";
constexpr char kFtpHighPortKey[] = "ftphighport";

struct ServiceSetting {
    const char *service;  // the name that skips it
    const char *key;
};

// In the order in which they are read.
constexpr ServiceSetting kServiceSettings[] = {
    {"ftp", "ftpport"},
    {"ftp", kFtpLowPortKey},
    {"webdav_http", "WebDavPort"},
    {"webdavs_https", "secure_WebDavPort"},
    {"syslog_server", "syslogport"},
};

// Adds the port that the settings name under the key, if they name one. Returns 0, or -1 after a
// failure: out of memory (error code 0x200), settings that cannot be read, or a value that is no
// port, which alone makes no log line.
int GetServicePort(const char *szKey, TAVO_PORT_RANGE *pSet);

}  // namespace tavo

#endif
