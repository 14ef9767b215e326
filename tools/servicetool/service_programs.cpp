#include "service_programs.h"

#include <algorithm>
#include <memory>
#include <new>
#include <string>
#include <string_view>
#include <vector>

#include "library_log.h"
#include "tavoserviceconf.h"
#include "text.h"

namespace tavo {
namespace {

constexpr std::string_view kServiceFileSuffix = ".sc";

struct FreeNames {
    void operator()(TLIBCSzList *names) const { TLIBCSzListFree(names); }
};

// Daemons often have a "d" behind the name of what they serve.
void AddNames(const std::string &name, std::vector<std::string> &names) {
    if (!name.empty()) {
        names.push_back(name);
    }
    if (name.size() > 1 && name.ends_with('d')) {
        names.push_back(name.substr(0, name.size() - 1));
    }
}

// What a process calls itself does not count: its program and its unit are not for it to choose.
std::vector<std::string> NamesOf(const HoldingProcess &process) {
    std::vector<std::string> names;
    AddNames(process.unit, names);
    if (!process.program.empty()) {
        AddNames(process.name, names);
    }
    return names;
}

// The service file's name without its folder and suffix, which is the package's name; "" where no
// service file declares the service.
std::string_view PackageOf(const PortHolder &service) {
    std::string_view name = service.file;
    if (!name.ends_with(kServiceFileSuffix)) {
        return {};
    }
    name.remove_suffix(kServiceFileSuffix.size());
    return name.substr(name.rfind('/') + 1);
}

// Names become parts of paths in the library, so only those that cannot lead elsewhere are asked
// for.
bool IsPlain(const std::string &name) {
    return name.find('/') == std::string::npos && name != "." && name != "..";
}

bool HasSection(const std::string &name, const std::string &section) {
    if (!IsPlain(name)) {
        return false;
    }
    const LibraryLog log;
    TLIBCSzList *list = TLIBCSzListAlloc(0);
    if (list == nullptr) {
        throw std::bad_alloc();
    }
    TAVOFwSectionNameEnum(name.c_str(), &list);
    const std::unique_ptr<TLIBCSzList, FreeNames> sections(list);
    return TLIBCSzListFind(list, section.c_str()) >= 0;
}

// Packages live in folders of their names.
bool LiesInFolderOf(std::string_view package, std::string_view program) {
    return !package.empty() &&
           program.find('/' + std::string(package) + '/') != std::string_view::npos;
}

}  // namespace

bool IsProgramOf(const HoldingProcess &process, const PortHolder &service) {
    const std::string_view package = PackageOf(service);
    const std::vector<std::string> names = NamesOf(process);
    return (!package.empty() && Holds(names, package)) ||
           (!service.name.empty() &&
            (Holds(names, service.name) || std::any_of(names.begin(), names.end(),
                                                       [&](const std::string &name) {
                                                           return HasSection(name, service.name);
                                                       }))) ||
           LiesInFolderOf(package, process.program);
}

}  // namespace tavo
