// appliance: runs a command in a private appliance.
//
// The words after -- belong to the command. They are removed before the options are parsed, so that
// no argument of the command is interpreted as an option.
#include <getopt.h>

#include <algorithm>
#include <cstdio>
#include <exception>
#include <string>
#include <string_view>
#include <system_error>
#include <vector>

#include "failure.h"
#include "inside.h"
#include "run.h"

namespace {

constexpr char kHelp[] =
    R"(Runs a command in a private appliance, with its own paths, settings, services, process table,
network and system log. The appliance is removed when the command ends.
Usage: appliance run [--root DIR] [--with FILE...] -- COMMAND [ARG...]

Options:
  -h,--help                   Print this help and exit
  --version                   Print the version and exit

Options of run:
  --root DIR                  Create its files in DIR, empty or absent, and keep them
  --with FILE ...             Copy files of the host into it

FILE is SOURCE:/TARGET, or SOURCE alone, which is copied to /usr/local/etc/services.d, the folder of
the packages' service files.

Examples:
  appliance run -- servicetool list
  appliance run --with my-service.sc -- servicetool show my-service
  appliance run --with my.conf:/etc/tavoinfo.conf -- bash -l
  appliance run --root look -- tavofirewall --reload; cat look/run/calls/tavofirewall

Inside:
  /run/log/messages      the messages sent to the system log, a line each
  /run/calls/NAME        the calls of NAME: tavofirewall, tavoroutertool, systemctl and the plugin
                         portforward only record their calls; /run/calls/all has all calls in order
  /run/exit-status/NAME  the exit statuses of the next calls of NAME, a line each
  /run/active-units      the units that systemctl reports as active, a line each

Exit status: that of COMMAND; 128 + N if signal N killed it; 125 if the appliance cannot be started,
126 if COMMAND cannot be run, 127 if COMMAND does not exist.
)";

constexpr char kSeeHelp[] = " (see appliance run --help)";

[[noreturn]] void Refuse(const std::string &problem) {
    throw tavo::Failure(problem + kSeeHelp);
}

enum : int { kOperand = 1, kHelpOption = 'h', kVersionOption = 256, kRoot, kWith };

constexpr option kOptions[] = {{"help", no_argument, nullptr, kHelpOption},
                               {"version", no_argument, nullptr, kVersionOption},
                               {"root", required_argument, nullptr, kRoot},
                               {"with", required_argument, nullptr, kWith},
                               {}};

// The words before "--", parsed.
struct Request {
    bool run = false;
    bool help = false;
    bool version = false;
    bool files = false;  // further words are files of --with
    tavo::RunOptions options;
};

void ReadOperand(const std::string &word, Request &request) {
    if (request.files) {
        request.options.extra_files.push_back(word);
    } else if (request.run) {
        throw tavo::Failure("unexpected argument " + word +
                            ": COMMAND must follow --, as in appliance run -- " + word);
    } else if (word != "run") {
        Refuse("unknown subcommand " + word + ", it must be run");
    } else {
        request.run = true;
    }
}

void ReadOption(int code, const std::string &word, Request &request) {
    const bool known = code == kHelpOption || (code == kVersionOption ? !request.run : request.run);
    if (code == '?' || !known) {
        Refuse("unknown option " + word);
    } else if (code == ':') {
        Refuse(word + " needs a value");
    } else if (code == kRoot) {
        request.options.root = optarg;
    } else if (code == kWith) {
        request.options.extra_files.emplace_back(optarg);
    }
    request.help = request.help || code == kHelpOption;
    request.version = request.version || code == kVersionOption;
    request.files = code == kWith;
}

Request ReadWords(int argc, char *argv[]) {
    Request request;
    opterr = 0;
    for (;;) {
        const int word = optind;
        const int code = getopt_long(argc, argv, "-:h", kOptions, nullptr);
        if (code == -1) {
            return request;
        }
        if (code == kOperand) {
            ReadOperand(optarg, request);
        } else {
            ReadOption(code, argv[word], request);
        }
    }
}

int Main(int argc, char *argv[]) {
    char **const separator = std::find(argv, argv + argc, std::string_view("--"));
    Request request = ReadWords(static_cast<int>(separator - argv), argv);
    if (request.help) {
        std::fputs(kHelp, stdout);
        return 0;
    }
    if (request.version) {
        std::puts("appliance " APPLIANCE_VERSION);
        return 0;
    }
    if (!request.run) {
        Refuse("a subcommand is required: run");
    }
    if (argv + argc - separator < 2) {
        Refuse("-- COMMAND is required");
    }
    request.options.command.assign(separator + 1, argv + argc);
    return tavo::RunAppliance(request.options);
}

}  // namespace

int main(int argc, char *argv[]) {
    try {
        if (argc > 3 && std::string_view(argv[1]) == tavo::kInsideCommand) {
            return tavo::BecomeCommand(argv);
        }
        return Main(argc, argv);
    } catch (const std::system_error &error) {
        // what() is meant for programmers and contains temporary paths.
        std::fprintf(stderr, "appliance: %s\n", tavo::ErrorText(error.code().value()).c_str());
        return tavo::kOwnFailure;
    } catch (const std::exception &error) {
        std::fprintf(stderr, "appliance: %s\n", error.what());
        return tavo::kOwnFailure;
    }
}
