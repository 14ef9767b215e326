// Compares the key set with a std::map.
#include "check/key_set.h"

#include <gmock/gmock.h>

#include <map>
#include <random>
#include <utility>
#include <vector>

#include "failing_allocation.h"

namespace tavo::test {
namespace {

using Key = std::pair<uint64_t, uint64_t>;
using Added = KeySet::Result;

// Adds each key twice to the set. The results and the numbers of the keys must be those of the map.
void ExpectAsInAMap(const std::vector<Key> &keys) {
    KeySet set;
    std::map<Key, std::size_t> numbers;
    for (const auto &[first, second] : keys) {
        const auto [known, is_new] = numbers.try_emplace({first, second}, numbers.size());
        std::size_t number = SIZE_MAX;
        ASSERT_EQ(set.Add(first, second, &number), is_new ? Added::kAdded : Added::kKnown)
            << first << " " << second;
        ASSERT_EQ(number, known->second) << first << " " << second;
        ASSERT_EQ(set.Add(first, second), Added::kKnown) << first << " " << second;
    }
}

TEST(KeySet, KnowsWhatWasAdded) {
    KeySet set;
    EXPECT_EQ(set.Add(0, 0), Added::kAdded) << "a free slot is no key";
    EXPECT_EQ(set.Add(0, 0), Added::kKnown);
    EXPECT_EQ(set.Add(1, 2), Added::kAdded);
    EXPECT_EQ(set.Add(2, 1), Added::kAdded);
    EXPECT_EQ(set.Add(1, 2), Added::kKnown);
}

TEST(KeySet, DistinguishesKeysByEveryBit) {
    std::vector<Key> keys = {{0, 0}};
    for (int bit = 0; bit < 64; ++bit) {
        const uint64_t one = uint64_t{1} << bit;
        keys.insert(keys.end(), {{one, 0}, {0, one}, {one, one}, {~one, 7}, {7, ~one}});
    }
    ExpectAsInAMap(keys);
}

TEST(KeySet, DistinguishesKeysOfTheSameSlot) {
    std::mt19937_64 random(17);
    std::vector<Key> keys;
    for (uint64_t i = 0; i < 200; ++i) {
        const uint64_t first = random();
        const uint64_t second = random();
        const uint64_t other = i % 2 == 0 ? random() : second ^ (uint64_t{1} << 63);
        keys.emplace_back(first, second);
        keys.emplace_back(first ^ Spread(second) ^ Spread(other), other);
        keys.emplace_back(first, second ^ ((i % 7 + 1) << 32));
    }
    ExpectAsInAMap(keys);
}

TEST(KeySet, HoldsAChainThatAllStartsInOneSlot) {
    std::vector<Key> keys;
    for (uint64_t second = 0; second < 1000; ++second) {
        keys.emplace_back(Spread(second), second);
    }
    ExpectAsInAMap(keys);
}

TEST(KeySet, AgreesWithAMapOnAnyKeys) {
    std::mt19937_64 random(18);
    for (const uint64_t limit : {uint64_t{3}, uint64_t{100}, UINT64_MAX}) {
        std::vector<Key> keys;
        for (int i = 0; i < 20000; ++i) {
            keys.emplace_back(random() % limit, random() % limit);
        }
        ExpectAsInAMap(keys);
    }
}

TEST(KeySet, KeepsItsKeysWhenMemoryRunsOut) {
    KeySet set;
    FailingAllocation first(1, FailingAllocation::Mode::kOnlyNth);
    EXPECT_EQ(first.During([&] { return set.Add(0, 1); }), Added::kNoMemory);
    EXPECT_EQ(set.Add(0, 1), Added::kAdded);
    uint64_t count = 1;
    while (first.During([&] { return set.Add(count, 1); }) == Added::kAdded) {
        ++count;
    }
    EXPECT_GT(count, 1u);
    for (uint64_t known = 0; known < count; ++known) {
        EXPECT_EQ(set.Add(known, 1), Added::kKnown);
    }
    EXPECT_EQ(set.Add(count, 1), Added::kAdded) << "it did not fit before";
}

}  // namespace
}  // namespace tavo::test
