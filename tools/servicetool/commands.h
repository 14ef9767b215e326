// The commands of servicetool. Each reports what it finds, and its status with it.
#ifndef TAVO_SERVICETOOL_COMMANDS_H
#define TAVO_SERVICETOOL_COMMANDS_H

#include <string>
#include <vector>

#include "report.h"

namespace tavo {

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

}  // namespace tavo

#endif
