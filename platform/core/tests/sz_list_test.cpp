#include <algorithm>
#include <climits>
#include <string>
#include <vector>

#include "values_support.h"

namespace {

using testing::ElementsAre;
using testing::IsEmpty;
using namespace tavo::test;

TEST(SzListAlloc, ReturnsAnEmptyListForAnyCapacity) {
    for (const int capacity : {INT_MIN, -1, 0, 1, 1024, INT_MAX}) {
        const ListPtr list = ListOf({}, capacity);
        ASSERT_NE(list, nullptr) << capacity;
        EXPECT_EQ(TLIBCSzListCount(list.get()), 0) << capacity;
        TLIBCSzList *handle = list.get();
        EXPECT_EQ(TLIBCSzListPush(&handle, "a"), 1) << capacity;
    }
}

TEST(SzListAlloc, ReportsThatMemoryRanOut) {
    const int allocations = ForEachFailingAllocation([](FailingAllocation &fail) {
        TLIBCErrSetEx(0, nullptr, 0);
        const ListPtr list(fail.During([] { return TLIBCSzListAlloc(1024); }));
        EXPECT_EQ(list == nullptr, fail.Hit());
        EXPECT_EQ(RecordedError(), fail.Hit() ? "0x200 sz_list.cpp" : "");
    });
    EXPECT_EQ(allocations, 2);
}

TEST(SzListAlloc, AllocatesASmallCapacityAtOnce) {
    const ListPtr list = ListOf({}, 50);
    EXPECT_FALSE(AllocatesMoreThan(50, [&] {
        TLIBCSzList *handle = list.get();
        for (int i = 0; i < 50; ++i) {
            TLIBCSzListPush(&handle, "a");
        }
    })) << "one for each string";
    EXPECT_EQ(TLIBCSzListCount(list.get()), 50);
}

TEST(SzListPush, AppendsAndReturnsTheNewCount) {
    const ListPtr list = ListOf({});
    TLIBCSzList *handle = list.get();
    EXPECT_EQ(TLIBCSzListPush(&handle, "a"), 1);
    EXPECT_EQ(TLIBCSzListPush(&handle, ""), 2);
    EXPECT_EQ(TLIBCSzListPush(&handle, "a"), 3);
    EXPECT_EQ(handle, list.get());
    EXPECT_THAT(Contents(list), ElementsAre("a", "", "a"));
}

TEST(SzListPush, CopiesTheText) {
    const ListPtr list = ListOf({});
    TLIBCSzList *handle = list.get();
    std::string text = "before";
    TLIBCSzListPush(&handle, text.c_str());
    text.assign("after!");
    EXPECT_THAT(Contents(list), ElementsAre("before"));
}

TEST(SzListPush, AcceptsAnyBytes) {
    EXPECT_THAT(Contents(ListOf({"\xFF\xFE\n\r\t", "\x80"})),
                ElementsAre("\xFF\xFE\n\r\t", "\x80"));
}

TEST(SzListPush, AcceptsTextOfTheListItself) {
    const ListPtr list = ListOf({"first"});
    TLIBCSzList *handle = list.get();
    for (int i = 0; i < 10; ++i) {
        TLIBCSzListPush(&handle, TLIBCSzListGet(handle, i));
    }
    EXPECT_THAT(Contents(list), testing::AllOf(testing::SizeIs(11), testing::Each("first")));
}

TEST(SzListPush, DoesNotMoveStrings) {
    const ListPtr list = ListOf({"a"});
    const char *first = TLIBCSzListGet(list.get(), 0);
    TLIBCSzList *handle = list.get();
    for (int i = 0; i < 1000; ++i) {
        TLIBCSzListPush(&handle, "b");
    }
    EXPECT_EQ(TLIBCSzListGet(list.get(), 0), first);
    EXPECT_STREQ(first, "a");
}

TEST(SzListPush, GrowsGeometrically) {
    const ListPtr list = ListOf({}, 1);
    EXPECT_FALSE(AllocatesMoreThan(1000 + 10, [&] {
        TLIBCSzList *handle = list.get();
        for (int i = 0; i < 1000; ++i) {
            TLIBCSzListPush(&handle, "a");
        }
    })) << "one for each string and ten doublings";
    EXPECT_EQ(TLIBCSzListCount(list.get()), 1000);
}

TEST(SzListPush, RejectsNull) {
    const ListPtr list = ListOf({"a"});
    TLIBCSzList *handle = list.get();
    TLIBCSzList *none = nullptr;
    EXPECT_RESULT(TLIBCSzListPush(nullptr, "b"), -1, "0xD00 sz_list.cpp");
    EXPECT_RESULT(TLIBCSzListPush(&none, "b"), -1, "0xD00 sz_list.cpp");
    EXPECT_EQ(none, nullptr);
    EXPECT_RESULT(TLIBCSzListPush(&handle, nullptr), -1, "0xD00 sz_list.cpp");
    EXPECT_THAT(Contents(list), ElementsAre("a"));
}

TEST(SzListPush, LeavesTheListUnchangedWhenMemoryRunsOut) {
    const int allocations = ForEachFailingAllocation([](FailingAllocation &fail) {
        const ListPtr list = ListOf({"a", "b"}, 2);
        TLIBCSzList *handle = list.get();
        TLIBCErrSetEx(0, nullptr, 0);
        const int count = fail.During([&] { return TLIBCSzListPush(&handle, "c"); });
        EXPECT_EQ(handle, list.get());
        if (fail.Hit()) {
            EXPECT_EQ(count, -1);
            EXPECT_EQ(RecordedError(), "0x200 sz_list.cpp");
            EXPECT_THAT(Contents(list), ElementsAre("a", "b"));
            EXPECT_EQ(TLIBCSzListPush(&handle, "c"), 3);
        }
        EXPECT_THAT(Contents(list), ElementsAre("a", "b", "c"));
    });
    EXPECT_EQ(allocations, 2);
}

TEST(SzListGet, ReturnsNullOutOfRange) {
    const ListPtr list = ListOf({"a", "b"}, 16);
    EXPECT_STREQ(TLIBCSzListGet(list.get(), 1), "b");
    for (const int index : {-1, 2, 3, INT_MAX, INT_MIN}) {
        EXPECT_RESULT(TLIBCSzListGet(list.get(), index), nullptr, "");
    }
    EXPECT_RESULT(TLIBCSzListGet(nullptr, 0), nullptr, "");
}

TEST(SzListFind, ReturnsTheFirstEqualString) {
    const ListPtr list = ListOf({"a", "bb", "b", "b", ""});
    EXPECT_EQ(TLIBCSzListFind(list.get(), "a"), 0);
    EXPECT_EQ(TLIBCSzListFind(list.get(), "b"), 2);
    EXPECT_EQ(TLIBCSzListFind(list.get(), ""), 4);
}

TEST(SzListFind, ReportsThatThereIsNone) {
    const ListPtr list = ListOf({"a"});
    EXPECT_RESULT(TLIBCSzListFind(list.get(), "A"), -1, "");
    EXPECT_RESULT(TLIBCSzListFind(list.get(), ""), -1, "");
    EXPECT_RESULT(TLIBCSzListFind(list.get(), nullptr), -1, "");
    EXPECT_RESULT(TLIBCSzListFind(nullptr, "a"), -1, "");
}

TEST(SzListCount, IsZeroWithoutAList) {
    EXPECT_RESULT(TLIBCSzListCount(nullptr), 0, "");
}

TEST(SzListRemove, MovesUpTheFollowingStrings) {
    const ListPtr list = ListOf({"a", "b", "c", "d"});
    EXPECT_EQ(TLIBCSzListRemove(list.get(), 1), 0);
    EXPECT_THAT(Contents(list), ElementsAre("a", "c", "d"));
    EXPECT_EQ(TLIBCSzListRemove(list.get(), 2), 0);
    EXPECT_THAT(Contents(list), ElementsAre("a", "c"));
    EXPECT_EQ(TLIBCSzListRemove(list.get(), 0), 0);
    EXPECT_EQ(TLIBCSzListRemove(list.get(), 0), 0);
    EXPECT_THAT(Contents(list), IsEmpty());
}

TEST(SzListRemove, RejectsAnIndexOutOfRange) {
    const ListPtr list = ListOf({"a"}, 16);
    for (const int index : {-1, 1, 2, INT_MAX, INT_MIN}) {
        EXPECT_RESULT(TLIBCSzListRemove(list.get(), index), -1, "0xD00 sz_list.cpp");
    }
    EXPECT_RESULT(TLIBCSzListRemove(nullptr, 0), -1, "0xD00 sz_list.cpp");
    EXPECT_THAT(Contents(list), ElementsAre("a"));
}

TEST(SzListFree, AcceptsNull) {
    TLIBCSzListFree(nullptr);
}

// The output of Dump, written to a memory stream.
std::string Dumped(const TLIBCSzList *list) {
    char *text = nullptr;
    std::size_t size = 0;
    FILE *stream = open_memstream(&text, &size);
    TLIBCISzListDump(list, stream);
    std::fclose(stream);
    const std::unique_ptr<char, With<std::free>> owner(text);
    return {text, size};
}

TEST(SzListDump, WritesOneStringPerLine) {
    EXPECT_EQ(Dumped(ListOf({"a", "", "100% %s"}).get()), "a\n\n100% %s\n");
}

TEST(SzListDump, WritesNothingWithoutListOrStream) {
    EXPECT_EQ(Dumped(ListOf({}).get()), "");
    EXPECT_EQ(Dumped(nullptr), "");
    TLIBCISzListDump(ListOf({"a"}).get(), nullptr);
}

// Applies the same operations to a list and to a vector of strings and compares them.
class ListAndVector {
  public:
    explicit ListAndVector(std::mt19937 &random) : random_(random) {}

    void Step() {
        switch (Below(random_, 8)) {
            case 0:
                return Remove();
            case 1:
                return Find();
            default:
                return Push();
        }
    }

    void Compare() const { ASSERT_EQ(Contents(list_), vector_); }

  private:
    std::string Text() { return std::to_string(Below(random_, 200)); }

    void Push() {
        const std::string text = Text();
        vector_.push_back(text);
        TLIBCSzList *handle = list_.get();
        ASSERT_EQ(TLIBCSzListPush(&handle, text.c_str()), static_cast<int>(vector_.size()));
    }

    // The index is usually in the list, sometimes just outside.
    void Remove() {
        const int size = static_cast<int>(vector_.size());
        const int index = Below(random_, size + 2) - 1;
        const bool there = index >= 0 && index < size;
        ASSERT_EQ(TLIBCSzListRemove(list_.get(), index), there ? 0 : -1);
        if (there) {
            vector_.erase(vector_.begin() + index);
        }
    }

    void Find() {
        const std::string text = Text();
        const auto found = std::find(vector_.begin(), vector_.end(), text);
        ASSERT_EQ(TLIBCSzListFind(list_.get(), text.c_str()),
                  found == vector_.end() ? -1 : static_cast<int>(found - vector_.begin()));
    }

    std::mt19937 &random_;
    ListPtr list_ = ListOf({});
    std::vector<std::string> vector_;
};

TEST(SzList, BehavesAsAVectorOfStrings) {
    std::mt19937 random = SeededRandom();
    ListAndVector both(random);
    for (int step = 0; step < 4000 && !testing::Test::HasFatalFailure(); ++step) {
        both.Step();
        if (step % 50 == 0) {
            both.Compare();
        }
    }
    both.Compare();
}

}  // namespace
