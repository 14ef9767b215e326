// Common parts of the tests of configuration files: lists and tables as values, and the error
// state.
#ifndef TAVO_PLATFORM_CORE_TESTS_FILE_SUPPORT_H
#define TAVO_PLATFORM_CORE_TESTS_FILE_SUPPORT_H

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <initializer_list>
#include <string>
#include <utility>
#include <vector>

#include "tavocore.h"

namespace tavo::test {

using Strings = std::vector<std::string>;
using Keys = std::vector<std::pair<std::string, std::string>>;

class StringList {
  public:
    explicit StringList(const Strings &items = {}) {
        for (const std::string &item : items) {
            TLIBCSzListPush(&list_, item.c_str());
        }
    }
    ~StringList() { TLIBCSzListFree(list_); }
    StringList(const StringList &) = delete;
    StringList &operator=(const StringList &) = delete;

    TLIBCSzList **Address() { return &list_; }

    Strings Items() const {
        Strings items;
        for (int i = 0; i < TLIBCSzListCount(list_); ++i) {
            items.emplace_back(TLIBCSzListGet(list_, i));
        }
        return items;
    }

  private:
    TLIBCSzList *list_ = TLIBCSzListAlloc(1);
};

class Table {
  public:
    Table(std::initializer_list<Keys::value_type> keys) : Table(Keys(keys)) {}
    explicit Table(const Keys &keys = {}) {
        for (const auto &[key, value] : keys) {
            TLIBCSzHashSetValue(table_, key.c_str(), value.c_str());
        }
    }
    ~Table() { TLIBCSzHashFree(table_); }
    Table(const Table &) = delete;
    Table &operator=(const Table &) = delete;

    TLIBCSzHash *Get() const { return table_; }
    TLIBCSzHash **Address() { return &table_; }

    Keys Entries() const {
        Keys entries;
        const char *key = nullptr;
        const char *value = nullptr;
        for (int i = 0; TLIBCSzHashEnum(table_, i, &key, &value) == 0; ++i) {
            entries.emplace_back(key, value);
        }
        return entries;
    }

  private:
    TLIBCSzHash *table_ = TLIBCSzHashAlloc(1);
};

// The documented error codes.
constexpr unsigned int kOutOfMemoryCode = 0x200;
constexpr unsigned int kMissingCode = 0x700;
constexpr unsigned int kUnusableCode = 0x900;
constexpr unsigned int kBadParameterCode = 0xD00;
constexpr unsigned int kRenameCode = 0x2800;

// An error recorded earlier, which must be unchanged after a success.
constexpr unsigned int kEarlierCode = 0xABCD;

inline void SetEarlierError() {
    TLIBCErrSetEx(kEarlierCode, "earlier.cpp", 7);
}

// Runs `call` and returns its result and the error it set; kEarlierCode if it set none, 1 if the
// error has no source file and line.
template <typename Call>
std::pair<int, unsigned int> ResultAndError(Call call) {
    SetEarlierError();
    const int result = call();
    const unsigned int error = TLIBCErrGet();
    const std::string file = TLIBCErrorGetFile();
    const bool names_place = file.ends_with(".cpp") && TLIBCErrorGetLine() > 0;
    return {result, names_place ? error : 1};
}

#define EXPECT_SUCCESS(result, call)                              \
    EXPECT_EQ(::tavo::test::ResultAndError([&] { return call; }), \
              std::make_pair(static_cast<int>(result), ::tavo::test::kEarlierCode))

#define EXPECT_FAILURE(code, call)                                \
    EXPECT_EQ(::tavo::test::ResultAndError([&] { return call; }), \
              std::make_pair(-1, static_cast<unsigned int>(code)))

// The keys of a section, read with the library under test.
inline Keys SectionOf(const std::string &path, const std::string &section) {
    Table table;
    TLIBCFileGetSection(path.c_str(), section.c_str(), table.Address());
    return table.Entries();
}

inline Strings SectionNamesOf(const std::string &path) {
    StringList names;
    TLIBCFileEnumSection(path.c_str(), names.Address());
    return names.Items();
}

}  // namespace tavo::test

#endif
