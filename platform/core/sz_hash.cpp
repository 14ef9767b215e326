// A table of strings by string: the entries stand densely in the order in which their keys came,
// and an index beside them, open addressing with linear probing, finds a key.
//
// Entries and index start small, whatever the capacity asked for, and grow with the keys that are
// there: callers ask for a thousand keys, fill in eight, and do so for every section of every file.
// So few are found by looking at the hashes one after the other, without an index. Nothing is ever
// taken out singly, so a probe of the index ends at the first empty slot.
#include <algorithm>
#include <cstring>

#include "core_support.h"
#include "text_hash.h"

namespace {

// A key and its value share a block, the key first.
struct Entry {
    char *key;
    char *value;
    std::uint32_t hash;
};

constexpr int kMostRoomAtFirst = 16;
constexpr int kMostWithoutIndex = 8;
constexpr std::size_t kFirstSlots = 32;

}  // namespace

struct TLIBCSzHash {
    Entry *entries;
    int count;
    int room;
    std::uint32_t *slots;    // the index of an entry plus one, 0 for an empty slot
    std::size_t slot_count;  // 0 without an index, else a power of two, at least twice the count
};

namespace {

// An entry with copies of both texts; its key is null when memory runs out.
Entry NewEntry(std::string_view key, std::string_view value, std::uint32_t hash) {
    char *block = static_cast<char *>(std::malloc(key.size() + value.size() + 2));
    if (block == nullptr) {
        return {};
    }
    char *value_copy = block + key.size() + 1;
    block[key.copy(block, key.size())] = '\0';
    value_copy[value.copy(value_copy, value.size())] = '\0';
    return {block, value_copy, hash};
}

Entry *FindByWalking(const TLIBCSzHash &table, std::string_view key, std::uint32_t hash) {
    for (int i = 0; i < table.count; ++i) {
        if (table.entries[i].hash == hash && table.entries[i].key == key) {
            return &table.entries[i];
        }
    }
    return nullptr;
}

Entry *Find(const TLIBCSzHash &table, std::string_view key, std::uint32_t hash) {
    if (table.slot_count == 0) {
        return FindByWalking(table, key, hash);
    }
    const std::size_t mask = table.slot_count - 1;
    for (std::size_t at = hash & mask; table.slots[at] != 0; at = (at + 1) & mask) {
        Entry &entry = table.entries[table.slots[at] - 1];
        if (entry.hash == hash && entry.key == key) {
            return &entry;
        }
    }
    return nullptr;
}

// Enters entry number `index`, whose key is not there yet.
void AddToIndex(TLIBCSzHash &table, int index) {
    const std::size_t mask = table.slot_count - 1;
    std::size_t at = table.entries[index].hash & mask;
    while (table.slots[at] != 0) {
        at = (at + 1) & mask;
    }
    table.slots[at] = static_cast<std::uint32_t>(index) + 1;
}

bool GrowIndex(TLIBCSzHash &table) {
    const std::size_t slot_count = std::max(table.slot_count * 2, kFirstSlots);
    void *slots = std::calloc(slot_count, sizeof(*table.slots));
    if (slots == nullptr) {
        return false;
    }
    std::free(table.slots);
    table.slots = static_cast<std::uint32_t *>(slots);
    table.slot_count = slot_count;
    for (int i = 0; i < table.count; ++i) {
        AddToIndex(table, i);
    }
    return true;
}

// Room for one more entry and for its place in the index.
bool MakeRoom(TLIBCSzHash &table) {
    if (table.count == table.room) {
        const int room = tavo::Doubled(table.room);
        if (room == table.room || !tavo::Resize(table.entries, room)) {
            return false;
        }
        table.room = room;
    }
    return table.count < kMostWithoutIndex ||
           static_cast<std::size_t>(table.count) < table.slot_count / 2 || GrowIndex(table);
}

}  // namespace

namespace tavo {

int HashSet(TLIBCSzHash *hash, std::string_view key, std::string_view value) {
    const Entry entry = NewEntry(key, value, HashOf(key));
    if (entry.key == nullptr) {
        return TAVO_CORE_FAIL(TLIBC_ERR_NO_MEMORY);
    }
    if (Entry *old = Find(*hash, key, entry.hash)) {
        std::free(old->key);
        *old = entry;
        return 0;
    }
    if (!MakeRoom(*hash)) {
        std::free(entry.key);
        return TAVO_CORE_FAIL(TLIBC_ERR_NO_MEMORY);
    }
    hash->entries[hash->count] = entry;
    ++hash->count;
    if (hash->slot_count != 0) {
        AddToIndex(*hash, hash->count - 1);
    }
    return 0;
}

}  // namespace tavo

TLIBCSzHash *TLIBCSzHashAlloc(int nCapacity) {
    tavo::MallocPtr<TLIBCSzHash> table(
        static_cast<TLIBCSzHash *>(std::calloc(1, sizeof(TLIBCSzHash))));
    if (!table) {
        return TAVO_CORE_FAIL(TLIBC_ERR_NO_MEMORY);
    }
    table->room = std::clamp(nCapacity, 1, kMostRoomAtFirst);
    if (!tavo::Resize(table->entries, table->room)) {
        return TAVO_CORE_FAIL(TLIBC_ERR_NO_MEMORY);
    }
    return table.release();
}

int TLIBCSzHashSetValue(TLIBCSzHash *pHash, const char *szKey, const char *szValue) {
    if (pHash == nullptr || szKey == nullptr || szValue == nullptr) {
        return TAVO_CORE_FAIL(TLIBC_ERR_BAD_PARAMETER);
    }
    return tavo::HashSet(pHash, szKey, szValue);
}

const char *TLIBCSzHashGetValue(const TLIBCSzHash *pHash, const char *szKey) {
    if (pHash == nullptr || szKey == nullptr) {
        return nullptr;
    }
    const Entry *entry = Find(*pHash, szKey, tavo::HashOf(szKey));
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
        std::free(pHash->entries[i].key);
    }
    pHash->count = 0;
    // The keys to come bring an index of their size.
    std::free(pHash->slots);
    pHash->slots = nullptr;
    pHash->slot_count = 0;
}

void TLIBCSzHashFree(TLIBCSzHash *pHash) {
    if (pHash == nullptr) {
        return;
    }
    TLIBCSzHashClear(pHash);
    std::free(pHash->entries);
    std::free(pHash);
}
