// A list of elements that it owns through the copy and free functions of its caller.
//
// Nodes do not move until the list is freed, so a walk may continue while elements are appended.
// The interface only walks forward, so a node has no link to its predecessor.
#include <climits>

#include "core_support.h"

struct TLIBCDListNode {
    void *element;
    TLIBCDListNode *next;
};

struct TLIBCDList {
    TLIBCDListCopyFn copy;
    TLIBCDListFreeFn free;
    TLIBCDListNode *first;
    TLIBCDListNode **end;  // the link for the next node
    int count;
};

TLIBCDList *TLIBCDListAlloc(TLIBCDListCopyFn pfnCopy, TLIBCDListFreeFn pfnFree) {
    auto *list = static_cast<TLIBCDList *>(std::malloc(sizeof(TLIBCDList)));
    if (list == nullptr) {
        return TAVO_PLATFORM_FAIL(TLIBC_ERR_NO_MEMORY);
    }
    *list = {.copy = pfnCopy, .free = pfnFree, .first = nullptr, .end = &list->first, .count = 0};
    return list;
}

int TLIBCDListAppend(TLIBCDList *pList, const void *pElement) {
    if (pList == nullptr || pElement == nullptr) {
        return TAVO_PLATFORM_FAIL(TLIBC_ERR_BAD_PARAMETER);
    }
    // The node is allocated first: a copied element could not be freed in a list without a free
    // function.
    tavo::MallocPtr<TLIBCDListNode> node(
        static_cast<TLIBCDListNode *>(std::malloc(sizeof(TLIBCDListNode))));
    if (!node || pList->count == INT_MAX) {
        return TAVO_PLATFORM_FAIL(TLIBC_ERR_NO_MEMORY);
    }
    void *element = pList->copy != nullptr ? pList->copy(pElement) : const_cast<void *>(pElement);
    if (element == nullptr) {
        return -1;
    }
    *node = {.element = element, .next = nullptr};
    *pList->end = node.get();
    pList->end = &node.release()->next;
    ++pList->count;
    return 0;
}

int TLIBCDListCount(const TLIBCDList *pList) {
    return pList == nullptr ? 0 : pList->count;
}

TLIBCDListNode *TLIBCDListFirst(const TLIBCDList *pList) {
    return pList == nullptr ? nullptr : pList->first;
}

TLIBCDListNode *TLIBCDListNext(const TLIBCDListNode *pNode) {
    return pNode == nullptr ? nullptr : pNode->next;
}

void *TLIBCDListElement(const TLIBCDListNode *pNode) {
    return pNode == nullptr ? nullptr : pNode->element;
}

void TLIBCDListFree(TLIBCDList *pList) {
    if (pList == nullptr) {
        return;
    }
    TLIBCDListNode *next = nullptr;
    for (TLIBCDListNode *node = pList->first; node != nullptr; node = next) {
        next = node->next;
        if (pList->free != nullptr) {
            pList->free(node->element);
        }
        std::free(node);
    }
    std::free(pList);
}
