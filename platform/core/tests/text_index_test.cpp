#include "text_index.h"

#include <gtest/gtest.h>

#include <random>
#include <string>
#include <unordered_map>
#include <vector>

#include "failing_allocation.h"

namespace tavo {
namespace {

TEST(TextIndex, NumbersTextsInTheOrderOfFirstAppearance) {
    TextIndex index;
    EXPECT_EQ(index.Add("b"), 0u);
    EXPECT_EQ(index.Add("a"), 1u);
    EXPECT_EQ(index.Add("b"), 0u);
    EXPECT_EQ(index.Add(""), 2u);
    EXPECT_EQ(index.Add(""), 2u);
    EXPECT_EQ(index.Find("b"), 0u);
    EXPECT_EQ(index.Find("a"), 1u);
    EXPECT_EQ(index.Find(""), 2u);
    EXPECT_EQ(index.Find("B"), TextIndex::kNone);
    EXPECT_EQ(index.Count(), 3u);
}

TEST(TextIndex, AgreesWithAMapForAnyNumberOfTexts) {
    std::mt19937 random(1);
    std::vector<std::string> texts(20'000);
    TextIndex index;
    std::unordered_map<std::string, std::size_t> model;
    for (std::string &text : texts) {
        text = std::to_string(random() % 10'000);
        const bool known = model.count(text) > 0;
        ASSERT_EQ(index.Find(text), known ? model[text] : TextIndex::kNone);
        model.emplace(text, model.size());
        ASSERT_EQ(index.Add(text), model[text]);
        ASSERT_EQ(index.Find(text), model[text]);
        ASSERT_EQ(index.Count(), model.size());
    }
}

TEST(TextIndex, IsUnchangedWhenMemoryRunsOut) {
    std::vector<std::string> texts;
    for (int i = 0; i < 100; ++i) {
        texts.push_back(std::to_string(i));
    }
    const int allocations = test::ForEachFailingAllocation([&](test::FailingAllocation &fail) {
        TextIndex index;
        std::size_t added = 0;
        fail.During([&] {
            while (added < texts.size() && index.Add(texts[added]) == added) {
                ++added;
            }
            return 0;
        });
        EXPECT_EQ(added == texts.size(), !fail.Hit());
        EXPECT_EQ(index.Count(), added);
        for (std::size_t i = 0; i < texts.size(); ++i) {
            EXPECT_EQ(index.Find(texts[i]), i < added ? i : TextIndex::kNone);
        }
    });
    EXPECT_GT(allocations, 2);
}

TEST(TextIndex, StoresAFewTextsInItself) {
    TextIndex index;
    EXPECT_EQ(test::WithoutMemory([&] {
                  for (const char *text : {"a", "b", "c", "d", "e", "f", "g", "h"}) {
                      index.Add(text);
                  }
                  return index.Count();
              }),
              8u);
}

}  // namespace
}  // namespace tavo
