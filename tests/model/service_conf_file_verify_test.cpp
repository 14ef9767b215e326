#include <gmock/gmock.h>

#include <sys/stat.h>
#include <unistd.h>

#include <filesystem>

#include "library_test.h"
#include "temporary_folder.h"

namespace tavo::test {
namespace {

using testing::IsEmpty;

class FileVerify : public LibraryTest {
  protected:
    FileVerify() { mkdir((folder_ / "target").c_str(), 0755); }

    int Verify(const std::string &file) {
        TLIBCErrSetEx(0, nullptr, 0);
        return TAVOServiceConfFileVerify(file.c_str(), (folder_ / "target").c_str());
    }

    TemporaryFolder folder_;
};

TEST_F(FileVerify, AllowsAFileWhoseNameIsFree) {
    EXPECT_EQ(Verify(folder_.Write("web.sc", "not looked at")), 0);
    EXPECT_EQ(TLIBCErrGet(), 0U);
    EXPECT_EQ(folder_.Entries().size(), 2U);
}

TEST_F(FileVerify, AllowsADirectoryThatIsNotThereYet) {
    const std::string file = folder_.Write("web.sc", "");
    EXPECT_EQ(TAVOServiceConfFileVerify(file.c_str(), (folder_ / "later").c_str()), 0);
}

TEST_F(FileVerify, RejectsANameThatIsTakenEvenByTheSameContents) {
    const std::string file = folder_.Write("web.sc", "same");
    folder_.Write("target/web.sc", "same");
    EXPECT_EQ(Verify(file), -1);
    EXPECT_EQ(ErrorState(), "0xC000 service_conf_file_verify.cpp");
    EXPECT_EQ(Verify(folder_ / "target/web.sc"), -1);
    EXPECT_EQ(ErrorState(), "0xC000 service_conf_file_verify.cpp");
}

TEST_F(FileVerify, RejectsANameThatAFolderHas) {
    ASSERT_EQ(mkdir((folder_ / "target/web.sc").c_str(), 0755), 0);
    EXPECT_EQ(Verify(folder_.Write("web.sc", "")), -1);
    EXPECT_EQ(ErrorState(), "0xC000 service_conf_file_verify.cpp");
}

TEST_F(FileVerify, RejectsAMissingFile) {
    EXPECT_EQ(Verify(folder_ / "web.sc"), -1);
    EXPECT_EQ(ErrorState(), "0x700 service_conf_file_verify.cpp");
    ASSERT_EQ(symlink("nowhere", (folder_ / "dangling.sc").c_str()), 0);
    EXPECT_EQ(Verify(folder_ / "dangling.sc"), -1);
    EXPECT_EQ(ErrorState(), "0x700 service_conf_file_verify.cpp");
    EXPECT_EQ(Verify(""), -1);
    EXPECT_EQ(ErrorState(), "0x700 service_conf_file_verify.cpp");
}

TEST_F(FileVerify, ChecksTheSourceBeforeTheTarget) {
    folder_.Write("target/web.sc", "");
    EXPECT_EQ(Verify(folder_ / "web.sc"), -1);
    EXPECT_EQ(ErrorState(), "0x700 service_conf_file_verify.cpp");
}

TEST_F(FileVerify, CountsALinkToNothingInTheTargetAsFree) {
    ASSERT_EQ(symlink("nowhere", (folder_ / "target/web.sc").c_str()), 0);
    EXPECT_EQ(Verify(folder_.Write("web.sc", "")), 0);
}

TEST_F(FileVerify, RejectsAPathThatIsTooLong) {
    // If truncated to the 4095 bytes of a path, the name would refer to another file, which exists.
    const std::string file = folder_.Write("b.sc", "");
    folder_.Write("target/b", "");
    std::string target = folder_ / "target";
    target.append(4093 - target.size(), '/');
    TLIBCErrSetEx(0, nullptr, 0);
    EXPECT_EQ(TAVOServiceConfFileVerify(file.c_str(), target.c_str()), -1);
    EXPECT_EQ(ErrorState(), "0xD00 service_conf_file_verify.cpp");
}

TEST_F(FileVerify, TakesANameWithoutAFolder) {
    folder_.Write("web.sc", "");
    folder_.Write("free.sc", "");
    folder_.Write("target/web.sc", "");
    const std::filesystem::path before = std::filesystem::current_path();
    std::filesystem::current_path(folder_.Path());
    const int taken = Verify("web.sc");
    const std::string state = ErrorState();
    const int free = Verify("free.sc");
    std::filesystem::current_path(before);
    EXPECT_EQ(taken, -1);
    EXPECT_EQ(state, "0xC000 service_conf_file_verify.cpp");
    EXPECT_EQ(free, 0);
}

TEST_F(FileVerify, RejectsNullWithoutALogLine) {
    EXPECT_EQ(TAVOServiceConfFileVerify(nullptr, "/tmp"), -1);
    EXPECT_EQ(ErrorState(), "0xD00 service_conf_file_verify.cpp");
    TLIBCErrSetEx(0, nullptr, 0);
    EXPECT_EQ(TAVOServiceConfFileVerify("/tmp", nullptr), -1);
    EXPECT_EQ(ErrorState(), "0xD00 service_conf_file_verify.cpp");
    EXPECT_THAT(Messages(), IsEmpty());
}

}  // namespace
}  // namespace tavo::test
