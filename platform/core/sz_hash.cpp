// A table of strings by string: the entries are stored densely in the order in which their keys
// were added, and a separate index, open addressing with linear probing, finds a key.
//
// Callers ask for a capacity of a thousand keys, store eight short ones, and do so for every
// section of every file. Entries and index therefore start small, whatever the requested capacity.
// The texts of a section are copied as one block. A few keys are found by comparing them one by
// one; they are hashed only when there are enough of them for an index. Entries are never removed
// individually, so a probe of the index ends at the first empty slot.
#include <algorithm>
#include <cstring>

#include "core_support.h"
#include "text_hash.h"

namespace {

// Both texts are in the block of the table, or in a block of their own that starts with the key.
struct Entry {
    char *key;
    const char *value;
    std::uint32_t key_size;
    std::uint32_t hash;  // of the key; set while the table has an index

    std::string_view Key() const { return {key, key_size}; }
};

constexpr int kMostRoomAtFirst = 16;
constexpr int kMostWithoutIndex = 8;
constexpr std::size_t kFirstSlots = 32;

// The first size of the block of a table. glibc's malloc caches blocks of up to 1032 bytes.
constexpr std::size_t kFirstTexts = 1024;

}  // namespace

struct TLIBCSzHash {
    Entry *entries;
    int count;
    int room;
    std::uint32_t *slots;    // the index of an entry plus one, 0 for an empty slot
    std::size_t slot_count;  // 0 without an index, else a power of two, at least twice the count
    char *texts;             // the block of HashTexts, null before the first call
    std::size_t texts_size;
};

namespace {

void FreeTexts(const TLIBCSzHash &table, char *texts) {
    const auto offset =
        reinterpret_cast<std::uintptr_t>(texts) - reinterpret_cast<std::uintptr_t>(table.texts);
    if (offset >= table.texts_size) {
        std::free(texts);
    }
}

// An entry with copies of both texts; its key is null when out of memory.
Entry NewEntry(std::string_view key, std::string_view value, std::uint32_t hash) {
    char *texts = key.size() >= UINT32_MAX
                      ? nullptr
                      : static_cast<char *>(std::malloc(key.size() + value.size() + 2));
    if (texts == nullptr) {
        return {};
    }
    char *value_copy = texts + key.size() + 1;
    texts[key.copy(texts, key.size())] = '\0';
    value_copy[value.copy(value_copy, value.size())] = '\0';
    return {texts, value_copy, static_cast<std::uint32_t>(key.size()), hash};
}

// The hash for looking up `key`; not needed for a table without an index.
std::uint32_t LookupHash(const TLIBCSzHash &table, std::string_view key) {
    return table.slot_count == 0 ? 0 : tavo::HashOf(key);
}

inline Entry *FindByWalking(const TLIBCSzHash &table, std::string_view key) {
    for (Entry *entry = table.entries; entry != table.entries + table.count; ++entry) {
        if (entry->key_size == key.size() && std::memcmp(entry->key, key.data(), key.size()) == 0) {
            return entry;
        }
    }
    return nullptr;
}

Entry *FindInIndex(const TLIBCSzHash &table, std::string_view key, std::uint32_t hash) {
    const std::size_t mask = table.slot_count - 1;
    for (std::size_t at = hash & mask; table.slots[at] != 0; at = (at + 1) & mask) {
        Entry &entry = table.entries[table.slots[at] - 1];
        if (entry.hash == hash && entry.Key() == key) {
            return &entry;
        }
    }
    return nullptr;
}

inline Entry *Find(const TLIBCSzHash &table, std::string_view key, std::uint32_t hash) {
    return table.slot_count == 0 ? FindByWalking(table, key) : FindInIndex(table, key, hash);
}

// Adds entry number `index`, whose key is not in the index yet.
void AddToIndex(TLIBCSzHash &table, int index) {
    const std::size_t mask = table.slot_count - 1;
    std::size_t at = table.entries[index].hash & mask;
    while (table.slots[at] != 0) {
        at = (at + 1) & mask;
    }
    table.slots[at] = static_cast<std::uint32_t>(index) + 1;
}

// Creates or enlarges the index.
bool GrowIndex(TLIBCSzHash &table) {
    const std::size_t slot_count = std::max(table.slot_count * 2, kFirstSlots);
    void *slots = std::calloc(slot_count, sizeof(*table.slots));
    if (slots == nullptr) {
        return false;
    }
    if (table.slot_count == 0) {
        std::for_each(table.entries, table.entries + table.count,
                      [](Entry &entry) { entry.hash = tavo::HashOf(entry.Key()); });
    }
    std::free(table.slots);
    table.slots = static_cast<std::uint32_t *>(slots);
    table.slot_count = slot_count;
    for (int i = 0; i < table.count; ++i) {
        AddToIndex(table, i);
    }
    return true;
}

bool HasRoom(const TLIBCSzHash &table) {
    return table.count < table.room &&
           (table.count < kMostWithoutIndex ||
            static_cast<std::size_t>(table.count) < table.slot_count / 2);
}

// Makes room for one more entry and for its slot in the index.
bool MakeRoom(TLIBCSzHash &table) {
    if (table.count == table.room) {
        const int room = tavo::Doubled(table.room);
        if (room == table.room || !tavo::Resize(table.entries, room)) {
            return false;
        }
        table.room = room;
    }
    return HasRoom(table) || GrowIndex(table);
}

// Adds an entry with a new key.
inline bool Append(TLIBCSzHash &table, Entry entry) {
    if (!HasRoom(table)) {
        if (!MakeRoom(table)) {
            return false;
        }
        entry.hash = LookupHash(table, entry.Key());  // the index may be new
    }
    table.entries[table.count++] = entry;
    if (table.slot_count != 0) {
        AddToIndex(table, table.count - 1);
    }
    return true;
}

}  // namespace

namespace tavo {

char *HashTexts(TLIBCSzHash *hash, std::size_t size) {
    if (size > hash->texts_size) {
        const std::size_t room = std::max(size, kFirstTexts);
        char *texts = static_cast<char *>(std::malloc(room));
        if (texts == nullptr) {
            return TAVO_PLATFORM_FAIL(TLIBC_ERR_NO_MEMORY);
        }
        std::free(hash->texts);
        hash->texts = texts;
        hash->texts_size = room;
    }
    return hash->texts;
}

int HashAdopt(TLIBCSzHash *hash, std::string_view key, std::string_view value) {
    const std::uint32_t lookup = LookupHash(*hash, key);
    Entry *old = Find(*hash, key, lookup);
    char *own_key = hash->texts + (key.data() - hash->texts);
    char *own_value = hash->texts + (value.data() - hash->texts);
    const auto key_size = static_cast<std::uint32_t>(key.size());
    if (old == nullptr && !Append(*hash, {own_key, own_value, key_size, lookup})) {
        return TAVO_PLATFORM_FAIL(TLIBC_ERR_NO_MEMORY);
    }
    if (old != nullptr) {
        old->value = own_value;
    }
    own_key[key.size()] = '\0';
    own_value[value.size()] = '\0';
    return 0;
}

}  // namespace tavo

TLIBCSzHash *TLIBCSzHashAlloc(int nCapacity) {
    tavo::MallocPtr<TLIBCSzHash> table(
        static_cast<TLIBCSzHash *>(std::malloc(sizeof(TLIBCSzHash))));
    if (!table) {
        return TAVO_PLATFORM_FAIL(TLIBC_ERR_NO_MEMORY);
    }
    *table = {};
    table->room = std::clamp(nCapacity, 1, kMostRoomAtFirst);
    if (!tavo::Resize(table->entries, table->room)) {
        return TAVO_PLATFORM_FAIL(TLIBC_ERR_NO_MEMORY);
    }
    return table.release();
}

int TLIBCSzHashSetValue(TLIBCSzHash *pHash, const char *szKey, const char *szValue) {
    if (pHash == nullptr || szKey == nullptr || szValue == nullptr) {
        return TAVO_PLATFORM_FAIL(TLIBC_ERR_BAD_PARAMETER);
    }
    const std::string_view key(szKey);
    const Entry entry = NewEntry(key, szValue, LookupHash(*pHash, key));
    if (entry.key == nullptr) {
        return TAVO_PLATFORM_FAIL(TLIBC_ERR_NO_MEMORY);
    }
    if (Entry *old = Find(*pHash, key, entry.hash)) {
        FreeTexts(*pHash, old->key);
        *old = entry;
        return 0;
    }
    if (!Append(*pHash, entry)) {
        std::free(entry.key);
        return TAVO_PLATFORM_FAIL(TLIBC_ERR_NO_MEMORY);
    }
    return 0;
}

const char *TLIBCSzHashGetValue(const TLIBCSzHash *pHash, const char *szKey) {
    if (pHash == nullptr || szKey == nullptr) {
        return nullptr;
    }
    const std::string_view key(szKey);
    const Entry *entry = Find(*pHash, key, LookupHash(*pHash, key));
    return entry == nullptr ? nullptr : entry->value;
}

int TLIBCSzHashCount(const TLIBCSzHash *pHash) {
    return pHash == nullptr ? 0 : pHash->count;
}

int TLIBCSzHashEnum(const TLIBCSzHash *pHash, int nIndex, const char **pszKey,
                    const char **pszValue) {
    if (nIndex < 0 || nIndex >= TLIBCSzHashCount(pHash)) {
        return -1;
    }
    if (pszKey != nullptr) {
        *pszKey = pHash->entries[nIndex].key;
    }
    if (pszValue != nullptr) {
        *pszValue = pHash->entries[nIndex].value;
    }
    return 0;
}

void TLIBCSzHashClear(TLIBCSzHash *pHash) {
    if (TLIBCSzHashCount(pHash) == 0) {
        return;
    }
    for (int i = 0; i < pHash->count; ++i) {
        FreeTexts(*pHash, pHash->entries[i].key);
    }
    pHash->count = 0;
    // A new index is created for the keys that follow.
    std::free(pHash->slots);
    pHash->slots = nullptr;
    pHash->slot_count = 0;
}

void TLIBCSzHashFree(TLIBCSzHash *pHash) {
    if (pHash == nullptr) {
        return;
    }
    TLIBCSzHashClear(pHash);
    std::free(pHash->texts);
    std::free(pHash->entries);
    std::free(pHash);
}
