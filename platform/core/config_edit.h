// Edits of one section of a configuration file's text: text in, text out, every line that is not
// concerned copied byte by byte.
//
// A section may stand in several blocks, each a header with the lines up to the next header.
#ifndef TAVO_PLATFORM_CORE_CONFIG_EDIT_H
#define TAVO_PLATFORM_CORE_CONFIG_EDIT_H

#include <string_view>

#include "core_support.h"
#include "text_buffer.h"

namespace tavo {

// What becomes of keys of the section that the table lacks.
enum class OtherKeys { kKeep, kTakeOut };

// What happens where there is no such section.
enum class MissingSection { kAdd, kRefuse };

// Which line of a wanted key is kept as it stands, so that it keeps its spelling.
enum class KeptLines {
    kSameText,   // one with the very text that would be written
    kSameValue,  // that, and one that is read as the value, unless the value is given in quotes
};

// The error of a change: 0xD00 for a name or key that would not be read back as it is given, or for
// a missing section that is refused; 0x200 out of memory.

// Checks the name of a section. False with the error set.
bool CheckSectionName(std::string_view section);

// Appends `text` to `out` with the keys set in `section`. A key whose line is kept may be one that
// could not be written. False with the error set.
bool SetSectionKeys(std::string_view text, std::string_view section, const TLIBCSzHash *keys,
                    OtherKeys others, MissingSection missing, KeptLines kept, TextBuffer &out);

// Appends `text` to `out` without `section`. False when memory runs out (0x200).
bool TakeOutSection(std::string_view text, std::string_view section, TextBuffer &out);

}  // namespace tavo

#endif
