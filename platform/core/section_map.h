// Maps the sections of a text, so that each can be read without reading the others.
#ifndef TAVO_PLATFORM_CORE_SECTION_MAP_H
#define TAVO_PLATFORM_CORE_SECTION_MAP_H

#include <cstddef>
#include <string_view>

#include "file_text.h"
#include "small_array.h"
#include "text_index.h"

namespace tavo {

// Points into the text, which must outlive the map.
class SectionMap {
  public:
    // The lines after one header. A section has one block for each header with its name.
    struct Block {
        std::string_view lines;
        int next;  // the next block of the section, -1 for the last
    };

    // Finds all sections of `file`. Returns false when out of memory.
    bool Build(const FileText &file);

    int SectionCount() const { return sections_.Count(); }

    // The name of section `number`, in the order of first appearance.
    std::string_view Name(int number) const { return sections_[number].name; }

    // The first block of a section; null for an unknown name.
    const Block *FirstBlock(std::string_view name) const;
    const Block *NextBlock(const Block &block) const {
        return block.next < 0 ? nullptr : &blocks_[block.next];
    }

  private:
    struct Section {
        std::string_view name;
        int first;
        int last;
    };

    bool AddHeader(std::string_view name);

    static constexpr int kFew = 8;

    TextIndex numbers_;
    SmallArray<Section, kFew> sections_;
    SmallArray<Block, kFew> blocks_;
};

}  // namespace tavo

#endif
