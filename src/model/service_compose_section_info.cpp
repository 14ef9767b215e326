// Copies one service section with its port lists into a caller's list, and frees such lists.
#include <cstdlib>
#include <utility>

#include "support/failure.h"
#include "support/owners.h"
#include "support/text.h"
#include "tavoserviceconf.h"

namespace {

// szExtra is left out on purpose: the administration back end composes the sections that it writes
// back, and relies on desc_extra being dropped.
void CopyString(TAVO_SERVICE_CONF_STRING &copy, const TAVO_SERVICE_CONF_STRING &source) {
    tavo::CopyText(copy.szSource, tavo::FieldText(source.szSource));
    tavo::CopyText(copy.szSection, tavo::FieldText(source.szSection));
    tavo::CopyText(copy.szKey, tavo::FieldText(source.szKey));
    tavo::CopyText(copy.szText, tavo::FieldText(source.szText));
}

// Appends a copy of each entry to the empty list *link. After a failure the list contains the
// copies made so far, for its owner to free.
int CopyPorts(const TAVO_SERVICE_CONF_PORT *source, TAVO_SERVICE_CONF_PORT **link) {
    for (; source != nullptr; source = source->pNext) {
        auto copy = tavo::NewRecord<tavo::OwnedPorts>();
        if (copy == nullptr) {
            return TAVO_FAIL_NO_MEMORY();
        }
        *copy = *source;
        copy->pNext = nullptr;
        *link = copy.release();
        link = &(*link)->pNext;
    }
    return 0;
}

}  // namespace

int TAVOServiceComposeSectionInfo(const TAVO_SERVICE_CONF_SECTION *pSection,
                                  TAVO_SERVICE_CONF_SECTION **ppList) {
    if (pSection == nullptr || ppList == nullptr) {
        return TAVO_SET_ERROR(TLIBC_ERR_BAD_PARAMETER);
    }
    auto copy = tavo::NewRecord<tavo::OwnedSection>();
    if (copy == nullptr) {
        return TAVO_FAIL_STATE(TLIBC_ERR_NO_MEMORY,
                               "Failed to allocate TAVO_SERVICE_CONF_SECTION! ");
    }
    tavo::CopyText(copy->szName, tavo::FieldText(pSection->szName));
    CopyString(copy->strTitle, pSection->strTitle);
    CopyString(copy->strDesc, pSection->strDesc);
    copy->blPortForward = pSection->blPortForward;
    if (CopyPorts(pSection->pSrcPorts, &copy->pSrcPorts) < 0 ||
        CopyPorts(pSection->pDstPorts, &copy->pDstPorts) < 0) {
        return -1;
    }
    tavo::Prepend(std::move(copy), ppList);
    return 0;
}

void TAVOServiceConfSectionFree(TAVO_SERVICE_CONF_SECTION *pList) {
    while (pList != nullptr) {
        TAVOServiceConfPortsFree(pList->pSrcPorts);
        TAVOServiceConfPortsFree(pList->pDstPorts);
        std::free(std::exchange(pList, pList->pNext));
    }
}
