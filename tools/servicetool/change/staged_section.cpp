#include "change/staged_section.h"

#include <cstring>
#include <stdexcept>
#include <string_view>

#include "change/private_folder.h"
#include "config_lines.h"
#include "input/input_file.h"
#include "input/library_failure.h"
#include "input/library_owners.h"
#include "input/service_file.h"

namespace tavo::tool {
namespace {

constexpr int kTableSize = 64;
constexpr char kStagedName[] = "staged.sc";

// Goes with every call that is given a copy or a table to work on. The library reports what the
// system refused and what it does not accept by the same -1, and tells them apart by the code.
void Require(bool done) {
    if (done) {
        return;
    }
    ThrowIfSystemFailed("the change cannot be worked out");
    throw std::runtime_error(
        "the change cannot be worked out: a text is too long or holds "
        "what a service file cannot");
}

// A copy of the file, to be changed as the file will be.
class StagedFile {
  public:
    explicit StagedFile(const FileText &before)
        : path_(folder_.Make(kStagedName, before.value_or(""))) {
        ForgetFailure();
    }

    const char *Path() const { return path_.c_str(); }
    FileText Text() const {
        FileContents contents = ReadRegularFile(path_);
        if (!contents.problem.empty()) {
            throw std::runtime_error("the change cannot be worked out: " + contents.problem);
        }
        return std::move(contents.text);
    }

    // The keys that a section has, and how many.
    int Read(const std::string &section, const OwnedTable &keys) const {
        TLIBCSzHash *table = keys.get();
        const int count = TLIBCFileGetSection(Path(), section.c_str(), &table);
        Require(count >= 0);
        return count;
    }

  private:
    PrivateFolder folder_;
    std::string path_;
};

OwnedTable NewTable() {
    return OrThrow(OwnedTable(TLIBCSzHashAlloc(kTableSize)));
}

std::string RequiredPortsValue(const TAVO_SERVICE_CONF_PORT &ports) {
    std::string value = PortsValue(ports);
    if (value.empty()) {
        throw std::runtime_error("the ports take more than the " +
                                 std::to_string(kLongestPortsValue) +
                                 " bytes that a service file has for them");
    }
    return value;
}

void SetQuoted(const OwnedTable &keys, const char *key, const std::string &text) {
    const std::string value = '"' + text + '"';
    Require(TLIBCSzHashSetValue(keys.get(), key, value.c_str()) == 0);
}

// Keys of the section that are not set here are read afterwards as they were before.
void QuoteReadKeys(const OwnedTable &keys) {
    const char *key = nullptr;
    const char *value = nullptr;
    for (int i = 0; TLIBCSzHashEnum(keys.get(), i, &key, &value) == 0; ++i) {
        if (NeedsQuotes(value)) {
            SetQuoted(keys, key, value);
        }
    }
}

// Without a section and a key there is no reference; what the file has then stays.
void SetReference(const OwnedTable &keys, const char *key, const TAVO_SERVICE_CONF_STRING &string) {
    if (*string.szSection == '\0' || *string.szKey == '\0') {
        return;
    }
    SetQuoted(keys, key, ReferenceText(string));
}

void SetKeys(const OwnedTable &keys, const TAVO_SERVICE_CONF_SECTION &section) {
    SetQuoted(keys, "port_forward", section.blPortForward == 1 ? "yes" : "no");
    SetQuoted(keys, "desc", section.strDesc.szText);
    SetReference(keys, "desc_key", section.strDesc);
    SetQuoted(keys, "title", section.strTitle.szText);
    SetReference(keys, "title_key", section.strTitle);
    SetQuoted(keys, "dst.ports", RequiredPortsValue(*section.pDstPorts));
    if (section.pSrcPorts != nullptr) {
        SetQuoted(keys, "src.ports", RequiredPortsValue(*section.pSrcPorts));
    }
}

// Whether the file declares no service.
bool DeclaresNothing(const StagedFile &file) {
    OwnedNames names = OrThrow(OwnedNames(TLIBCSzListAlloc(kTableSize)));
    TLIBCSzList *list = names.get();
    const int count = TLIBCFileEnumSection(file.Path(), &list);
    static_cast<void>(names.release());
    names.reset(list);
    Require(count >= 0);
    return count == 0 || (count == 1 && std::strcmp(TLIBCSzListGet(list, 0), "global") == 0);
}

}  // namespace

// The library cuts what is longer.
std::string PortsValue(const TAVO_SERVICE_CONF_PORT &ports) {
    constexpr int kSize = kLongestPortsValue + 1;
    char numbers[kSize];
    char protocols[kSize];
    ForgetFailure();
    if (TLIBServiceConfPortsToStr(&ports, numbers, kSize, protocols, kSize) != 0) {
        ThrowIfSystemFailed("the ports cannot be written");
        return "";
    }
    std::string value = std::string(numbers) + '/' + protocols;
    return value.size() > kLongestPortsValue ? "" : value;
}

FileText WithSection(const FileText &before, const TAVO_SERVICE_CONF_SECTION &section) {
    const StagedFile file(before);
    const OwnedTable keys = NewTable();
    const bool present = file.Read(section.szName, keys) > 0;
    QuoteReadKeys(keys);
    SetKeys(keys, section);
    Require((present ? TLIBCFileSetSection(file.Path(), section.szName, nullptr, keys.get(), 0)
                     : TLIBCFileAddSection(file.Path(), section.szName, keys.get(), 0)) == 0);
    return file.Text();
}

FileText WithPorts(const FileText &before, const std::string &section,
                   const TAVO_SERVICE_CONF_PORT &ports) {
    const StagedFile file(before);
    const char *key = ports.nDirection == TAVO_PORT_DIRECTION_SRC ? "src.ports" : "dst.ports";
    Require(TLIBCFileSetSectionValue(file.Path(), section.c_str(), key,
                                     RequiredPortsValue(ports).c_str()) == 0);
    return file.Text();
}

FileText WithoutSection(const FileText &before, const std::string &section) {
    const StagedFile file(before);
    Require(TLIBCFileRemoveSection(file.Path(), section.c_str()) == 0);
    return DeclaresNothing(file) ? FileText() : file.Text();
}

}  // namespace tavo::tool
