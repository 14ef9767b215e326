#include "section_map.h"

#include "config_lines.h"

namespace tavo {

bool SectionMap::Build(const FileText &file) {
    const std::string_view text = file.View();
    ConfigLineReader headers(text, file.HoldsNul());
    ConfigLine header;
    const char *begin = nullptr;  // of the lines below the last header
    const auto end_block = [&](const char *end) {
        if (begin != nullptr) {
            blocks_[blocks_.Count() - 1].lines = {begin, static_cast<std::size_t>(end - begin)};
        }
    };
    while (headers.NextSection(header)) {
        end_block(text.data() + header.begin);
        if (!AddHeader(header.name)) {
            return false;
        }
        begin = text.data() + header.end;
    }
    end_block(text.data() + text.size());
    return true;
}

bool SectionMap::AddHeader(std::string_view name) {
    const int block = blocks_.Count();
    const TextIndex::Added added = numbers_.Add(name);
    if (added == TextIndex::Added::kOutOfMemory || !blocks_.Append({{}, -1})) {
        return false;
    }
    if (added == TextIndex::Added::kNew) {
        return sections_.Append({name, block, block});
    }
    Section &section = sections_[static_cast<int>(numbers_.Find(name))];
    blocks_[section.last].next = block;
    section.last = block;
    return true;
}

const SectionMap::Block *SectionMap::FirstBlock(std::string_view name) const {
    const std::size_t number = numbers_.Find(name);
    return number == TextIndex::kNone ? nullptr
                                      : &blocks_[sections_[static_cast<int>(number)].first];
}

}  // namespace tavo
