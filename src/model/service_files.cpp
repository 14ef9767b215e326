// Collects what the reading of service files leaves out.
#include "model/service_files.h"

#include <cerrno>
#include <utility>

namespace tavo {

// Returns null when out of memory, which makes the report incomplete.
const char *ReadingReport::Keep(const char *text) {
    const char *copy = texts_.Keep(text);
    if (copy == nullptr) {
        NoteNoMemory();
    }
    return copy;
}

void ReadingReport::NoteNoMemory() {
    left_out_ = true;
    fault_ = TLIBC_ERR_NO_MEMORY;
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
    const bool noted = !omission.reading.IsGood() || omission.error != 0;
    if (noted && !omissions_.Append(omission)) {
        NoteNoMemory();
    }
}

void ReadingReport::BeginFile(const ServiceFolder &folder, const char *path) {
    folder_ = &folder;
    path_ = Keep(path);
}

void ReadingReport::EndFile(Reading reading, TAVO_SERVICE_CONF **list) {
    ServiceFileRecord file = {folder_, path_, reading.IsGood() ? *list : nullptr};
    if (file.conf != nullptr && visitor_ != nullptr) {
        visitor_->visit(visitor_->context, file);
        const OwnedConf visited(std::exchange(*list, (*list)->pNext));
        visited->pNext = nullptr;
        file.conf = nullptr;
    }
    if (!files_.Append(file)) {
        NoteNoMemory();
    }
    Note({folder_, path_, nullptr, nullptr, reading});
}

void ReadingReport::NoteSection(Reading reading, const char *section) {
    if (!reading.IsGood()) {
        Note({folder_, path_, Keep(section), nullptr, reading});
    }
}

// A missing folder is an ordinary empty one, unlike a file in its place.
void ReadingReport::NoteFolder(Reading reading, const ServiceFolder &folder, int error) {
    if (!reading.IsGood() || error != ENOENT) {
        Note({&folder, nullptr, nullptr, nullptr, reading, error});
    }
}

void ReadingReport::NoteRow(Reading reading, const TAVO_FW_SERVICE_REG &row) {
    Note({nullptr, nullptr, nullptr, &row, reading});
}

}  // namespace tavo
