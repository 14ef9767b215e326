#include <string>
#include <thread>

#include "values_support.h"

namespace {

using tavo::test::RecordedError;

class ErrorState : public testing::Test {
  protected:
    void SetUp() override { TLIBCErrSetEx(0, nullptr, 0); }
};

TEST_F(ErrorState, StartsEmptyInEveryThread) {
    TLIBCErrSetEx(0xD00, "main.cpp", 1);
    std::thread([] {
        EXPECT_EQ(TLIBCErrGet(), 0u);
        EXPECT_STREQ(TLIBCErrorGetFile(), "");
        EXPECT_EQ(TLIBCErrorGetLine(), 0);
    }).join();
}

TEST_F(ErrorState, ReturnsTheRecordedError) {
    TLIBCErrSetEx(0xBF00, "ports.cpp", 47);
    EXPECT_EQ(TLIBCErrGet(), 0xBF00u);
    EXPECT_STREQ(TLIBCErrorGetFile(), "ports.cpp");
    EXPECT_EQ(TLIBCErrorGetLine(), 47);
}

TEST_F(ErrorState, KeepsTheLastFailure) {
    TLIBCErrSetEx(0x700, "a_longer_name.cpp", 1);
    TLIBCErrSetEx(0x900, "b.cpp", 2);
    EXPECT_EQ(TLIBCErrGet(), 0x900u);
    EXPECT_STREQ(TLIBCErrorGetFile(), "b.cpp");
    EXPECT_EQ(TLIBCErrorGetLine(), 2);
}

TEST_F(ErrorState, CodeZeroClearsCodeFileAndLine) {
    TLIBCErrSetEx(0x700, "a.cpp", 1);
    TLIBCErrSetEx(0, "ignored.cpp", 9);
    EXPECT_EQ(TLIBCErrGet(), 0u);
    EXPECT_STREQ(TLIBCErrorGetFile(), "");
    EXPECT_EQ(TLIBCErrorGetLine(), 0);
}

TEST_F(ErrorState, TreatsAMissingNameAsEmpty) {
    TLIBCErrSetEx(0x700, "a.cpp", 1);
    TLIBCErrSetEx(0x900, nullptr, 2);
    EXPECT_EQ(TLIBCErrGet(), 0x900u);
    EXPECT_STREQ(TLIBCErrorGetFile(), "");
    EXPECT_EQ(TLIBCErrorGetLine(), 2);
}

TEST_F(ErrorState, CopiesTheName) {
    std::string name = "plugin.cpp";
    TLIBCErrSetEx(0x700, name.c_str(), 1);
    name.assign("overwritten");
    EXPECT_STREQ(TLIBCErrorGetFile(), "plugin.cpp");
}

TEST_F(ErrorState, TruncatesANameTo255Bytes) {
    TLIBCErrSetEx(0x700, std::string(255, 'a').c_str(), 1);
    EXPECT_EQ(TLIBCErrorGetFile(), std::string(255, 'a'));
    TLIBCErrSetEx(0x700, std::string(256, 'b').c_str(), 1);
    EXPECT_EQ(TLIBCErrorGetFile(), std::string(255, 'b'));
}

TEST_F(ErrorState, AcceptsItsOwnName) {
    TLIBCErrSetEx(0x700, "folder/name.cpp", 1);
    TLIBCErrSetEx(0x900, TLIBCErrorGetFile(), 2);
    EXPECT_STREQ(TLIBCErrorGetFile(), "folder/name.cpp");
    TLIBCErrSetEx(0x900, TLIBCErrorGetFile() + 7, 2);
    EXPECT_STREQ(TLIBCErrorGetFile(), "name.cpp");
}

TEST_F(ErrorState, BelongsToItsThread) {
    TLIBCErrSetEx(0xD00, "main.cpp", 1);
    std::thread([] { TLIBCErrSetEx(0x200, "thread.cpp", 2); }).join();
    EXPECT_EQ(RecordedError(), "0xD00 main.cpp");
}

TEST_F(ErrorState, IsNotClearedBySuccess) {
    EXPECT_EQ(TLIBCSzListPush(nullptr, "a"), -1);
    const tavo::test::ListPtr list = tavo::test::ListOf({"a", "b"});
    EXPECT_EQ(TLIBCSzListRemove(list.get(), 0), 0);
    EXPECT_EQ(RecordedError(), "0xD00 sz_list.cpp");
}

}  // namespace
