// A list of strings: an array of pointers that grows geometrically; each string is a block of its
// own.
//
// Strings do not move, so a pushed text may come from the list itself, and results of
// TLIBCSzListGet stay valid after later pushes. The array starts small, whatever the requested
// capacity: most lists are created for a thousand strings and contain five.
#include <algorithm>
#include <cstring>

#include "core_support.h"

struct TLIBCSzList {
    char **items;
    int count;
    int room;
};

namespace {

constexpr int kMostRoomAtFirst = 64;

bool MakeRoom(TLIBCSzList &list) {
    if (list.count < list.room) {
        return true;
    }
    const int room = tavo::Doubled(list.room);
    if (room == list.room || !tavo::Resize(list.items, room)) {
        return false;
    }
    list.room = room;
    return true;
}

bool HasIndex(const TLIBCSzList *list, int index) {
    return list != nullptr && index >= 0 && index < list->count;
}

}  // namespace

namespace tavo {

int ListPush(TLIBCSzList *list, std::string_view item) {
    MallocPtr<char> copy = CopyText(item);
    if (!copy || !MakeRoom(*list)) {
        return TAVO_PLATFORM_FAIL(TLIBC_ERR_NO_MEMORY);
    }
    list->items[list->count++] = copy.release();
    return list->count;
}

void ListShorten(TLIBCSzList *list, int count) {
    while (list->count > count) {
        std::free(list->items[--list->count]);
    }
}

}  // namespace tavo

TLIBCSzList *TLIBCSzListAlloc(int nCapacity) {
    tavo::MallocPtr<TLIBCSzList> list(static_cast<TLIBCSzList *>(std::malloc(sizeof(TLIBCSzList))));
    if (!list) {
        return TAVO_PLATFORM_FAIL(TLIBC_ERR_NO_MEMORY);
    }
    *list = {.items = nullptr, .count = 0, .room = std::clamp(nCapacity, 1, kMostRoomAtFirst)};
    if (!tavo::Resize(list->items, list->room)) {
        return TAVO_PLATFORM_FAIL(TLIBC_ERR_NO_MEMORY);
    }
    return list.release();
}

int TLIBCSzListPush(TLIBCSzList **ppList, const char *szItem) {
    if (ppList == nullptr || *ppList == nullptr || szItem == nullptr) {
        return TAVO_PLATFORM_FAIL(TLIBC_ERR_BAD_PARAMETER);
    }
    return tavo::ListPush(*ppList, szItem);
}

const char *TLIBCSzListGet(const TLIBCSzList *pList, int nIndex) {
    return HasIndex(pList, nIndex) ? pList->items[nIndex] : nullptr;
}

int TLIBCSzListFind(const TLIBCSzList *pList, const char *szItem) {
    if (szItem == nullptr) {
        return -1;
    }
    for (int i = 0; i < TLIBCSzListCount(pList); ++i) {
        if (std::strcmp(pList->items[i], szItem) == 0) {
            return i;
        }
    }
    return -1;
}

int TLIBCSzListCount(const TLIBCSzList *pList) {
    return pList == nullptr ? 0 : pList->count;
}

int TLIBCSzListRemove(TLIBCSzList *pList, int nIndex) {
    if (!HasIndex(pList, nIndex)) {
        return TAVO_PLATFORM_FAIL(TLIBC_ERR_BAD_PARAMETER);
    }
    char **gap = pList->items + nIndex;
    std::free(*gap);
    std::copy(gap + 1, pList->items + pList->count, gap);
    --pList->count;
    return 0;
}

void TLIBCSzListFree(TLIBCSzList *pList) {
    if (pList == nullptr) {
        return;
    }
    tavo::ListShorten(pList, 0);
    std::free(pList->items);
    std::free(pList);
}

void TLIBCISzListDump(const TLIBCSzList *pList, FILE *pStream) {
    if (pStream == nullptr) {
        return;
    }
    for (int i = 0; i < TLIBCSzListCount(pList); ++i) {
        std::fputs(pList->items[i], pStream);
        std::fputc('\n', pStream);
    }
}
