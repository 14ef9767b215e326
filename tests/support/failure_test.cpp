// Tests how operations of the library report a failure: the place that is named and the text of the
// log line.
#include "support/failure.h"

#include <gmock/gmock.h>

#include <string>

#include "library_test.h"

namespace tavo::test {
namespace {

using testing::ElementsAre;

class Failing : public LibraryTest {
  protected:
    // The log lines, with file and line number.
    std::vector<std::string> Lines() const {
        std::vector<std::string> lines;
        for (const CapturedLog::Line &line : log_.Lines()) {
            EXPECT_EQ(line.priority, LOG_ERR);
            lines.push_back(line.text);
        }
        return lines;
    }
};

// Callers used these numbers before the names were defined.
TEST(ErrorCodes, KeepTheirNumbers) {
    EXPECT_EQ(TLIBC_ERR_NO_MEMORY, 0x200U);
    EXPECT_EQ(TLIBC_ERR_NO_FILE, 0x700U);
    EXPECT_EQ(TLIBC_ERR_FILE_UNUSABLE, 0x900U);
    EXPECT_EQ(TLIBC_ERR_BAD_PARAMETER, 0xD00U);
    EXPECT_EQ(TLIBC_ERR_RENAME, 0x2800U);
    EXPECT_EQ(TLIBC_ERR_BUFFER_TOO_SMALL, 0xBF00U);
    EXPECT_EQ(TAVO_ERR_BAD_SOURCE, 0x600U);
    EXPECT_EQ(TAVO_ERR_LIST_DIRECTORY, 0x2A00U);
    EXPECT_EQ(TAVO_ERR_COPY, 0x3B00U);
    EXPECT_EQ(TAVO_ERR_MAKE_DIRECTORY, 0x3C00U);
    EXPECT_EQ(TAVO_ERR_FW_SERVICES, 0x9900U);
    EXPECT_EQ(TAVO_ERR_ALREADY_INSTALLED, 0xC000U);
}

const Place kOperation = {"operation.cpp", 7};

TEST_F(Failing, NamesItsOwnPlace) {
    const std::string next = std::to_string(__LINE__ + 1);
    EXPECT_EQ(TAVO_LOG("Failed to open %s", "a"), -1);
    EXPECT_THAT(Lines(), ElementsAre("failure_test.cpp:" + next + " Failed to open a"));
    EXPECT_EQ(ErrorState(), "0x0 ");
}

TEST_F(Failing, NamesThePlaceThatAHelperWasGiven) {
    EXPECT_EQ(TAVO_SET_ERROR_AT(kOperation, 0x900), -1);
    EXPECT_EQ(ErrorState(), "0x900 operation.cpp");
    EXPECT_EQ(TLIBCErrorGetLine(), 7);
    EXPECT_EQ(TAVO_LOG_AT(kOperation, "plain"), -1);
    EXPECT_EQ(TAVO_LOG_STATE_AT(kOperation, "after: "), -1);
    EXPECT_EQ(TAVO_FAIL_AT(kOperation, 0xD00, "%d of %s", 1, "two"), -1);
    EXPECT_EQ(TAVO_FAIL_STATE_AT(kOperation, 0x200, "%s ", "three"), -1);
    EXPECT_EQ(TAVO_FAIL_ALLOC_AT(kOperation, "pList"), -1);
    EXPECT_THAT(
        Lines(),
        ElementsAre("operation.cpp:7 plain", "operation.cpp:7 after: [0x0900 operation.cpp:7]",
                    "operation.cpp:7 1 of two", "operation.cpp:7 three [0x0200 operation.cpp:7]",
                    "operation.cpp:7 Failed to alloc pList, Out of memory.[0x0200]"));
}

TEST_F(Failing, RecordsTheErrorBeforeTheArgumentsAreRead) {
    TAVO_FAIL_AT(kOperation, 0x700, "errno=0x%X", TLIBCErrGet());
    EXPECT_THAT(Lines(), ElementsAre("operation.cpp:7 errno=0x700"));
}

TEST_F(Failing, PrintsTheErrorStateOfACallerAsItIs) {
    TLIBCErrSetEx(0x12345, "100%s of %d%%.cpp", -3);
    TAVO_LOG_STATE_AT(kOperation, "%s: ", "%n");
    EXPECT_THAT(Lines(), ElementsAre("operation.cpp:7 %n: [0x12345 100%s of %d%%.cpp:-3]"));
}

TEST_F(Failing, PrintsTheLongestErrorStateWhole) {
    const std::string file(255, '%');
    TLIBCErrSetEx(0x100, file.c_str(), 1);
    const std::string text(100000, 'x');
    TAVO_LOG_STATE_AT(kOperation, "%s ", text.c_str());
    EXPECT_THAT(Lines(), ElementsAre("operation.cpp:7 " + text + " [0x0100 " + file + ":1]"));
}

}  // namespace
}  // namespace tavo::test
