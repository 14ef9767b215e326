#include <algorithm>
#include <climits>
#include <map>
#include <string>

#include "values_support.h"

namespace {

using testing::ElementsAre;
using testing::IsEmpty;
using testing::Pair;
using namespace tavo::test;

Pairs Numbered(int count) {
    Pairs pairs;
    for (int i = 0; i < count; ++i) {
        pairs.emplace_back("key" + std::to_string(i), "value" + std::to_string(i));
    }
    return pairs;
}

void SetAll(const HashPtr &hash, const Pairs &pairs) {
    for (const auto &[key, value] : pairs) {
        TLIBCSzHashSetValue(hash.get(), key.c_str(), value.c_str());
    }
}

TEST(SzHashAlloc, ReturnsAnEmptyTableForAnyCapacity) {
    for (const int capacity : {INT_MIN, -1, 0, 1, 1024, INT_MAX}) {
        const HashPtr hash(TLIBCSzHashAlloc(capacity));
        ASSERT_NE(hash, nullptr) << capacity;
        EXPECT_EQ(TLIBCSzHashCount(hash.get()), 0) << capacity;
        EXPECT_EQ(TLIBCSzHashGetValue(hash.get(), "a"), nullptr) << capacity;
        EXPECT_EQ(TLIBCSzHashSetValue(hash.get(), "a", "1"), 0) << capacity;
        EXPECT_STREQ(TLIBCSzHashGetValue(hash.get(), "a"), "1") << capacity;
    }
}

TEST(SzHashAlloc, ReportsThatMemoryRanOut) {
    const int allocations = ForEachFailingAllocation([](FailingAllocation &fail) {
        TLIBCErrSetEx(0, nullptr, 0);
        const HashPtr hash(fail.During([] { return TLIBCSzHashAlloc(1024); }));
        EXPECT_EQ(hash == nullptr, fail.Hit());
        EXPECT_EQ(RecordedError(), fail.Hit() ? "0x200 sz_hash.cpp" : "");
    });
    EXPECT_EQ(allocations, 2);
}

TEST(SzHashSetValue, KeepsTheOrderInWhichKeysWereAdded) {
    EXPECT_THAT(Contents(HashOf({{"z", "1"}, {"a", "2"}, {"m", "3"}})),
                ElementsAre(Pair("z", "1"), Pair("a", "2"), Pair("m", "3")));
}

TEST(SzHashSetValue, KeepsThePositionOfAnExistingKey) {
    EXPECT_THAT(Contents(HashOf({{"z", "1"}, {"a", "2"}, {"z", "3"}})),
                ElementsAre(Pair("z", "3"), Pair("a", "2")));
}

TEST(SzHashSetValue, DistinguishesKeysByCaseAndLength) {
    EXPECT_THAT(Contents(HashOf({{"a", "1"}, {"A", "2"}, {"aa", "3"}, {"", "4"}, {" a", "5"}})),
                ElementsAre(Pair("a", "1"), Pair("A", "2"), Pair("aa", "3"), Pair("", "4"),
                            Pair(" a", "5")));
}

TEST(SzHashSetValue, CopiesKeyAndValue) {
    const HashPtr hash = HashOf({});
    std::string key = "key";
    std::string value = "value";
    TLIBCSzHashSetValue(hash.get(), key.c_str(), value.c_str());
    key.assign("yek");
    value.assign("eulav");
    EXPECT_THAT(Contents(hash), ElementsAre(Pair("key", "value")));
}

TEST(SzHashSetValue, AcceptsTheValueItReturned) {
    const HashPtr hash = HashOf({{"a", "old value"}});
    EXPECT_EQ(TLIBCSzHashSetValue(hash.get(), "a", TLIBCSzHashGetValue(hash.get(), "a")), 0);
    EXPECT_STREQ(TLIBCSzHashGetValue(hash.get(), "a"), "old value");
    EXPECT_EQ(TLIBCSzHashSetValue(hash.get(), "a", TLIBCSzHashGetValue(hash.get(), "a") + 4), 0);
    EXPECT_STREQ(TLIBCSzHashGetValue(hash.get(), "a"), "value");
}

TEST(SzHashSetValue, AcceptsItsOwnKeyAndValue) {
    const HashPtr hash = HashOf({{"a", "a"}});
    const char *value = TLIBCSzHashGetValue(hash.get(), "a");
    EXPECT_EQ(TLIBCSzHashSetValue(hash.get(), value, "b"), 0);
    const char *key = nullptr;
    TLIBCSzHashEnum(hash.get(), 0, &key, nullptr);
    EXPECT_EQ(TLIBCSzHashSetValue(hash.get(), key, key), 0);
    EXPECT_THAT(Contents(hash), ElementsAre(Pair("a", "a")));
}

TEST(SzHashSetValue, FindsEveryKeyOfMany) {
    const Pairs pairs = Numbered(20000);
    const HashPtr hash = HashOf(pairs);
    EXPECT_EQ(Contents(hash), pairs);
    for (const auto &[key, value] : pairs) {
        ASSERT_STREQ(TLIBCSzHashGetValue(hash.get(), key.c_str()), value.c_str());
    }
    EXPECT_EQ(TLIBCSzHashGetValue(hash.get(), "key20000"), nullptr);
}

TEST(SzHashSetValue, GrowsGeometrically) {
    const Pairs pairs = Numbered(1000);
    const HashPtr hash = HashOf({}, 1);
    EXPECT_FALSE(AllocatesMoreThan(1000 + 10 + 7, [&] { SetAll(hash, pairs); }))
        << "one for each key, ten doublings of the entries, the index of 32 to 2048";
    EXPECT_EQ(Contents(hash), pairs);
}

TEST(SzHashSetValue, RejectsNull) {
    const HashPtr hash = HashOf({{"a", "1"}});
    EXPECT_RESULT(TLIBCSzHashSetValue(nullptr, "b", "2"), -1, "0xD00 sz_hash.cpp");
    EXPECT_RESULT(TLIBCSzHashSetValue(hash.get(), nullptr, "2"), -1, "0xD00 sz_hash.cpp");
    EXPECT_RESULT(TLIBCSzHashSetValue(hash.get(), "a", nullptr), -1, "0xD00 sz_hash.cpp");
    EXPECT_RESULT(TLIBCSzHashSetValue(hash.get(), "b", nullptr), -1, "0xD00 sz_hash.cpp");
    EXPECT_THAT(Contents(hash), ElementsAre(Pair("a", "1")));
}

const std::string kLongValue(2000, 'v');

TEST(SzHashSetValue, LeavesTheTableUnchangedWhenANewKeyRunsOutOfMemory) {
    // Eight keys fill the entries, and are the maximum without an index.
    const Pairs before = Numbered(8);
    Pairs after = before;
    after.emplace_back("new", kLongValue);
    const int allocations = ForEachFailingAllocation([&](FailingAllocation &fail) {
        const HashPtr hash = HashOf(before, 8);
        const auto set = [&] { return TLIBCSzHashSetValue(hash.get(), "new", kLongValue.c_str()); };
        TLIBCErrSetEx(0, nullptr, 0);
        const int result = fail.During(set);
        if (fail.Hit()) {
            EXPECT_EQ(result, -1);
            EXPECT_EQ(RecordedError(), "0x200 sz_hash.cpp");
            EXPECT_EQ(Contents(hash), before);
            EXPECT_EQ(TLIBCSzHashGetValue(hash.get(), "new"), nullptr);
            EXPECT_STREQ(TLIBCSzHashGetValue(hash.get(), "key7"), "value7");
            EXPECT_EQ(set(), 0);
        }
        EXPECT_EQ(Contents(hash), after);
        EXPECT_EQ(TLIBCSzHashGetValue(hash.get(), "new"), kLongValue);
    });
    EXPECT_EQ(allocations, 3) << "key and value, entries, index";
}

TEST(SzHashSetValue, KeepsTheOldValueWhenTheNewOneRunsOutOfMemory) {
    const int allocations = ForEachFailingAllocation([](FailingAllocation &fail) {
        const HashPtr hash = HashOf({{"a", "old"}});
        const int result =
            fail.During([&] { return TLIBCSzHashSetValue(hash.get(), "a", kLongValue.c_str()); });
        EXPECT_EQ(result, fail.Hit() ? -1 : 0);
        EXPECT_EQ(TLIBCSzHashGetValue(hash.get(), "a"), fail.Hit() ? "old" : kLongValue);
        EXPECT_EQ(TLIBCSzHashCount(hash.get()), 1);
    });
    EXPECT_EQ(allocations, 1);
}

TEST(SzHashSetValue, ChangesAValueAnyNumberOfTimes) {
    const HashPtr hash = HashOf({{"a", "1"}, {"b", "2"}});
    for (const std::size_t size : {0U, 1U, 900U, 10U, 2000U, 3U, 100U}) {
        for (int i = 0; i < 20; ++i) {
            const std::string value(size + static_cast<std::size_t>(i), 'x');
            ASSERT_EQ(TLIBCSzHashSetValue(hash.get(), "a", value.c_str()), 0);
            ASSERT_EQ(Contents(hash), (Pairs{{"a", value}, {"b", "2"}}));
        }
    }
}

TEST(SzHashGetValue, ReturnsNullForAMissingKey) {
    const HashPtr hash = HashOf({{"a", "1"}});
    EXPECT_RESULT(TLIBCSzHashGetValue(hash.get(), "b"), nullptr, "");
    EXPECT_RESULT(TLIBCSzHashGetValue(hash.get(), ""), nullptr, "");
    EXPECT_RESULT(TLIBCSzHashGetValue(hash.get(), nullptr), nullptr, "");
    EXPECT_RESULT(TLIBCSzHashGetValue(nullptr, "a"), nullptr, "");
}

TEST(SzHashGetValue, StaysValidWhenOtherKeysAreSet) {
    const HashPtr hash = HashOf({{"a", "1"}});
    const char *value = TLIBCSzHashGetValue(hash.get(), "a");
    SetAll(hash, Numbered(1000));
    EXPECT_EQ(TLIBCSzHashGetValue(hash.get(), "a"), value);
    EXPECT_STREQ(value, "1");
}

TEST(SzHashCount, CountsKeysOnce) {
    EXPECT_EQ(TLIBCSzHashCount(HashOf({{"a", "1"}, {"b", "2"}, {"a", "3"}}).get()), 2);
    EXPECT_RESULT(TLIBCSzHashCount(nullptr), 0, "");
}

TEST(SzHashEnum, ReturnsTheRequestedParts) {
    const HashPtr hash = HashOf({{"a", "1"}});
    const char *key = nullptr;
    const char *value = nullptr;
    EXPECT_EQ(TLIBCSzHashEnum(hash.get(), 0, &key, nullptr), 0);
    EXPECT_STREQ(key, "a");
    EXPECT_EQ(TLIBCSzHashEnum(hash.get(), 0, nullptr, &value), 0);
    EXPECT_STREQ(value, "1");
    EXPECT_EQ(TLIBCSzHashEnum(hash.get(), 0, nullptr, nullptr), 0);
}

TEST(SzHashEnum, ReportsAMissingEntry) {
    const HashPtr hash = HashOf({{"a", "1"}}, 16);
    const char *key = "untouched key";
    const char *value = "untouched value";
    for (const int index : {-1, 1, 2, INT_MAX, INT_MIN}) {
        EXPECT_RESULT(TLIBCSzHashEnum(hash.get(), index, &key, &value), -1, "");
    }
    EXPECT_RESULT(TLIBCSzHashEnum(nullptr, 0, &key, &value), -1, "");
    EXPECT_STREQ(key, "untouched key");
    EXPECT_STREQ(value, "untouched value");
}

TEST(SzHashClear, RemovesEveryKey) {
    const HashPtr hash = HashOf({{"a", "1"}, {"b", "2"}});
    TLIBCSzHashClear(hash.get());
    EXPECT_EQ(TLIBCSzHashCount(hash.get()), 0);
    EXPECT_EQ(TLIBCSzHashGetValue(hash.get(), "a"), nullptr);
    EXPECT_THAT(Contents(hash), IsEmpty());
    TLIBCSzHashSetValue(hash.get(), "b", "3");
    EXPECT_THAT(Contents(hash), ElementsAre(Pair("b", "3")));
}

TEST(SzHashClear, KeepsTheMemory) {
    const Pairs pairs = Numbered(1000);
    const HashPtr hash = HashOf(pairs);
    TLIBCSzHashClear(hash.get());
    EXPECT_FALSE(AllocatesMoreThan(2000, [&] { SetAll(hash, pairs); }));
    EXPECT_EQ(Contents(hash), pairs);
}

TEST(SzHashClear, AcceptsAnEmptyTableAndNull) {
    const HashPtr hash = HashOf({});
    TLIBCSzHashClear(hash.get());
    TLIBCSzHashClear(nullptr);
    EXPECT_EQ(TLIBCSzHashCount(hash.get()), 0);
}

TEST(SzHashFree, AcceptsNull) {
    TLIBCSzHashFree(nullptr);
}

// Compares a table with a vector of pairs, which has the order, and a map, which has the values.
class TableAndMap {
  public:
    explicit TableAndMap(std::mt19937 &random) : random_(random) {}

    void Step() {
        const int choice = Below(random_, 1000);
        if (choice == 0) {
            TLIBCSzHashClear(table_.get());
            pairs_.clear();
            map_.clear();
        } else if (choice < 300) {
            Get();
        } else {
            Set();
        }
    }

    void Compare() const {
        ASSERT_EQ(TLIBCSzHashCount(table_.get()), static_cast<int>(map_.size()));
        ASSERT_EQ(Contents(table_), pairs_);
    }

  private:
    std::string Key() { return std::to_string(Below(random_, 1500)); }

    void Set() {
        const std::string key = Key();
        const std::string value = std::to_string(random_());
        ASSERT_EQ(TLIBCSzHashSetValue(table_.get(), key.c_str(), value.c_str()), 0);
        if (map_.insert_or_assign(key, value).second) {
            pairs_.emplace_back(key, value);
            return;
        }
        std::find_if(pairs_.begin(), pairs_.end(), [&](const auto &pair) {
            return pair.first == key;
        })->second = value;
    }

    void Get() {
        const std::string key = Key();
        const char *value = TLIBCSzHashGetValue(table_.get(), key.c_str());
        const auto known = map_.find(key);
        ASSERT_EQ(value != nullptr, known != map_.end());
        if (value != nullptr) {
            ASSERT_EQ(value, known->second);
        }
    }

    std::mt19937 &random_;
    HashPtr table_ = HashOf({});
    Pairs pairs_;
    std::map<std::string, std::string> map_;
};

TEST(SzHash, BehavesAsAnOrderedMap) {
    std::mt19937 random = SeededRandom();
    TableAndMap both(random);
    for (int step = 0; step < 10000 && !testing::Test::HasFatalFailure(); ++step) {
        both.Step();
        if (step % 100 == 0) {
            both.Compare();
        }
    }
    both.Compare();
}

}  // namespace
