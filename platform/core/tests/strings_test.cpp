#include <sys/mman.h>
#include <unistd.h>

#include <climits>
#include <clocale>
#include <cstring>
#include <string>
#include <vector>

#include "values_support.h"

namespace {

using testing::ElementsAre;
using testing::ElementsAreArray;
using namespace tavo::test;

using TextPtr = std::unique_ptr<char, With<TLIBCStrPut>>;

// A text of 2 GiB: the same few pages mapped repeatedly, with a terminator at the end.
class HugeText {
  public:
    HugeText() {
        file_ = memfd_create("huge_text", MFD_CLOEXEC);
        const std::string piece(kPiece, 'x');
        if (file_ < 0 || write(file_, piece.data(), kPiece) != static_cast<ssize_t>(kPiece)) {
            throw std::bad_alloc();
        }
        begin_ = static_cast<char *>(
            Map(nullptr, kSize + kPiece, MAP_PRIVATE | MAP_ANONYMOUS | MAP_NORESERVE, -1));
        for (std::size_t at = 0; at < kSize; at += kPiece) {
            Map(begin_ + at, kPiece, MAP_SHARED | MAP_FIXED, file_);
        }
    }
    ~HugeText() {
        munmap(begin_, kSize + kPiece);
        close(file_);
    }
    HugeText(const HugeText &) = delete;
    HugeText &operator=(const HugeText &) = delete;

    // The last `length` bytes.
    const char *Last(std::size_t length) const { return begin_ + kSize - length; }

    static constexpr std::size_t kSize = std::size_t{1} << 31;

  private:
    static constexpr std::size_t kPiece = std::size_t{1} << 21;

    static void *Map(void *where, std::size_t size, int flags, int file) {
        void *mapped = mmap(where, size, PROT_READ, flags, file, 0);
        if (mapped == MAP_FAILED) {
            throw std::bad_alloc();
        }
        return mapped;
    }

    int file_;
    char *begin_;
};

struct Split {
    const char *text;
    const char *separators;
    std::vector<std::string> pieces;
};

// ---- TLIBCStrTok

TEST(StrTok, ReturnsTheNonEmptyPieces) {
    const Split cases[] = {
        {"a,b", ",", {"a", "b"}},
        {",,a,,b,", ",", {"a", "b"}},
        {"80 443,22", " ,", {"80", "443", "22"}},
        {" a b ", ",", {" a b "}},
        {"abc", "", {"abc"}},
        {"", ",", {}},
        {"", "", {}},
        {",,,", ",", {}},
        {"a\xFF"
         "b",
         "\xFF",
         {"a", "b"}},
    };
    for (const Split &c : cases) {
        const ListPtr list = ListOf({});
        TLIBCSzList *handle = list.get();
        EXPECT_EQ(TLIBCStrTok(c.text, c.separators, &handle), static_cast<int>(c.pieces.size()));
        EXPECT_THAT(Contents(list), ElementsAreArray(c.pieces)) << '"' << c.text << '"';
    }
}

TEST(StrTok, AppendsAndCountsItsOwn) {
    const ListPtr list = ListOf({"before"});
    TLIBCSzList *handle = list.get();
    EXPECT_RESULT(TLIBCStrTok("a,b", ",", &handle), 2, "");
    EXPECT_EQ(handle, list.get());
    EXPECT_THAT(Contents(list), ElementsAre("before", "a", "b"));
}

TEST(StrTok, SplitsATextOfTheListItself) {
    const ListPtr list = ListOf({"a,b,c,d,e"});
    TLIBCSzList *handle = list.get();
    EXPECT_EQ(TLIBCStrTok(TLIBCSzListGet(handle, 0), ",", &handle), 5);
    EXPECT_THAT(Contents(list), ElementsAre("a,b,c,d,e", "a", "b", "c", "d", "e"));
}

// ---- TLIBCStrSep

TEST(StrSep, ReturnsEveryPiece) {
    const Split cases[] = {
        {"a,,b,", ",", {"a", "", "b", ""}},
        {"a", ",", {"a"}},
        {"", ",", {""}},
        {"", "", {""}},
        {",", ",", {"", ""}},
        {", ", " ,", {"", "", ""}},
        {"a b,c", " ,", {"a", "b", "c"}},
        {"a,b", "", {"a,b"}},
    };
    for (const Split &c : cases) {
        const ListPtr list = ListOf({});
        TLIBCSzList *handle = list.get();
        EXPECT_EQ(TLIBCStrSep(c.text, c.separators, &handle), static_cast<int>(c.pieces.size()));
        EXPECT_THAT(Contents(list), ElementsAreArray(c.pieces)) << '"' << c.text << '"';
    }
}

TEST(StrSep, AppendsAndCountsItsOwn) {
    const ListPtr list = ListOf({"before"});
    TLIBCSzList *handle = list.get();
    EXPECT_RESULT(TLIBCStrSep("a,", ",", &handle), 2, "");
    EXPECT_THAT(Contents(list), ElementsAre("before", "a", ""));
}

// Common behaviour of the two splitters.
class Splitter : public testing::TestWithParam<decltype(&TLIBCStrTok)> {};

INSTANTIATE_TEST_SUITE_P(Str, Splitter, testing::Values(TLIBCStrTok, TLIBCStrSep),
                         [](const auto &splitter) {
                             return splitter.param == TLIBCStrTok ? "Tok" : "Sep";
                         });

TEST_P(Splitter, RejectsNull) {
    const ListPtr list = ListOf({"before"});
    TLIBCSzList *handle = list.get();
    TLIBCSzList *none = nullptr;
    EXPECT_RESULT(GetParam()(nullptr, ",", &handle), -1, "0xD00 strings.cpp");
    EXPECT_RESULT(GetParam()("a", nullptr, &handle), -1, "0xD00 strings.cpp");
    EXPECT_RESULT(GetParam()("a", ",", nullptr), -1, "0xD00 strings.cpp");
    EXPECT_RESULT(GetParam()("a", ",", &none), -1, "0xD00 strings.cpp");
    EXPECT_EQ(none, nullptr);
    EXPECT_THAT(Contents(list), ElementsAre("before"));
}

TEST_P(Splitter, RemovesPushedPiecesWhenMemoryRunsOut) {
    const int allocations = ForEachFailingAllocation([](FailingAllocation &fail) {
        const ListPtr list = ListOf({"before"}, 1);
        TLIBCSzList *handle = list.get();
        TLIBCErrSetEx(0, nullptr, 0);
        const int count = fail.During([&] { return GetParam()("a,b,c,d", ",", &handle); });
        EXPECT_EQ(handle, list.get());
        if (fail.Hit()) {
            EXPECT_EQ(count, -1);
            EXPECT_EQ(TLIBCErrGet(), 0x200u);
            EXPECT_THAT(Contents(list), ElementsAre("before"));
        } else {
            EXPECT_EQ(count, 4);
            EXPECT_THAT(Contents(list), ElementsAre("before", "a", "b", "c", "d"));
        }
    });
    EXPECT_EQ(allocations, 4 + 3) << "four pieces, arrays of 2, 4 and 8";
}

// ---- TLIBCStrTokIndex

TEST(StrTokIndex, CopiesTheNonEmptyPieceOfThatNumber) {
    char buffer[8] = "unset";
    EXPECT_EQ(TLIBCStrTokIndex(",a,,bc,d", ",", 0, buffer, sizeof(buffer)), 1);
    EXPECT_STREQ(buffer, "a");
    EXPECT_EQ(TLIBCStrTokIndex(",a,,bc,d", ",", 1, buffer, sizeof(buffer)), 1);
    EXPECT_STREQ(buffer, "bc");
    EXPECT_EQ(TLIBCStrTokIndex(",a,,bc,d", ",", 2, buffer, sizeof(buffer)), 1);
    EXPECT_STREQ(buffer, "d");
}

TEST(StrTokIndex, ReturnsAnEmptyTextForAMissingPiece) {
    for (const char *text : {"", ",,", "a", "a,,b,"}) {
        char buffer[8] = "unset";
        EXPECT_RESULT(TLIBCStrTokIndex(text, ",", 2, buffer, sizeof(buffer)), 0, "");
        EXPECT_STREQ(buffer, "");
    }
    char one[1] = {'x'};
    EXPECT_RESULT(TLIBCStrTokIndex("a", ",", INT_MAX, one, 1), 0, "");
    EXPECT_EQ(one[0], '\0');
}

TEST(StrTokIndex, NeedsSpaceForTheTerminator) {
    char buffer[8] = "unset";
    EXPECT_RESULT(TLIBCStrTokIndex("a,bcd", ",", 1, buffer, 3), -1, "0xBF00 strings.cpp");
    EXPECT_STREQ(buffer, "unset");
    EXPECT_RESULT(TLIBCStrTokIndex("a,bcd", ",", 1, buffer, 4), 1, "");
    EXPECT_STREQ(buffer, "bcd");
    EXPECT_EQ(buffer[4], 't') << "nothing after the terminator is changed";
}

TEST(StrTokIndex, MayStoreIntoItsOwnText) {
    char text[] = "abc,defg";
    EXPECT_EQ(TLIBCStrTokIndex(text, ",", 1, text, sizeof(text)), 1);
    EXPECT_STREQ(text, "defg");
}

TEST(StrTokIndex, RejectsInvalidArguments) {
    char buffer[8] = "unset";
    EXPECT_RESULT(TLIBCStrTokIndex(nullptr, ",", 0, buffer, 8), -1, "0xD00 strings.cpp");
    EXPECT_RESULT(TLIBCStrTokIndex("a", nullptr, 0, buffer, 8), -1, "0xD00 strings.cpp");
    EXPECT_RESULT(TLIBCStrTokIndex("a", ",", -1, buffer, 8), -1, "0xD00 strings.cpp");
    EXPECT_RESULT(TLIBCStrTokIndex("a", ",", 0, nullptr, 8), -1, "0xD00 strings.cpp");
    EXPECT_RESULT(TLIBCStrTokIndex("a", ",", 0, buffer, 0), -1, "0xD00 strings.cpp");
    EXPECT_RESULT(TLIBCStrTokIndex("a", ",", 0, buffer, -1), -1, "0xD00 strings.cpp");
    EXPECT_STREQ(buffer, "unset");
}

// ---- TLIBCStrTrimSpace

TEST(StrTrimSpace, RemovesBlanksFromBothEnds) {
    const char *const cases[][2] = {
        {"a", "a"},
        {"  a b  ", "a b"},
        {"\t\n\v\f\r a\r\n", "a"},
        {"", ""},
        {" \t\r\n ", ""},
        {"a  ", "a"},
        {"  a", "a"},
        {"\xA0"
         "a\x85",
         "\xA0"
         "a\x85"},
    };
    for (const auto &[text, trimmed] : cases) {
        std::vector<char> buffer(text, text + std::strlen(text) + 1);
        EXPECT_RESULT(TLIBCStrTrimSpace(buffer.data()), 0, "");
        EXPECT_STREQ(buffer.data(), trimmed);
    }
}

TEST(StrTrimSpace, RejectsNull) {
    EXPECT_RESULT(TLIBCStrTrimSpace(nullptr), -1, "0xD00 strings.cpp");
}

// ---- TLIBCStrCaseLower

TEST(StrCaseLower, LowersAsciiLettersOnly) {
    std::string all;
    std::string lowered;
    for (int byte = 1; byte < 256; ++byte) {
        all += static_cast<char>(byte);
        lowered += static_cast<char>(byte >= 'A' && byte <= 'Z' ? byte + 32 : byte);
    }
    char buffer[256];
    EXPECT_RESULT(TLIBCStrCaseLower(all.c_str(), buffer, sizeof(buffer)), 0, "");
    EXPECT_EQ(buffer, lowered);
}

TEST(StrCaseLower, IgnoresTheLocale) {
    ASSERT_NE(std::setlocale(LC_ALL, "C.UTF-8"), nullptr);
    char buffer[8];
    EXPECT_EQ(TLIBCStrCaseLower("\xC3\x84I", buffer, sizeof(buffer)), 0);
    EXPECT_STREQ(buffer, "\xC3\x84i");
    std::setlocale(LC_ALL, "C");
}

TEST(StrCaseLower, MayStoreIntoItsOwnText) {
    char text[] = "TCP,Udp";
    EXPECT_EQ(TLIBCStrCaseLower(text, text, sizeof(text)), 0);
    EXPECT_STREQ(text, "tcp,udp");
}

TEST(StrCaseLower, NeedsSpaceForTheTerminator) {
    char buffer[8] = "unset";
    EXPECT_RESULT(TLIBCStrCaseLower("ABC", buffer, 3), -1, "0xBF00 strings.cpp");
    EXPECT_STREQ(buffer, "unset");
    EXPECT_RESULT(TLIBCStrCaseLower("ABC", buffer, 4), 0, "");
    EXPECT_STREQ(buffer, "abc");
    EXPECT_EQ(buffer[4], 't') << "nothing after the terminator is changed";
    EXPECT_RESULT(TLIBCStrCaseLower("", buffer, 1), 0, "");
    EXPECT_STREQ(buffer, "");
}

TEST(StrCaseLower, RejectsInvalidArguments) {
    char buffer[8] = "unset";
    EXPECT_RESULT(TLIBCStrCaseLower(nullptr, buffer, 8), -1, "0xD00 strings.cpp");
    EXPECT_RESULT(TLIBCStrCaseLower("A", nullptr, 8), -1, "0xD00 strings.cpp");
    EXPECT_RESULT(TLIBCStrCaseLower("A", buffer, 0), -1, "0xD00 strings.cpp");
    EXPECT_RESULT(TLIBCStrCaseLower("A", buffer, -1), -1, "0xD00 strings.cpp");
    EXPECT_STREQ(buffer, "unset");
}

TEST(StrCaseLower, RejectsATextLargerThanAnyBuffer) {
    const HugeText huge;
    char buffer[8] = "unset";
    EXPECT_RESULT(TLIBCStrCaseLower(huge.Last(HugeText::kSize), buffer, INT_MAX), -1,
                  "0xBF00 strings.cpp");
    EXPECT_STREQ(buffer, "unset");
}

// ---- TLIBCStrCat

// A buffer as used by TLIBCStrCat.
struct Growing {
    explicit Growing(const char *start = nullptr, int room = 0) : size(room) {
        if (start != nullptr) {
            text = static_cast<char *>(std::malloc(static_cast<std::size_t>(room)));
            std::strcpy(text, start);
        }
    }
    ~Growing() { std::free(text); }
    Growing(const Growing &) = delete;
    Growing &operator=(const Growing &) = delete;

    int Cat(const char *added) { return TLIBCStrCat(&text, &size, added); }

    char *text = nullptr;
    int size;
};

TEST(StrCat, AllocatesTheFirstBlock) {
    Growing growing;
    growing.size = 1 << 30;  // counts as 0
    EXPECT_RESULT(growing.Cat("80"), 0, "");
    EXPECT_STREQ(growing.text, "80");
    EXPECT_GE(growing.size, 3);
    EXPECT_LT(growing.size, 100);
}

TEST(StrCat, AllocatesABlockForAnEmptyText) {
    Growing growing;
    EXPECT_EQ(growing.Cat(""), 0);
    EXPECT_STREQ(growing.text, "");
    EXPECT_GE(growing.size, 1);
}

TEST(StrCat, AppendsInPlaceIfThereIsSpace) {
    Growing growing("ab", 6);
    const char *before = growing.text;
    EXPECT_EQ(growing.Cat("cde"), 0);
    EXPECT_STREQ(growing.text, "abcde");
    EXPECT_EQ(growing.text, before);
    EXPECT_EQ(growing.size, 6);
}

TEST(StrCat, GrowsByTheNeededSize) {
    Growing growing("ab", 3);
    const std::string added(100, 'x');
    EXPECT_EQ(growing.Cat(added.c_str()), 0);
    EXPECT_EQ(growing.text, "ab" + added);
    EXPECT_GE(growing.size, 103);
}

TEST(StrCat, GrowsGeometrically) {
    Growing growing;
    EXPECT_FALSE(AllocatesMoreThan(11, [&] {
        for (int i = 0; i < 1000; ++i) {
            growing.Cat("x");
        }
    })) << "2, 4, 8 ... 2048 bytes";
    EXPECT_EQ(growing.text, std::string(1000, 'x'));
    EXPECT_GT(growing.size, 1000);
}

TEST(StrCat, AppendsATextToItself) {
    Growing growing("ab", 3);
    for (const char *expected : {"abab", "abababab", "abababababababab"}) {
        EXPECT_EQ(growing.Cat(growing.text), 0);
        EXPECT_STREQ(growing.text, expected);
    }
}

TEST(StrCat, RejectsInvalidArguments) {
    Growing growing("ab", 3);
    EXPECT_RESULT(TLIBCStrCat(nullptr, &growing.size, "c"), -1, "0xD00 strings.cpp");
    EXPECT_RESULT(TLIBCStrCat(&growing.text, nullptr, "c"), -1, "0xD00 strings.cpp");
    EXPECT_RESULT(growing.Cat(nullptr), -1, "0xD00 strings.cpp");
    EXPECT_STREQ(growing.text, "ab");
    EXPECT_EQ(growing.size, 3);
}

TEST(StrCat, RejectsABlockWithoutATerminator) {
    Growing growing("ab", 3);
    for (const int size : {2, 1, 0, -1, INT_MIN}) {
        growing.size = size;
        EXPECT_RESULT(growing.Cat("c"), -1, "0xD00 strings.cpp");
        EXPECT_STREQ(growing.text, "ab");
        EXPECT_EQ(growing.size, size);
    }
}

TEST(StrCat, ReportsATextBeyondAnIntAsOutOfMemory) {
    const HugeText huge;
    Growing growing("ab", 3);
    for (const std::size_t length : {std::size_t{INT_MAX} - 2, HugeText::kSize}) {
        EXPECT_RESULT(growing.Cat(huge.Last(length)), -1, "0x200 strings.cpp");
        EXPECT_STREQ(growing.text, "ab");
        EXPECT_EQ(growing.size, 3);
    }
}

TEST(StrCat, LeavesBothUnchangedWhenMemoryRunsOut) {
    const int allocations = ForEachFailingAllocation([](FailingAllocation &fail) {
        Growing growing("ab", 3);
        TLIBCErrSetEx(0, nullptr, 0);
        const int result = fail.During([&] { return growing.Cat("c"); });
        EXPECT_EQ(result, fail.Hit() ? -1 : 0);
        EXPECT_EQ(RecordedError(), fail.Hit() ? "0x200 strings.cpp" : "");
        EXPECT_STREQ(growing.text, fail.Hit() ? "ab" : "abc");
        EXPECT_EQ(growing.size == 3, fail.Hit());
    });
    EXPECT_EQ(allocations, 1);
}

// ---- TLIBCStrGet, TLIBCStrPut

TEST(StrGet, FormatsAsPrintfDoes) {
    const TextPtr text(TLIBCStrGet("%s:%d %04X %5.1f%%", "a.cpp", -7, 0xD00u, 2.25));
    EXPECT_STREQ(text.get(), "a.cpp:-7 0D00   2.2%");
}

TEST(StrGet, ReturnsTextOfAnyLength) {
    const std::string value(100000, 'x');
    EXPECT_EQ(TextPtr(TLIBCStrGet("<%s>", value.c_str())).get(), "<" + value + ">");
    EXPECT_STREQ(TextPtr(TLIBCStrGet("%s", "")).get(), "");
}

TEST(StrGet, RejectsNull) {
    const char *format = nullptr;
    EXPECT_RESULT(TLIBCStrGet(format, 1), nullptr, "0xD00 strings.cpp");
}

TEST(StrGet, ReportsThatMemoryRanOut) {
    const std::string value(1000, 'x');
    const int allocations = ForEachFailingAllocation([&](FailingAllocation &fail) {
        TLIBCErrSetEx(0, nullptr, 0);
        const TextPtr text(fail.During([&] { return TLIBCStrGet("<%s>", value.c_str()); }));
        if (text == nullptr) {
            EXPECT_TRUE(fail.Hit());
            EXPECT_EQ(RecordedError(), "0x200 strings.cpp");
        } else {
            EXPECT_EQ(text.get(), "<" + value + ">");
            EXPECT_EQ(RecordedError(), "");
        }
    });
    EXPECT_GE(allocations, 1);
}

TEST(StrPut, AcceptsNull) {
    TLIBCStrPut(nullptr);
}

}  // namespace
