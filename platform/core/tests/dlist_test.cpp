#include <string>
#include <vector>

#include "values_support.h"

namespace {

using testing::ElementsAre;
using namespace tavo::test;

using DListPtr = std::unique_ptr<TLIBCDList, With<TLIBCDListFree>>;

// The elements are numbers; the copies of the list are allocated with malloc and counted.
int g_copies = 0;
int g_frees = 0;

void *CopyNumber(const void *element) {
    void *copy = std::malloc(sizeof(int));
    if (copy == nullptr) {
        TLIBCErrSetEx(0x777, "copy_number", 1);
        return nullptr;
    }
    ++g_copies;
    *static_cast<int *>(copy) = *static_cast<const int *>(element);
    return copy;
}

void FreeNumber(void *element) {
    ++g_frees;
    std::free(element);
}

std::vector<int> Contents(const DListPtr &list) {
    std::vector<int> numbers;
    for (TLIBCDListNode *node = TLIBCDListFirst(list.get()); node != nullptr;
         node = TLIBCDListNext(node)) {
        numbers.push_back(*static_cast<int *>(TLIBCDListElement(node)));
    }
    return numbers;
}

DListPtr NumbersOf(const std::vector<int> &numbers) {
    DListPtr list(TLIBCDListAlloc(CopyNumber, FreeNumber));
    for (const int number : numbers) {
        TLIBCDListAppend(list.get(), &number);
    }
    return list;
}

class DList : public testing::Test {
  protected:
    void SetUp() override { g_copies = g_frees = 0; }
};

TEST_F(DList, IsEmptyAtFirst) {
    const DListPtr list = NumbersOf({});
    EXPECT_EQ(TLIBCDListCount(list.get()), 0);
    EXPECT_EQ(TLIBCDListFirst(list.get()), nullptr);
}

TEST_F(DList, KeepsTheOrderOfAppends) {
    const DListPtr list = NumbersOf({3, 1, 2, 1});
    EXPECT_THAT(Contents(list), ElementsAre(3, 1, 2, 1));
    EXPECT_EQ(TLIBCDListCount(list.get()), 4);
}

TEST_F(DList, StoresCopies) {
    int number = 1;
    const DListPtr list = NumbersOf({});
    EXPECT_RESULT(TLIBCDListAppend(list.get(), &number), 0, "");
    number = 2;
    EXPECT_THAT(Contents(list), ElementsAre(1));
    EXPECT_EQ(g_copies, 1);
}

TEST_F(DList, FreesEveryCopyOnce) {
    NumbersOf({1, 2, 3}).reset();
    EXPECT_EQ(g_copies, 3);
    EXPECT_EQ(g_frees, 3);
}

TEST_F(DList, StoresThePointersWithoutACopyFunction) {
    int number = 1;
    const DListPtr list(TLIBCDListAlloc(nullptr, nullptr));
    EXPECT_EQ(TLIBCDListAppend(list.get(), &number), 0);
    EXPECT_EQ(TLIBCDListElement(TLIBCDListFirst(list.get())), &number);
}

TEST_F(DList, FreesPointersHandedOverWithAFreeFunctionOnly) {
    const int number = 1;
    DListPtr list(TLIBCDListAlloc(nullptr, FreeNumber));
    TLIBCDListAppend(list.get(), CopyNumber(&number));
    list.reset();
    EXPECT_EQ(g_frees, 1);
}

TEST_F(DList, FreesNoElementWithoutAFreeFunction) {
    int number = 1;
    DListPtr list(
        TLIBCDListAlloc([](const void *element) { return const_cast<void *>(element); }, nullptr));
    TLIBCDListAppend(list.get(), &number);
    list.reset();
    EXPECT_EQ(number, 1);
}

TEST_F(DList, WalksOnToElementsAppendedMeanwhile) {
    const DListPtr list = NumbersOf({1});
    TLIBCDListNode *node = TLIBCDListFirst(list.get());
    EXPECT_EQ(TLIBCDListNext(node), nullptr);
    const int number = 2;
    TLIBCDListAppend(list.get(), &number);
    EXPECT_EQ(*static_cast<int *>(TLIBCDListElement(TLIBCDListNext(node))), 2);
}

TEST_F(DList, RejectsNullElements) {
    const int number = 1;
    const DListPtr list = NumbersOf({5});
    EXPECT_RESULT(TLIBCDListAppend(nullptr, &number), -1, "0xD00 dlist.cpp");
    EXPECT_RESULT(TLIBCDListAppend(list.get(), nullptr), -1, "0xD00 dlist.cpp");
    EXPECT_THAT(Contents(list), ElementsAre(5));
}

TEST_F(DList, ReturnsNothingForNull) {
    EXPECT_RESULT(TLIBCDListCount(nullptr), 0, "");
    EXPECT_RESULT(TLIBCDListFirst(nullptr), nullptr, "");
    EXPECT_RESULT(TLIBCDListNext(nullptr), nullptr, "");
    EXPECT_RESULT(TLIBCDListElement(nullptr), nullptr, "");
    TLIBCDListFree(nullptr);
}

TEST_F(DList, ReportsThatMemoryRanOutForTheList) {
    const int allocations = ForEachFailingAllocation([](FailingAllocation &fail) {
        TLIBCErrSetEx(0, nullptr, 0);
        const DListPtr list(fail.During([] { return TLIBCDListAlloc(CopyNumber, FreeNumber); }));
        EXPECT_EQ(list == nullptr, fail.Hit());
        EXPECT_EQ(RecordedError(), fail.Hit() ? "0x200 dlist.cpp" : "");
    });
    EXPECT_EQ(allocations, 1);
}

TEST_F(DList, LeavesTheListUnchangedWhenAnAppendRunsOutOfMemory) {
    int node_failures = 0;
    int copy_failures = 0;
    ForEachFailingAllocation([&](FailingAllocation &fail) {
        const DListPtr list = NumbersOf({1});
        const int number = 2;
        const auto append = [&] { return TLIBCDListAppend(list.get(), &number); };
        TLIBCErrSetEx(0, nullptr, 0);
        const int result = fail.During(append);
        if (fail.Hit()) {
            EXPECT_EQ(result, -1);
            node_failures += RecordedError() == "0x200 dlist.cpp";
            copy_failures += RecordedError() == "0x777 copy_number";
            EXPECT_EQ(TLIBCDListCount(list.get()), 1);
            EXPECT_THAT(Contents(list), ElementsAre(1));
            EXPECT_EQ(append(), 0);
        }
        EXPECT_THAT(Contents(list), ElementsAre(1, 2));
    });
    // One for each failure mode.
    EXPECT_EQ(node_failures, 2);
    EXPECT_EQ(copy_failures, 2);
    EXPECT_EQ(g_copies, g_frees);
}

TEST_F(DList, BehavesAsAVector) {
    std::mt19937 random = SeededRandom();
    for (int round = 0; round < 50; ++round) {
        const DListPtr list = NumbersOf({});
        std::vector<int> numbers;
        const int size = Below(random, 100);
        for (int i = 0; i < size; ++i) {
            numbers.push_back(Below(random, 1000));
            ASSERT_EQ(TLIBCDListAppend(list.get(), &numbers.back()), 0);
            ASSERT_EQ(TLIBCDListCount(list.get()), static_cast<int>(numbers.size()));
            if (Below(random, 10) == 0) {
                ASSERT_EQ(Contents(list), numbers);
            }
        }
        ASSERT_EQ(Contents(list), numbers);
    }
    EXPECT_EQ(g_copies, g_frees);
}

}  // namespace
