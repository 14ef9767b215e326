// One pass over the headers of a text. Each header starts a block, which ends at the next header.
// The blocks of one name are linked, since sections with the same name are one section.
#include "section_map.h"

#include "config_lines.h"

namespace tavo {

bool SectionMap::Build(const FileText &file) {
    const std::string_view text = file.View();
    ConfigLineReader headers(text, file.HoldsNul());
    ConfigLine header;
    const char *begin = nullptr;  // of the lines after the last header
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
    const std::size_t number = numbers_.Add(name);
    if (number == TextIndex::kNone || !blocks_.Append({{}, -1})) {
        return false;
    }
    if (number == static_cast<std::size_t>(sections_.Count())) {
        return sections_.Append({name, block, block});
    }
    Section &section = sections_[static_cast<int>(number)];
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
