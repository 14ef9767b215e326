#include <gmock/gmock.h>

#include <cstdlib>
#include <cstring>

#include "failing_allocation.h"
#include "library_test.h"

namespace tavo::test {
namespace {

using testing::AnyOf;
using testing::ElementsAre;
using testing::IsEmpty;

class ComposeSectionInfo : public LibraryTest {
  protected:
    ~ComposeSectionInfo() override { TAVOServiceConfSectionFree(list_); }

    TAVO_SERVICE_CONF_SECTION *list_ = nullptr;
};

void FillString(TAVO_SERVICE_CONF_STRING &string, const char *prefix) {
    snprintf(string.szSource, sizeof(string.szSource), "%s source", prefix);
    snprintf(string.szSection, sizeof(string.szSection), "%s section", prefix);
    snprintf(string.szKey, sizeof(string.szKey), "%s key", prefix);
    snprintf(string.szText, sizeof(string.szText), "%s text", prefix);
    snprintf(string.szExtra, sizeof(string.szExtra), "%s extra", prefix);
}

void ExpectCopied(const TAVO_SERVICE_CONF_STRING &copy, const TAVO_SERVICE_CONF_STRING &source) {
    EXPECT_STREQ(copy.szSource, source.szSource);
    EXPECT_STREQ(copy.szSection, source.szSection);
    EXPECT_STREQ(copy.szKey, source.szKey);
    EXPECT_STREQ(copy.szText, source.szText);
    EXPECT_STREQ(copy.szExtra, "");
}

TAVO_SERVICE_CONF_SECTION Sample() {
    static TAVO_SERVICE_CONF_PORT src[] = {{0, 0, 1, 7, 0, nullptr}};
    static TAVO_SERVICE_CONF_PORT dst[] = {
        {1, 0, 3, 443, 0, &dst[1]}, {1, 1, 3, 90, 80, &dst[2]}, {1, 0, 3, 25, 0, nullptr}};
    TAVO_SERVICE_CONF_SECTION section = {};
    strcpy(section.szName, "example-web");
    FillString(section.strTitle, "title");
    FillString(section.strDesc, "desc");
    section.blPortForward = 1;
    section.pSrcPorts = src;
    section.pDstPorts = dst;
    static TAVO_SERVICE_CONF_SECTION elsewhere;
    section.pNext = &elsewhere;
    return section;
}

TEST_F(ComposeSectionInfo, CopiesEverythingButTheExtraTexts) {
    const TAVO_SERVICE_CONF_SECTION source = Sample();
    ASSERT_EQ(TAVOServiceComposeSectionInfo(&source, &list_), 0);
    EXPECT_STREQ(list_->szName, "example-web");
    ExpectCopied(list_->strTitle, source.strTitle);
    ExpectCopied(list_->strDesc, source.strDesc);
    EXPECT_EQ(list_->blPortForward, 1U);
    EXPECT_EQ(list_->pNext, nullptr);
    EXPECT_EQ(TLIBCErrGet(), 0U);
    EXPECT_THAT(Messages(), IsEmpty());
}

TEST_F(ComposeSectionInfo, CopiesThePortListsInTheirOrder) {
    const TAVO_SERVICE_CONF_SECTION source = Sample();
    ASSERT_EQ(TAVOServiceComposeSectionInfo(&source, &list_), 0);
    EXPECT_THAT(Describe(list_->pSrcPorts), ElementsAre("src 7 protocol 1"));
    EXPECT_THAT(Describe(list_->pDstPorts),
                ElementsAre("dst 443 protocol 3", "dst 90:80 protocol 3", "dst 25 protocol 3"));
    EXPECT_NE(list_->pDstPorts, source.pDstPorts);
}

TEST_F(ComposeSectionInfo, CopiesThePortForwardFlagAsItIs) {
    TAVO_SERVICE_CONF_SECTION source = {};
    ASSERT_EQ(TAVOServiceComposeSectionInfo(&source, &list_), 0);
    EXPECT_EQ(list_->blPortForward, 0U);
    source.blPortForward = 5;
    ASSERT_EQ(TAVOServiceComposeSectionInfo(&source, &list_), 0);
    EXPECT_EQ(list_->blPortForward, 5U);
}

TEST_F(ComposeSectionInfo, LeavesAbsentPortListsAbsent) {
    TAVO_SERVICE_CONF_SECTION source = {};
    ASSERT_EQ(TAVOServiceComposeSectionInfo(&source, &list_), 0);
    EXPECT_EQ(list_->pSrcPorts, nullptr);
    EXPECT_EQ(list_->pDstPorts, nullptr);
}

TEST_F(ComposeSectionInfo, PutsTheCopyInFront) {
    TAVO_SERVICE_CONF_SECTION source = {};
    strcpy(source.szName, "first");
    ASSERT_EQ(TAVOServiceComposeSectionInfo(&source, &list_), 0);
    strcpy(source.szName, "second");
    ASSERT_EQ(TAVOServiceComposeSectionInfo(&source, &list_), 0);
    EXPECT_THAT(Names(list_), ElementsAre("second", "first"));
}

TEST_F(ComposeSectionInfo, BoundsFieldsThatLackATerminator) {
    // On the heap, so that the sanitizers detect a read after the last field.
    auto *source = static_cast<TAVO_SERVICE_CONF_SECTION *>(calloc(1, sizeof(*list_)));
    memset(source->szName, 'n', sizeof(source->szName));
    memset(&source->strTitle, 't', sizeof(source->strTitle));
    memset(&source->strDesc, 'd', sizeof(source->strDesc));
    ASSERT_EQ(TAVOServiceComposeSectionInfo(source, &list_), 0);
    EXPECT_EQ(std::string(list_->szName), std::string(255, 'n'));
    EXPECT_EQ(std::string(list_->strTitle.szSource), std::string(255, 't'));
    EXPECT_EQ(std::string(list_->strTitle.szSection), std::string(63, 't'));
    EXPECT_EQ(std::string(list_->strTitle.szKey), std::string(127, 't'));
    EXPECT_EQ(std::string(list_->strTitle.szText), std::string(127, 't'));
    EXPECT_EQ(std::string(list_->strDesc.szText), std::string(127, 'd'));
    EXPECT_STREQ(list_->strDesc.szExtra, "");
    free(source);
}

TEST_F(ComposeSectionInfo, RejectsNullWithoutALogLine) {
    const TAVO_SERVICE_CONF_SECTION source = {};
    EXPECT_EQ(TAVOServiceComposeSectionInfo(nullptr, &list_), -1);
    EXPECT_EQ(ErrorState(), "0xD00 service_compose_section_info.cpp");
    TLIBCErrSetEx(0, nullptr, 0);
    EXPECT_EQ(TAVOServiceComposeSectionInfo(&source, nullptr), -1);
    EXPECT_EQ(ErrorState(), "0xD00 service_compose_section_info.cpp");
    EXPECT_THAT(Messages(), IsEmpty());
}

TEST_F(ComposeSectionInfo, ReportsEveryFailedAllocation) {
    const TAVO_SERVICE_CONF_SECTION source = Sample();
    const int allocations = ForEachFailingAllocation([&](FailingAllocation &fail) {
        TAVO_SERVICE_CONF_SECTION before = {};
        TAVO_SERVICE_CONF_SECTION *list = &before;
        log_.Clear();
        TLIBCErrSetEx(0, nullptr, 0);
        const int result =
            fail.During([&] { return TAVOServiceComposeSectionInfo(&source, &list); });
        if (!fail.Hit()) {
            ASSERT_EQ(result, 0);
            list->pNext = nullptr;
            TAVOServiceConfSectionFree(list);
            return;
        }
        EXPECT_EQ(result, -1);
        EXPECT_EQ(list, &before);
        EXPECT_EQ(ErrorState(), "0x200 service_compose_section_info.cpp");
        EXPECT_THAT(Messages(),
                    ElementsAre(AnyOf("Failed to allocate TAVO_SERVICE_CONF_SECTION! "
                                      "[0x0200 service_compose_section_info.cpp:N]",
                                      "Failed to allocate for service, "
                                      "tavoerr=[0x0200 service_compose_section_info.cpp:N]")));
    });
    EXPECT_EQ(allocations, 5);
}

TEST_F(ComposeSectionInfo, ReportsTheSectionFromItsPortsWhenMemoryRunsOut) {
    const TAVO_SERVICE_CONF_SECTION source = Sample();
    FailingAllocation first(1, FailingAllocation::Mode::kOnlyNth);
    first.During([&] { return TAVOServiceComposeSectionInfo(&source, &list_); });
    FailingAllocation third(3, FailingAllocation::Mode::kOnlyNth);
    third.During([&] { return TAVOServiceComposeSectionInfo(&source, &list_); });
    EXPECT_THAT(Messages(), ElementsAre("Failed to allocate TAVO_SERVICE_CONF_SECTION! "
                                        "[0x0200 service_compose_section_info.cpp:N]",
                                        "Failed to allocate for service, "
                                        "tavoerr=[0x0200 service_compose_section_info.cpp:N]"));
    EXPECT_EQ(list_, nullptr);
}

TEST_F(ComposeSectionInfo, FreeTakesNull) {
    TAVOServiceConfSectionFree(nullptr);
}

}  // namespace
}  // namespace tavo::test
