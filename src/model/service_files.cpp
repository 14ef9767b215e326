// Collects what a reading of service files leaves out.
#include "model/service_files.h"

#include <cstdlib>
#include <cstring>
#include <utility>

namespace tavo {

ReadingReport::~ReadingReport() {
    for (char *text : texts_) {
        std::free(text);
    }
}

ReadingReport &ReadingReport::operator=(ReadingReport &&other) noexcept {
    std::swap(files_, other.files_);
    std::swap(omissions_, other.omissions_);
    std::swap(texts_, other.texts_);
    folder_ = other.folder_;
    path_ = other.path_;
    fault_ = other.fault_;
    left_out_ = other.left_out_;
    return *this;
}

// Null when out of memory, which makes the report incomplete.
const char *ReadingReport::Keep(const char *text) {
    OwnedText copy(strdup(text));
    if (copy == nullptr || !texts_.Append(copy.get())) {
        NoteFault(Reading::Unknown(kErrorNoMemory));
        return nullptr;
    }
    return copy.release();
}

void ReadingReport::NoteFault(Reading reading) {
    if (reading.IsGood()) {
        return;
    }
    left_out_ = true;
    if (fault_ == 0) {
        fault_ = reading.Fault();
    }
}

void ReadingReport::Note(const LeftOut &omission) {
    NoteFault(omission.reading);
    if (!omission.reading.IsGood() && !omissions_.Append(omission)) {
        NoteFault(Reading::Unknown(kErrorNoMemory));
    }
}

void ReadingReport::BeginFile(const ServiceFolder &folder, const char *path) {
    folder_ = &folder;
    path_ = Keep(path);
}

void ReadingReport::EndFile(Reading reading, const TAVO_SERVICE_CONF *conf) {
    if (!files_.Append({folder_, path_, reading.IsGood() ? conf : nullptr})) {
        NoteFault(Reading::Unknown(kErrorNoMemory));
    }
    Note({folder_, path_, nullptr, nullptr, reading});
}

void ReadingReport::ResumeFile(const ServiceFileRecord &file) {
    folder_ = file.folder;
    path_ = file.path;
}

void ReadingReport::NoteSection(Reading reading, const char *section) {
    if (!reading.IsGood()) {
        Note({folder_, path_, Keep(section), nullptr, reading});
    }
}

void ReadingReport::NoteFolder(Reading reading, const ServiceFolder &folder) {
    Note({&folder, nullptr, nullptr, nullptr, reading});
}

void ReadingReport::NoteRow(Reading reading, const TAVO_FW_SERVICE_REG &row) {
    Note({nullptr, nullptr, nullptr, &row, reading});
}

}  // namespace tavo
