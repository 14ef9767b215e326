#include "section_map.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "failing_allocation.h"
#include "small_array.h"
#include "temporary_folder.h"

namespace tavo {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

class SectionMapTest : public testing::Test {
  protected:
    void Build(const std::string &text) {
        ASSERT_TRUE(file_.Load(folder_.Write("file", text).c_str()));
        ASSERT_TRUE(map_.Build(file_));
    }

    std::vector<std::string> Names() const {
        std::vector<std::string> names;
        for (int i = 0; i < map_.SectionCount(); ++i) {
            names.emplace_back(map_.Name(i));
        }
        return names;
    }

    std::vector<std::string> Blocks(std::string_view name) const {
        std::vector<std::string> blocks;
        for (const auto *block = map_.FirstBlock(name); block != nullptr;
             block = map_.NextBlock(*block)) {
            blocks.emplace_back(block->lines);
        }
        return blocks;
    }

    test::TemporaryFolder folder_;
    FileText file_;
    SectionMap map_;
};

TEST_F(SectionMapTest, ReturnsTheLinesAfterEachHeader) {
    Build("top=1\n[a]\nx=1\n# note\n\n [b] \r\ny=2\n[c]");
    EXPECT_THAT(Names(), ElementsAre("a", "b", "c"));
    EXPECT_THAT(Blocks("a"), ElementsAre("x=1\n# note\n\n"));
    EXPECT_THAT(Blocks("b"), ElementsAre("y=2\n"));
    EXPECT_THAT(Blocks("c"), ElementsAre(""));
}

TEST_F(SectionMapTest, LinksTheBlocksOfOneName) {
    Build("[a]\n1=\n[b]\n2=\n[a]\n3=\n[a]\n[b]\n4=\n");
    EXPECT_THAT(Names(), ElementsAre("a", "b"));
    EXPECT_THAT(Blocks("a"), ElementsAre("1=\n", "3=\n", ""));
    EXPECT_THAT(Blocks("b"), ElementsAre("2=\n", "4=\n"));
}

TEST_F(SectionMapTest, ReturnsNothingForAnUnknownName) {
    Build("[a]\n");
    EXPECT_THAT(Blocks("A"), IsEmpty());
    EXPECT_THAT(Blocks(""), IsEmpty());
}

TEST_F(SectionMapTest, IsEmptyForATextWithoutSections) {
    Build("top=1\n");
    EXPECT_EQ(map_.SectionCount(), 0);
    EXPECT_EQ(map_.FirstBlock("top"), nullptr);
}

TEST_F(SectionMapTest, StoresManySections) {
    std::string text;
    for (int i = 0; i < 5000; ++i) {
        text += "[s" + std::to_string(i % 3000) + "]\nk=" + std::to_string(i) + "\n";
    }
    Build(text);
    ASSERT_EQ(map_.SectionCount(), 3000);
    EXPECT_EQ(map_.Name(2999), "s2999");
    EXPECT_THAT(Blocks("s7"), ElementsAre("k=7\n", "k=3007\n"));
    EXPECT_THAT(Blocks("s2999"), ElementsAre("k=2999\n"));
}

TEST_F(SectionMapTest, ReportsThatMemoryRanOut) {
    std::string text;
    for (int i = 0; i < 100; ++i) {
        text += "[s" + std::to_string(i) + "]\n";
    }
    ASSERT_TRUE(file_.Load(folder_.Write("file", text).c_str()));
    const int allocations = test::ForEachFailingAllocation([&](test::FailingAllocation &fail) {
        SectionMap map;
        const bool built = fail.During([&] { return map.Build(file_); });
        EXPECT_EQ(built, !fail.Hit());
    });
    EXPECT_GT(allocations, 6);
}

TEST(SmallArray, GrowsBeyondItsBuiltInElements) {
    SmallArray<int, 4> array;
    for (int i = 0; i < 1000; ++i) {
        ASSERT_TRUE(array.Append(i));
        ASSERT_EQ(array.Count(), i + 1);
    }
    for (int i = 0; i < 1000; ++i) {
        ASSERT_EQ(array[i], i);
    }
}

TEST(SmallArray, IsUnchangedWhenMemoryRunsOut) {
    const int allocations = test::ForEachFailingAllocation([](test::FailingAllocation &fail) {
        SmallArray<int, 4> array;
        const bool all = fail.During([&] {
            for (int i = 0; i < 20; ++i) {
                if (!array.Append(i)) {
                    return false;
                }
            }
            return true;
        });
        EXPECT_EQ(all, !fail.Hit());
        for (int i = 0; i < array.Count(); ++i) {
            EXPECT_EQ(array[i], i);
        }
        EXPECT_EQ(array.Count() == 20, all);
    });
    EXPECT_EQ(allocations, 3);
}

}  // namespace
}  // namespace tavo
