// The hash of a text, for every table here.
#ifndef TAVO_PLATFORM_CORE_TEXT_HASH_H
#define TAVO_PLATFORM_CORE_TEXT_HASH_H

#include <cstdint>
#include <string_view>

namespace tavo {

// Differs from process to process, so that whoever writes a file cannot choose names that all fall
// on each other and make its readers walk.
std::uint32_t HashOf(std::string_view text);

}  // namespace tavo

#endif
