// Any change records, names and ports from a caller. An invalid record is rejected, and nothing is
// changed. Any other record changes nothing but the services folders, their copies next to them and
// the copies in /tmp, and none of the copies remains.
//
// An input is the change (one byte), the record as in memory, a port as in memory, and the name,
// title and description of a section, each NUL-terminated. Missing parts of a short input are zero.
// Running programs would take a thousand times as long as the rest, so they are replaced by
// stand-ins.
#include <algorithm>
#include <cstdarg>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <filesystem>
#include <string>
#include <string_view>
#include <vector>

#include "fuzz_appliance.h"
#include "tavocore.h"
#include "tavoserviceconf.h"

namespace {

namespace fs = std::filesystem;
using Param = TAVO_SERVICE_CONF_SET_PARAM;

constexpr const char *kServiceFolders[] = {"/usr/tavo/etc/services.d", "/usr/local/etc/services.d"};
constexpr std::string_view kGame = "[game]\ntitle=Game\ndesc=A game\ndst.ports=\"7001/tcp\"\n";

// ---- Programs ----

int g_started = 0;

// The paths where a change may write.
void CheckPath(std::string_view path) {
    Require(path.starts_with("/tmp/") || path.starts_with("/usr/tavo/etc/") ||
            path.starts_with("/usr/local/etc/"));
    Require(("/" + std::string(path) + "/").find("/../") == std::string::npos);
}

// Does what the program would do; returns its status.
int Stand(std::string_view program, const std::vector<const char *> &arguments) {
    std::vector<fs::path> paths;
    for (const char *argument : arguments) {
        if (*argument == '/') {
            CheckPath(argument);
            paths.emplace_back(argument);
        }
    }
    std::error_code failed;
    if (program == "/bin/mkdir") {
        fs::create_directories(paths.at(0), failed);
    } else if (program == "/bin/rm") {
        fs::remove_all(paths.at(0), failed);
    } else if (program == "/bin/mv") {
        fs::rename(paths.at(0), paths.at(1), failed);
    } else if (program == "/bin/cp") {
        fs::copy(paths.at(0), paths.at(1),
                 fs::copy_options::recursive | fs::copy_options::overwrite_existing, failed);
    }
    return failed ? 1 : 0;
}

}  // namespace

extern "C" {

__attribute__((visibility("default"))) int TLIBCExec(const char *szProgram, const char *szArg1,
                                                     const char *szArg2, const char *szArg3,
                                                     const char *szArg4) {
    ++g_started;
    std::vector<const char *> arguments = {szArg1, szArg2, szArg3, szArg4};
    arguments.erase(std::find(arguments.begin(), arguments.end(), nullptr), arguments.end());
    return Stand(szProgram, arguments);
}

// The tools of the firewall and of the service manager.
__attribute__((visibility("default"))) int TLIBCExecl(const char * /*szProgram*/, int /*nOptions*/,
                                                      const char * /*szArg*/, ...) {
    ++g_started;
    return 0;
}

}  // extern "C"

namespace {

// ---- The appliance ----

std::vector<std::string> Names(const char *folder) {
    std::vector<std::string> names;
    for (const fs::directory_entry &entry : fs::directory_iterator(folder)) {
        names.push_back(entry.path());
    }
    std::sort(names.begin(), names.end());
    return names;
}

// The entries around the services folders.
std::vector<std::string> Surroundings() {
    std::vector<std::string> all;
    for (const char *folder : {"/", "/tmp", "/usr/local", "/usr/local/etc", "/usr/tavo",
                               "/usr/tavo/etc", "/usr/tavo/etc/portforward"}) {
        const std::vector<std::string> names = Names(folder);
        all.insert(all.end(), names.begin(), names.end());
    }
    return all;
}

void PlaceServices() {
    for (const char *folder : kServiceFolders) {
        for (const std::string &name : Names(folder)) {
            fs::remove_all(name);
        }
        PlaceFile((std::string(folder) + "/game.sc").c_str(), kGame);
    }
}

bool ServicesAreUntouched() {
    return std::all_of(std::begin(kServiceFolders), std::end(kServiceFolders),
                       [](const char *folder) {
                           const std::string game = std::string(folder) + "/game.sc";
                           return Names(folder) == std::vector<std::string>{game} &&
                                  fs::file_size(game) == kGame.size();
                       });
}

// ---- The input ----

// Takes as many bytes of the input as the record has.
template <typename Record>
Record Take(std::string_view &input) {
    Record record = {};
    const std::size_t size = std::min(input.size(), sizeof(record));
    std::memcpy(&record, input.data(), size);
    input.remove_prefix(size);
    return record;
}

template <std::size_t Size>
void TakeText(std::string_view &input, char (&field)[Size]) {
    const std::string_view text = input.substr(0, input.find('\0'));
    std::copy_n(text.begin(), std::min(text.size(), Size), field);
    input.remove_prefix(std::min(input.size(), text.size() + 1));
}

// ---- Valid records ----

template <std::size_t Size>
std::string_view Text(const char (&field)[Size]) {
    return {field, strnlen(field, Size)};
}

bool IsWithin(std::uint32_t value, std::uint32_t highest) {
    return value >= 1 && value <= highest;
}

bool NamesAFile(const Param &param) {
    const std::string name(Text(param.szFileName));
    return !name.empty() && ("/" + name + "/").find("/../") == std::string::npos;
}

bool MaySet(const Param &param) {
    return IsWithin(param.nRestartMode, 2) && IsWithin(param.nRestartFlags, 31) &&
           IsWithin(param.nWriteMode, 3) && IsWithin(param.nCheckFlags, 31) &&
           IsWithin(param.nLocation, 3) && NamesAFile(param) && !Text(param.szSectionName).empty();
}

bool MayRemove(const Param &param) {
    return IsWithin(param.nRestartMode, 2) &&
           (param.nRestartMode == 1 || (param.nRestartFlags & 15) != 0) && param.nWriteMode == 3 &&
           (param.nCheckFlags & 4) != 0 && (param.nLocation & 3) % 3 != 0 && NamesAFile(param);
}

bool MayBackUp(const Param &param) {
    return (param.nCheckFlags & 15) != 0 &&
           ((param.nCheckFlags & 4) == 0 || (param.nLocation & 3) != 0);
}

// ---- Changes ----

struct Asked {
    Param param;
    TAVO_SERVICE_CONF_PORT port;
    TAVO_SERVICE_CONF_SECTION section;

    explicit Asked(std::string_view input)
        : param(Take<Param>(input)), port(Take<TAVO_SERVICE_CONF_PORT>(input)), section{} {
        port.pNext = nullptr;
        TakeText(input, section.szName);
        TakeText(input, section.strTitle.szText);
        TakeText(input, section.strDesc.szText);
        section.pDstPorts = &port;
        // The query of the sockets needs a slot for each port of a range, so that a range of
        // billions needs too much memory.
        if (std::max(port.nPortStart, port.nPortEnd) > 65535) {
            param.nCheckFlags &= ~static_cast<std::uint32_t>(TAVO_PORT_CHECK_RUNTIME);
        }
    }

    bool HasSection() const {
        return !Text(section.szName).empty() && !Text(section.strTitle.szText).empty() &&
               !Text(section.strDesc.szText).empty();
    }
};

struct Change {
    int (*make)(const Asked &);
    bool (*may)(const Asked &);
};

constexpr Change kChanges[] = {
    {[](const Asked &asked) { return TLIBServiceConfSectionSet(&asked.param, &asked.section); },
     [](const Asked &asked) { return MaySet(asked.param) && asked.HasSection(); }},
    {[](const Asked &asked) { return TLIBServiceConfPortsSet(&asked.param, &asked.port); },
     [](const Asked &asked) { return MaySet(asked.param); }},
    {[](const Asked &asked) { return TAVOServiceConfRemove(&asked.param); },
     [](const Asked &asked) { return MayRemove(asked.param); }},
    {[](const Asked &asked) { return TLIBServiceConfSectionRemove(&asked.param); },
     [](const Asked &asked) {
         return MayRemove(asked.param) && !Text(asked.param.szSectionName).empty();
     }},
    {[](const Asked &asked) {
         const int result = TLIBServiceConfBackup(&asked.param);
         Require(TLIBServiceConfRestore(&asked.param) == result);
         Require(TLIBServiceBackupConfDelete(&asked.param) == result);
         return result;
     },
     [](const Asked &asked) { return MayBackUp(asked.param); }},
};

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size) {
    QuietLog();
    tavo::test::RequireAppliance();
    if (size == 0) {
        return 0;
    }
    if (!ServicesAreUntouched()) {
        PlaceServices();
    }
    static const std::vector<std::string> surroundings = Surroundings();
    const Asked asked({reinterpret_cast<const char *>(data) + 1, size - 1});
    const Change &change = kChanges[*data % std::size(kChanges)];
    g_started = 0;
    TLIBCErrSetEx(0, nullptr, 0);
    const int result = change.make(asked);
    Require(result == 0 || result == -1);
    if (!change.may(asked)) {
        Require(result == -1 && TLIBCErrGet() == 0xD00);
        Require(g_started == 0 && ServicesAreUntouched());
    }
    Require(Surroundings() == surroundings);
    return 0;
}
