#include "ports/service_programs.h"

#include <algorithm>
#include <string>
#include <string_view>
#include <vector>

#include "input/library_owners.h"
#include "output/text.h"
#include "tavoserviceconf.h"

namespace tavo::tool {
namespace {

constexpr std::string_view kServiceFileSuffix = ".sc";

// Where service files of packages lie, and the packages, each in the folder of its name.
constexpr std::string_view kPackageFilesFolder = "/usr/local/etc/services.d/";
constexpr std::string_view kPackagesFolder = "/usr/local/packages/";

// Daemons often have a "d" behind the name of what they serve.
void AddNames(const std::string &name, std::vector<std::string> &names) {
    if (!name.empty()) {
        names.push_back(name);
    }
    if (name.size() > 1 && name.ends_with('d')) {
        names.push_back(name.substr(0, name.size() - 1));
    }
}

// What a process calls itself does not count: that it may change whenever it likes.
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

// Only the files of packages are named after them.
bool LiesInPackageOf(const PortHolder &service, std::string_view package,
                     std::string_view program) {
    return !package.empty() && service.file.starts_with(kPackageFilesFolder) &&
           program.starts_with(std::string(kPackagesFolder) + std::string(package) + '/');
}

}  // namespace

std::optional<bool> ProgramsOfServices::Owns(const PortHolder &service,
                                             const HoldingProcess &process) {
    const std::string_view package = PackageOf(service);
    const std::vector<std::string> names = NamesOf(process);
    if ((!package.empty() && Holds(names, package)) ||
        (!service.name.empty() &&
         (Holds(names, service.name) || HasSection(names, service.name))) ||
        LiesInPackageOf(service, package, process.program)) {
        return true;
    }
    return process.program.empty() ? std::nullopt : std::optional(false);
}

ProgramsOfServices::Owner ProgramsOfServices::OwnerAmong(const Services &services,
                                                         const HoldingProcess &process) {
    Owner owner;
    for (const PortHolder *service : services) {
        const std::optional<bool> owns = Owns(*service, process);
        if (owns.value_or(false)) {
            return {service, true};
        }
        owner.known = owner.known && owns;
    }
    return owner;
}

bool ProgramsOfServices::HasSection(const std::vector<std::string> &names,
                                    const std::string &section) {
    return std::any_of(names.begin(), names.end(), [&](const std::string &name) {
        return SectionsFor(name).contains(section);
    });
}

const ProgramsOfServices::Sections &ProgramsOfServices::SectionsFor(const std::string &name) {
    const auto [known, is_new] = sections_.try_emplace(name);
    if (is_new && IsPlain(name)) {
        TLIBCSzList *list = OrThrow(OwnedNames(TLIBCSzListAlloc(0))).release();
        TAVOFwSectionNameEnum(name.c_str(), &list);
        const OwnedNames owner(list);
        for (int i = 0; i < TLIBCSzListCount(list); ++i) {
            known->second.insert(TLIBCSzListGet(list, i));
        }
    }
    return known->second;
}

}  // namespace tavo::tool
