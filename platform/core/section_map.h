// Where the sections of a text are, so that each can be read without passing over the others.
#ifndef TAVO_PLATFORM_CORE_SECTION_MAP_H
#define TAVO_PLATFORM_CORE_SECTION_MAP_H

#include <cstddef>
#include <string_view>

#include "file_text.h"
#include "small_array.h"
#include "text_index.h"

namespace tavo {

// Looks at the text only; it must outlive the map.
class SectionMap {
  public:
    // One stretch of lines below a header. A section has as many as the text has headers of its
    // name.
    struct Block {
        std::string_view lines;
        int next;  // the section's next block, -1 behind the last
    };

    // Finds every section of `file`; false when memory runs out.
    bool Build(const FileText &file);

    int SectionCount() const { return sections_.Count(); }

    // The name of section `number`, in the order in which they first come.
    std::string_view Name(int number) const { return sections_[number].name; }

    // The first block of a section; null for a name that is none's.
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
