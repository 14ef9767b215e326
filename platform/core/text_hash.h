// The hash of a text, used by all tables of this library.
#ifndef TAVO_PLATFORM_CORE_TEXT_HASH_H
#define TAVO_PLATFORM_CORE_TEXT_HASH_H

#include <cstdint>
#include <string_view>

namespace tavo {

// Differs between processes, so that the author of a file cannot choose names that all collide and
// slow down its readers.
std::uint32_t HashOf(std::string_view text);

}  // namespace tavo

#endif
