// The commands of servicetool. Each reports what it finds, and its status with it.
#ifndef TAVO_SERVICETOOL_COMMANDS_COMMANDS_H
#define TAVO_SERVICETOOL_COMMANDS_COMMANDS_H

#include <string>
#include <vector>

#include "change/installed_file.h"
#include "output/report.h"

namespace tavo::tool {

struct ListOptions {
    bool system = false;
    bool package = false;
    bool no_legend = false;
};

// One line per service of the service folders; both where neither is asked for.
void List(const ListOptions &options, Report &report);

// Everything about the services of that name, or about those of a file.
void Show(const std::string &target, Report &report);

struct LintOptions {
    bool strict = false;
    std::vector<std::string> files;
};

// Every problem of each file.
void Lint(const LintOptions &options, Report &report);

struct ServicesOptions {
    bool supported = false;  // only those that this model supports
    bool no_legend = false;
    std::vector<std::string> names;  // all where empty
};

// One line per service that the firewall can offer.
void Services(const ServicesOptions &options, Report &report);

struct CheckOptions {
    std::vector<std::string> ports;    // PORTS[/PROTOCOLS]
    std::vector<std::string> files;    // service files; asked for instead of ports
    std::vector<std::string> skip;     // service names
    std::vector<std::string> sources;  // names of sources; all where empty
    bool no_legend = false;
};

// Whether ports, or those that a service file declares, are taken, and by whom.
void Check(const CheckOptions &options, Report &report);

struct SuggestOptions {
    unsigned int count = 1;
    unsigned int near = 0;  // a port; 0 where none is asked for
    bool block = false;     // ports in a row
    std::string protocols;  // as in a port list; both where empty
};

// Ports that nobody declares and nobody holds.
void Suggest(const SuggestOptions &options, Report &report);

struct WhyOptions {
    std::vector<std::string> ports;  // PORT[/PROTOCOLS]
    bool no_legend = false;
};

// Who declares ports, who holds them now, and whether that is the same service.
void Why(const WhyOptions &options, Report &report);

struct PortsOptions {
    bool declared = false;  // only these kinds; all where none is asked for
    bool held = false;
    bool conflicts = false;  // only ports that more than one has a claim to
    bool map = false;        // a picture for the terminal instead of a table
    std::string svg;         // a file for the picture, besides; none where empty, and with
                             // kStandardOutput the picture alone
    bool no_legend = false;
};

// Every port that is declared or held, as a table or as a picture.
void Ports(const PortsOptions &options, Report &report);

struct InstallOptions {
    std::string source;  // "-" for standard input, which needs a name
    std::string name;    // of the installed file; that of the source where empty
    FolderChoice folder;
    bool force = false;  // go on where ports are taken, or where that cannot be told
    bool dry_run = false;
};

// Puts a service file into a service folder that has none of its name.
void Install(const InstallOptions &options, Report &report);

// Replaces an installed service file.
void Update(const InstallOptions &options, Report &report);

struct RemoveOptions {
    std::string name;
    FolderChoice folder;
    bool dry_run = false;
};

// Removes an installed service file.
void Remove(const RemoveOptions &options, Report &report);

// The section of an installed file that is to be changed.
struct SectionOptions {
    std::string file;
    std::string section;
    FolderChoice folder;
    bool no_restart = false;  // leaves firewall and relay daemon as they are
    bool dry_run = false;
};

// Texts that are empty stay as they are.
struct SetOptions : SectionOptions {
    std::string title;
    std::string description;
    std::string title_key;
    std::string description_key;
    std::string ports;
    std::string source_ports;
    bool port_forward = false;
    bool no_port_forward = false;
};

// Writes a section, which may be new, as may be its file.
void Set(const SetOptions &options, Report &report);

struct SetPortsOptions : SectionOptions {
    std::string ports;
    bool source = false;  // src.ports instead of dst.ports
};

// Replaces one port list of a section.
void SetPorts(const SetPortsOptions &options, Report &report);

// Removes a section, and its file where no other service is in it.
void RemoveSection(const SectionOptions &options, Report &report);

struct CleanOptions {
    bool dry_run = false;
};

// Removes what programs that were killed have left.
void Clean(const CleanOptions &options, Report &report);

struct RestartOptions {
    bool firewall = false;  // with the relay daemon; also where nothing is asked for
    bool relay = false;
    bool dry_run = false;
};

// Has the firewall and the relay daemon take up the ports that are declared.
void Restart(const RestartOptions &options, Report &report);

}  // namespace tavo::tool

#endif
