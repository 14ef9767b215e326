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

// Checks that section and keys are read back as they are given once they are written. False with
// the error set: 0xD00 when they are not, 0x200 out of memory.
bool CheckWritable(std::string_view section, const TLIBCSzHash *keys);

// Appends `text` to `out` with the keys set in `section`. False on failure with the error set:
// 0xD00 for a missing section that is not to be added, 0x200 out of memory.
bool SetSectionKeys(std::string_view text, std::string_view section, const TLIBCSzHash *keys,
                    OtherKeys others, MissingSection missing, TextBuffer &out);

// Appends `text` to `out` without `section`. False when memory runs out (0x200).
bool TakeOutSection(std::string_view text, std::string_view section, TextBuffer &out);

}  // namespace tavo

#endif
