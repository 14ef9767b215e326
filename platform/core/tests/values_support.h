// Owners, conversions and checks for the tests of lists, tables, strings and the error state.
#ifndef TAVO_PLATFORM_CORE_TESTS_VALUES_SUPPORT_H
#define TAVO_PLATFORM_CORE_TESTS_VALUES_SUPPORT_H

#include <gmock/gmock.h>

#include <cstdlib>
#include <iostream>
#include <memory>
#include <random>
#include <string>
#include <utility>
#include <vector>

#include "failing_allocation.h"
#include "tavocore.h"

namespace tavo::test {

// A deleter for unique_ptr that calls Function.
template <auto Function>
struct With {
    template <typename T>
    void operator()(T *handle) const {
        Function(handle);
    }
};

using ListPtr = std::unique_ptr<TLIBCSzList, With<TLIBCSzListFree>>;
using HashPtr = std::unique_ptr<TLIBCSzHash, With<TLIBCSzHashFree>>;
using Pairs = std::vector<std::pair<std::string, std::string>>;

inline ListPtr ListOf(const std::vector<std::string> &items, int capacity = 1) {
    ListPtr list(TLIBCSzListAlloc(capacity));
    TLIBCSzList *handle = list.get();
    for (const std::string &item : items) {
        TLIBCSzListPush(&handle, item.c_str());
    }
    return list;
}

inline std::vector<std::string> Contents(const ListPtr &list) {
    std::vector<std::string> items;
    for (int i = 0; i < TLIBCSzListCount(list.get()); ++i) {
        items.emplace_back(TLIBCSzListGet(list.get(), i));
    }
    return items;
}

inline HashPtr HashOf(const Pairs &pairs, int capacity = 1) {
    HashPtr hash(TLIBCSzHashAlloc(capacity));
    for (const auto &[key, value] : pairs) {
        TLIBCSzHashSetValue(hash.get(), key.c_str(), value.c_str());
    }
    return hash;
}

inline Pairs Contents(const HashPtr &hash) {
    Pairs pairs;
    const char *key = nullptr;
    const char *value = nullptr;
    for (int i = 0; TLIBCSzHashEnum(hash.get(), i, &key, &value) == 0; ++i) {
        pairs.emplace_back(key, value);
    }
    return pairs;
}

// The recorded error as "0xD00 strings.cpp", "" when there is none.
inline std::string RecordedError() {
    if (TLIBCErrGet() == 0) {
        return "";
    }
    char code[16];
    std::snprintf(code, sizeof(code), "0x%X ", TLIBCErrGet());
    return code + std::string(TLIBCErrorGetFile()) + (TLIBCErrorGetLine() > 0 ? "" : " no line");
}

// The result of `call`, with the error state cleared before.
template <typename Call>
auto AfterClearing(Call call) {
    TLIBCErrSetEx(0, nullptr, 0);
    return call();
}

// Checks that `call` returns `result` and records `error`, which is "" if no error is expected.
#define EXPECT_RESULT(call, result, error)                                      \
    do {                                                                        \
        EXPECT_EQ(::tavo::test::AfterClearing([&] { return (call); }), result); \
        EXPECT_EQ(::tavo::test::RecordedError(), error);                        \
    } while (false)

// Whether `call` makes more than `count` allocations.
template <typename Call>
bool AllocatesMoreThan(int count, Call call) {
    FailingAllocation next(count + 1, FailingAllocation::Mode::kOnlyNth);
    next.During(call);
    return next.Hit();
}

// A random generator that prints its seed; setting TAVO_TEST_SEED to it repeats a run.
inline std::mt19937 SeededRandom() {
    const char *wanted = std::getenv("TAVO_TEST_SEED");
    const unsigned long seed =
        wanted != nullptr ? std::strtoul(wanted, nullptr, 10) : std::random_device()();
    std::cout << "TAVO_TEST_SEED=" << seed << '\n';
    return std::mt19937(static_cast<std::mt19937::result_type>(seed));
}

inline int Below(std::mt19937 &random, int bound) {
    return std::uniform_int_distribution<int>(0, bound - 1)(random);
}

}  // namespace tavo::test

#endif
