#include "text_hash.h"

#include <sys/random.h>

#include <ctime>

namespace tavo {
namespace {

// Random bytes from the kernel; if there are none yet, early in the boot, the clock and the load
// address of this library.
std::uint64_t Seed() {
    std::uint64_t seed = 0;
    if (getrandom(&seed, sizeof(seed), GRND_NONBLOCK) != static_cast<ssize_t>(sizeof(seed))) {
        timespec now = {};
        clock_gettime(CLOCK_MONOTONIC, &now);
        seed = static_cast<std::uint64_t>(now.tv_nsec) ^ reinterpret_cast<std::uintptr_t>(&HashOf);
    }
    return seed;
}

}  // namespace

// FNV-1a with a seed, and an extra step after each byte that mixes high bits into the low ones:
// without it, texts whose hashes agree in the low bits would do so for every seed.
std::uint32_t HashOf(std::string_view text) {
    static const std::uint64_t seed = Seed();
    std::uint64_t hash = 0xCBF29CE484222325u ^ seed;
    for (const char c : text) {
        hash = (hash ^ static_cast<unsigned char>(c)) * 0x100000001B3u;
        hash ^= hash >> 29;
    }
    return static_cast<std::uint32_t>(hash ^ (hash >> 32));
}

}  // namespace tavo
