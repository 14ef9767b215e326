// The sources of taken ports that are files, with one reader for the whole engine. The readers are
// defined next to TLIBIsPortConflict because their log lines name its source file.
#ifndef TAVO_SRC_ENGINE_CONFLICT_SOURCES_H
#define TAVO_SRC_ENGINE_CONFLICT_SOURCES_H

#include <optional>

#include "base/system_files.h"
#include "support/held_file.h"
#include "support/owners.h"
#include "tavoserviceconf.h"

namespace tavo {

// The bits of TAVO_PORT_CHECK_* that select a source.
constexpr int kEverySource = TAVO_PORT_CHECK_PORT_FORWARD | TAVO_PORT_CHECK_FW_SERVICE |
                             TAVO_PORT_CHECK_SYS_KEY | TAVO_PORT_CHECK_RUNTIME;

// The sources of a check of a whole file. Its author cannot know the rules of the router.
constexpr int kSourcesOfFiles = kEverySource & ~TAVO_PORT_CHECK_PORT_FORWARD;

// A query for this single port always conflicts; a query for a range that contains it does not.
constexpr int kReservedPort = 412;

// ---- Port-forwarding rules ----

constexpr char kRuleService[] = "service_id";
constexpr char kRuleTitle[] = "service name";
constexpr char kRuleProtocol[] = "protocol name";
constexpr char kRuleAppliancePorts[] = "s_port";
constexpr char kRuleRouterPorts[] = "r_port";

// A rule forwards ports of the router to ports of the appliance. Missing keys are null.
struct ForwardingRule {
    const char *section = nullptr;
    const char *service = nullptr;
    const char *title = nullptr;
    const char *protocol = nullptr;
    const char *appliance_ports = nullptr;
    const char *router_ports = nullptr;

    // The first required key that is missing; null if there is none.
    const char *MissingKey() const {
        return protocol == nullptr          ? kRuleProtocol
               : appliance_ports == nullptr ? kRuleAppliancePorts
               : router_ports == nullptr    ? kRuleRouterPorts
                                            : nullptr;
    }
};

// Reads the rules in file order. The file is held for the lifetime of the object.
class ForwardingRules {
  public:
    enum class Step { kRule, kEnd, kFailed };

    // The texts of the rule are valid until the next call. A missing file has no rules. A failure
    // is logged and sets the error state.
    Step Next(ForwardingRule &rule);

    const char *Path() const { return path_; }

    // The errno of the check for the file; 0 if the file exists.
    int LookError() const { return look_error_; }

    // The section that could not be read; null if the file itself could not be read.
    const char *FailedSection() const;

  private:
    Step Open();
    Step Read(const char *section);

    const char *path_ = nullptr;
    int look_error_ = 0;
    OwnedTable keys_;
    OwnedNames names_;
    std::optional<HeldFile> held_;
    int next_ = -1;  // -1: the file has not been opened yet
};

// ---- Settings of the system ----

struct ServiceSetting {
    const char *service;  // skipping this name skips the setting
    const char *key;
};

// In reading order. The passive ports of FTP are not compared; they only must be readable. The FTP
// library reads them, from the key for the high port.
constexpr ServiceSetting kServiceSettings[] = {
    {"ftp", kFtpPortKey},
    {"ftp", kFtpLowPortKey},
    {"webdav_http", "WebDavPort"},
    {"webdavs_https", "secure_WebDavPort"},
    {"syslog_server", "syslogport"},
};

// Adds the port that the settings contain for the key, if any. Returns 0, or -1 on failure: out of
// memory (error code 0x200), unreadable settings, or a value that is not a port. Only the last one
// is not logged.
int GetServicePort(const char *key, TAVO_PORT_RANGE *set);

}  // namespace tavo

#endif
