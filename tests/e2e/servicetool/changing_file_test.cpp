// A service file that changes after the library has read it, and before lint looks for the reasons
// of what the library left out.
#include <gmock/gmock.h>

#include <algorithm>
#include <filesystem>
#include <string>
#include <vector>

#include "input/service_file.h"
#include "temporary_folder.h"

namespace tavo::test {

using namespace tool;

namespace {

using testing::HasSubstr;

constexpr char kGood[] = "[good]\ntitle=T\ndesc=D\ndst.ports=1\n";
constexpr char kBad[] = "[bad]\n";

// What the library leaves out of a file, and what is reported of that after a change of the file.
class ChangingFile : public testing::Test {
  protected:
    void Read(const std::string &text) {
        path_ = folder_.Write("a.sc", text);
        read_.BeginFile(kServiceFolders[0], path_.c_str());
        TAVO_SERVICE_CONF *list = nullptr;
        const Reading reading = tavo::ReadServiceFile(path_.c_str(), &list, &read_);
        read_.EndFile(reading, &list);
        list_.reset(list);
    }

    // Returns the result of ReportOmissions; the report is in `reported_`.
    bool HasErrors(const std::vector<std::string> &names = {},
                   Severity severity = Severity::kError) {
        Report report(false);
        testing::internal::CaptureStderr();
        const bool any_error = ReportOmissions(ExplainOmissions(read_, names, severity), report);
        reported_ = testing::internal::GetCapturedStderr();
        return any_error;
    }

    void ExpectChanged(const std::vector<std::string> &names = {}) {
        EXPECT_TRUE(HasErrors(names));
        EXPECT_EQ(reported_, path_ + ": error: changed while it was read [unreadable]\n");
    }

    TemporaryFolder folder_;
    ReadingReport read_;
    OwnedConf list_;
    std::string path_;
    std::string reported_;
};

TEST_F(ChangingFile, IsNotBlamedWhenItHasRecovered) {
    for (const char *text : {kBad, ""}) {
        Read(text);
        folder_.Write("a.sc", kGood);
        ExpectChanged();
        read_ = {};
    }
    Read(std::string(kGood) + kBad);
    folder_.Write("a.sc", kGood);
    ExpectChanged();
}

TEST_F(ChangingFile, IsNotBlamedForOtherMistakes) {
    Read(std::string(kGood) + kBad);
    for (const std::string &text :
         {kGood + std::string("[worse]\n"), kGood + std::string(kBad) + "[worse]\n",
          std::string(kBad), std::string("[good]\n[bad]\n")}) {
        folder_.Write("a.sc", text);
        ExpectChanged();
    }
}

// It may contain any service, whatever the caller looks for.
TEST_F(ChangingFile, MayContainEveryName) {
    Read(std::string(kGood) + kBad);
    EXPECT_FALSE(HasErrors({"other"}));
    EXPECT_EQ(reported_, "");
    folder_.Write("a.sc", kGood);
    ExpectChanged({"other"});
}

TEST_F(ChangingFile, IsAnErrorOfItsOwnOnlyIfNothingWasRead) {
    Read(std::string(kGood) + kBad);
    std::filesystem::remove(path_);
    EXPECT_FALSE(HasErrors({}, Severity::kWarning));
    EXPECT_EQ(reported_, path_ + ": warning: no such file or directory [unreadable]\n");
    read_ = {};
    Read(kBad);
    EXPECT_FALSE(HasErrors({}, Severity::kWarning));
    EXPECT_THAT(reported_, HasSubstr(":1:2: warning: not read as a service file: section [bad]"));
    std::filesystem::remove(path_);
    EXPECT_TRUE(HasErrors({}, Severity::kWarning));
    EXPECT_EQ(reported_, path_ + ": error: no such file or directory [unreadable]\n");
}

// A reading of one file, which the test writes before lint reads it.
struct FileReading {
    ReadingReport report;
    OwnedConf list;
};

TEST_F(ChangingFile, IsReadAgainUntilItRests) {
    for (const std::size_t changes : {0U, 1U, 2U, 3U}) {
        std::size_t readings = 0;
        const auto read = [&] {
            const std::string path = folder_.Write("a.sc", kGood + std::string(kBad));
            FileReading result;
            TAVO_SERVICE_CONF *list = nullptr;
            result.report.BeginFile(kServiceFolders[0], path.c_str());
            tavo::ReadServiceFile(path.c_str(), &list, &result.report);
            result.list.reset(list);
            if (readings++ < changes) {
                folder_.Write("a.sc", kGood);
            }
            return result;
        };
        const auto [result, omissions] = ReadAndExplain(read);
        EXPECT_EQ(readings, std::min<std::size_t>(changes + 1, 3));
        ASSERT_EQ(omissions.diagnostics.size(), 1U);
        EXPECT_EQ(omissions.any_change, changes == 3);
        EXPECT_EQ(omissions.diagnostics[0].rule, changes == 3 ? "unreadable" : "empty-section");
    }
}

TEST_F(ChangingFile, WithANameThatTheLibraryCutsIsNone) {
    Read("[" + std::string(300, 'x') + "]\n" + (kGood + 7) + kBad);
    EXPECT_TRUE(HasErrors());
    EXPECT_THAT(reported_, HasSubstr("section [bad] is left out: it has no key [empty-section]"));
}

}  // namespace
}  // namespace tavo::test
