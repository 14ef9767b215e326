// Writes one section, with all its keys, into a service file.
//
// The arguments and the ports are checked first. Then the file is created if it is missing, copied
// for the router tool, and changed in one step. All failures occur before the change, so only a
// newly created file has to be rolled back.
#include <unistd.h>

#include <cerrno>
#include <cstring>

#include "config_lines.h"
#include "lifecycle/path_change.h"
#include "lifecycle/section_write.h"
#include "model/service_file_keys.h"
#include "support/failure.h"
#include "support/held_file.h"
#include "support/owners.h"

namespace tavo {
namespace {

// Buffer size for a value with its quotes.
constexpr std::size_t kValueSize = 4096;

bool IsWritable(const TAVO_SERVICE_CONF_SECTION *section) {
    return section != nullptr && !FieldText(section->szName).empty() &&
           section->pDstPorts != nullptr && !FieldText(section->strDesc.szText).empty() &&
           !FieldText(section->strTitle.szText).empty();
}

// ---- Keys ----

// A quote within the text is written unchanged: values have no escape sequences.
int SetKey(TLIBCSzHash *keys, const char *key, const char *text) {
    char value[kValueSize];
    PrintText(value, "\"%s\"", text);
    if (TLIBCSzHashSetValue(keys, key, value) < 0) {
        return TAVO_LOG("Failed ot set %s into Hash", key);
    }
    return 0;
}

// Quotes the values that were read, if they need quotes, so that keys that are not set here keep
// their values when they are read again.
int QuoteReadKeys(TLIBCSzHash *keys) {
    const char *key = nullptr;
    const char *value = nullptr;
    for (int i = 0; TLIBCSzHashEnum(keys, i, &key, &value) == 0; ++i) {
        if (!NeedsQuotes(value)) {
            continue;
        }
        const std::unique_ptr<char, FreeWith<TLIBCStrPut>> quoted(TLIBCStrGet("\"%s\"", value));
        if (quoted == nullptr || TLIBCSzHashSetValue(keys, key, quoted.get()) < 0) {
            return TAVO_LOG("Failed ot set %s into Hash", key);
        }
    }
    return 0;
}

// A reference needs a section and a key. Without them the reference in the file is unchanged.
int SetReference(TLIBCSzHash *keys, const char *name, const TAVO_SERVICE_CONF_STRING &string) {
    const FieldString source(string.szSource);
    const FieldString section(string.szSection);
    const FieldString key(string.szKey);
    if (section.IsEmpty() || key.IsEmpty()) {
        return 0;
    }
    char reference[kValueSize];
    PrintText(reference, "%s%s%s:%s", source.Get(), source.IsEmpty() ? "" : ":", section.Get(),
              key.Get());
    return SetKey(keys, name, reference);
}

// ---- The file ----

int MakeFile(const Target &target, StepFailure &failure) {
    if (MakeFolder(target.Directory(), failure) != 0) {
        return TAVO_LOG("/bin/mkdir -p %s failed.(errno:%d/%s)", target.Directory(), errno,
                        std::strerror(errno));
    }
    if (failure.During(Step::kMakeFile, target.Path(),
                       [&] { return TLIBCFileTouch(target.Path()); }) < 0) {
        return TAVO_LOG("Failed to touch %s", target.Path());
    }
    return 0;
}

class SectionWriter final : public FileWriter {
  public:
    // `writes`: false if the section is not written, only the file created.
    SectionWriter(const TAVO_SERVICE_CONF_SECTION &section, const PortText &dst_ports,
                  const PortText &src_ports, bool writes)
        : section_(section), dst_ports_(dst_ports), src_ports_(src_ports), writes_(writes) {}

    int Prepare(const Target &target, StepFailure &failure) override {
        if (!keys_.IsMade()) {
            failure.Set(Step::kSetKeys, "", ENOMEM);
            return TAVO_LOG("Failed to alloc memory");
        }
        const int found = LookForFile(target.Path(), TAVO_HERE, failure);
        made_ = found == 0 && MakeFile(target, failure) == 0;
        if (found < 0 || (found == 0 && !made_) ||
            keys_.Read(target.Path(), target.Section(), failure) < 0) {
            return -1;
        }
        return keys_.Set(section_, dst_ports_, src_ports_, failure);
    }

    // The keys were read from the section that the parameters name and are written to the section
    // that the record names. The result does not report a failed write; callers depend on this.
    int Write(const Target &target, StepFailure &failure) override {
        if (writes_) {
            keys_.Store(target.Path(), FieldString(section_.szName).Get(), failure);
        }
        return 0;
    }

    void Undo(const Target &target) override {
        if (made_) {
            unlink(target.Path());
        }
    }

  private:
    const TAVO_SERVICE_CONF_SECTION &section_;
    const PortText &dst_ports_;
    const PortText &src_ports_;
    const bool writes_;
    SectionKeys keys_;
    bool made_ = false;
};

}  // namespace

int SectionKeys::Read(const char *path, const char *section, StepFailure &failure) {
    TLIBCSzHash *keys = keys_.get();
    const int count = TLIBCFileGetSection(path, section, &keys);
    if (count < 0) {
        failure.Set(Step::kReadSection, path);
        return TAVO_LOG("failed to get section(%s) from %s", section, path);
    }
    present_ = count > 0;
    return QuoteReadKeys(keys) < 0 ? failure.Set(Step::kSetKeys) : 0;
}

int SectionKeys::Set(const TAVO_SERVICE_CONF_SECTION &section, const PortText &dst_ports,
                     const PortText &src_ports, StepFailure &failure) {
    TLIBCSzHash *keys = keys_.get();
    const bool done =
        SetKey(keys, kKeyPortForward, section.blPortForward == 1 ? "yes" : "no") == 0 &&
        SetKey(keys, kKeyDesc, FieldString(section.strDesc.szText).Get()) == 0 &&
        SetReference(keys, kKeyDescKey, section.strDesc) == 0 &&
        SetKey(keys, kKeyTitle, FieldString(section.strTitle.szText).Get()) == 0 &&
        SetReference(keys, kKeyTitleKey, section.strTitle) == 0 &&
        SetKey(keys, kKeyDstPorts, dst_ports.value) == 0 &&
        (section.pSrcPorts == nullptr || SetKey(keys, kKeySrcPorts, src_ports.value) == 0);
    return done ? 0 : failure.Set(Step::kSetKeys);
}

int SectionKeys::Store(const char *path, const char *section, StepFailure &failure) const {
    if (failure.During(Step::kWrite, path, [&] {
            return present_ ? TLIBCFileSetSection(path, section, nullptr, keys_.get(), 0)
                            : TLIBCFileAddSection(path, section, keys_.get(), 0);
        }) < 0) {
        return TAVO_LOG_STATE("Failed to write section (%s) to %s", section, path);
    }
    return 0;
}

int WriteSection(const SetParam *param, const TAVO_SERVICE_CONF_SECTION *section,
                 ChangeOutcome &outcome) {
    ReleaseHeldFile();
    if (!AllowsSet(param) || !IsWritable(section)) {
        return outcome.failure.RefuseArguments(TAVO_HERE);
    }
    PortText dst_ports;
    if (dst_ports.Print(section->pDstPorts) < 0) {
        outcome.failure.Set(Step::kPrintPorts);
        return TAVO_LOG_STATE("Port to Str fail!");
    }
    PortText src_ports;
    if (section->pSrcPorts != nullptr && src_ports.Print(section->pSrcPorts) < 0) {
        return outcome.failure.Set(Step::kPrintPorts);
    }
    SectionWriter writer(*section, dst_ports, src_ports, param->nWriteMode == TAVO_WRITE_MODE_SET);
    return ChangeFile(*param, dst_ports, writer, TAVO_HERE, outcome);
}

}  // namespace tavo

int TLIBServiceConfSectionSet(const TAVO_SERVICE_CONF_SET_PARAM *pParam,
                              const TAVO_SERVICE_CONF_SECTION *pSection) {
    tavo::ChangeOutcome outcome;
    return tavo::WriteSection(pParam, pSection, outcome);
}
