#include "change/staged_file.h"

#include <cerrno>
#include <new>
#include <optional>
#include <stdexcept>

#include "change/private_folder.h"
#include "input/input_file.h"
#include "input/library_failure.h"
#include "lifecycle/change.h"
#include "model/service_file_keys.h"

namespace tavo::tool {
namespace {

constexpr char kCannotStage[] = "the change cannot be worked out: ";

// What is neither memory nor refused by the system is not accepted by the core library.
void Require(int result, const StepFailure &failure) {
    if (result >= 0) {
        return;
    }
    if (failure.error == ENOMEM) {
        throw std::bad_alloc();
    }
    if (failure.error != 0) {
        throw std::runtime_error(kCannotStage + ErrorText(failure.error));
    }
    ThrowIfSystemFailed("the change cannot be worked out");
    throw std::runtime_error(std::string(kCannotStage) +
                             "a text is too long or holds what a service file cannot");
}

// A copy of the file, changed as the file will be.
class StagedFile {
  public:
    explicit StagedFile(const FileText &before)
        : path_(folder_.Make("staged.sc", before.value_or(""))) {
        ForgetFailure();
    }

    const char *Path() const { return path_.c_str(); }

    FileText Text() const {
        FileContents contents = ReadRegularFile(path_);
        if (contents.absent) {
            return {};
        }
        if (!contents.problem.empty()) {
            throw std::runtime_error(kCannotStage + contents.problem);
        }
        return std::move(contents.text);
    }

  private:
    PrivateFolder folder_;
    std::string path_;
};

// None where the list is too long for a service file.
std::optional<PortText> TextOfPorts(const TAVO_SERVICE_CONF_PORT *ports) {
    PortText text;
    ForgetFailure();
    if (ports != nullptr && text.Print(ports) < 0) {
        ThrowIfSystemFailed("the ports cannot be written");
        return {};
    }
    return text.IsCut() ? std::nullopt : std::optional(text);
}

PortText RequiredPorts(const TAVO_SERVICE_CONF_PORT *ports) {
    const std::optional<PortText> text = TextOfPorts(ports);
    if (!text) {
        throw std::runtime_error("the ports take more than the " +
                                 std::to_string(kLongestPortsValue) +
                                 " bytes that a service file has for them");
    }
    return *text;
}

}  // namespace

bool FitsServiceFile(const TAVO_SERVICE_CONF_PORT &ports) {
    return TextOfPorts(&ports).has_value();
}

FileText WithSection(const FileText &before, const TAVO_SERVICE_CONF_SECTION &section) {
    const PortText dst_ports = RequiredPorts(section.pDstPorts);
    const PortText src_ports = RequiredPorts(section.pSrcPorts);
    const StagedFile file(before);
    SectionKeys keys;
    if (!keys.IsMade()) {
        throw std::bad_alloc();
    }
    StepFailure failure;
    Require(keys.Read(file.Path(), section.szName, failure), failure);
    Require(keys.Set(section, dst_ports, src_ports, failure), failure);
    Require(keys.Store(file.Path(), section.szName, failure), failure);
    return file.Text();
}

FileText WithPorts(const FileText &before, const std::string &section,
                   const TAVO_SERVICE_CONF_PORT &ports) {
    const PortText text = RequiredPorts(&ports);
    const StagedFile file(before);
    StepFailure failure;
    Require(StorePorts(file.Path(), section.c_str(), PortsKey(ports.nDirection), text, failure),
            failure);
    return file.Text();
}

FileText WithoutSection(const FileText &before, const std::string &section) {
    const StagedFile file(before);
    StepFailure failure;
    Require(RemoveFromFile(file.Path(), section.c_str(), failure), failure);
    // That a file without services stays is reported as no failure.
    if (failure.HasFailed()) {
        throw std::runtime_error(kCannotStage + ErrorText(failure.error));
    }
    return file.Text();
}

}  // namespace tavo::tool
