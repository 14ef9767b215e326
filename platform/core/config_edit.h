// Edits one section in the text of a configuration file. All unaffected lines are copied byte by
// byte.
//
// A section may consist of several blocks; a block is a header and the lines up to the next header.
#ifndef TAVO_PLATFORM_CORE_CONFIG_EDIT_H
#define TAVO_PLATFORM_CORE_CONFIG_EDIT_H

#include <string_view>

#include "core_support.h"
#include "text_buffer.h"

namespace tavo {

// What happens to keys of the section that are not in the table.
enum class OtherKeys { kKeep, kTakeOut };

// What happens if the section does not exist.
enum class MissingSection { kAdd, kRefuse };

// Which line of a wanted key is left unchanged, with its spelling.
enum class KeptLines {
    kSameText,   // a line with exactly the text that would be written
    kSameValue,  // also a line that is read as the value, unless the value is quoted
};

// The errors of a change: 0xD00 for a name or key that would not be read back unchanged, or for a
// missing section with kRefuse; 0x200 out of memory.

// Checks the name of a section. Returns false with the error set.
bool CheckSectionName(std::string_view section);

// Appends `text` to `out` with the keys set in `section`. A line may be kept even if its key could
// not be written. Returns false with the error set.
bool SetSectionKeys(std::string_view text, std::string_view section, const TLIBCSzHash *keys,
                    OtherKeys others, MissingSection missing, KeptLines kept, TextBuffer &out);

// Appends `text` to `out` without `section`. Returns false when out of memory (0x200).
bool TakeOutSection(std::string_view text, std::string_view section, TextBuffer &out);

}  // namespace tavo

#endif
