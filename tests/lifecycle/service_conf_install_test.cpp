// The exported functions that install a service file. Their shared code is tested in
// utils_test.cpp.
#include "failing_allocation.h"
#include "service_files_test.h"

namespace tavo::test {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

class ServiceConfInstalling : public ServiceFilesTest {};

TEST_F(ServiceConfInstalling, GoesByTheBaseNameOfTheSource) {
    const std::string source = Source(kGame, "racing.sc");
    EXPECT_EQ(TAVOServiceConfInstall(source.c_str(), 1), 0);
    ASSERT_EQ(chdir("/packages"), 0);
    EXPECT_EQ(TAVOServiceConfInstall("racing.sc", 2), 0);
    EXPECT_EQ(ReadFile("/usr/tavo/etc/services.d/racing.sc"), kGame);
    EXPECT_EQ(ReadFile("/usr/local/etc/services.d/racing.sc"), kGame);
    EXPECT_EQ(ReadFile(source), kGame);
}

TEST_F(ServiceConfInstalling, KeepsTheConflictsToItself) {
    EXPECT_EQ(TAVOServiceConfInstall(Source(kTelnetGame).c_str(), 2), 1);
    EXPECT_EQ(ReadFile("/usr/local/etc/services.d/game.sc"), kTelnetGame);
}

TEST_F(ServiceConfInstalling, NeedsASourceWithAName) {
    EXPECT_EQ(TAVOServiceConfInstall(nullptr, 2), -1);
    EXPECT_EQ(ErrorState(), "0xD00 service_conf_install.cpp");
    StartAnew();
    EXPECT_EQ(TAVOServiceConfInstall("/packages/..", 2), -1);
    EXPECT_EQ(ErrorState(), "0xD00 utils.cpp");
    EXPECT_THAT(Messages(), IsEmpty());
}

TEST_F(ServiceConfInstalling, HandsTheWorkersFailureOn) {
    EXPECT_EQ(TAVOServiceConfInstall("/packages/nothing.sc", 2), -1);
    EXPECT_EQ(ErrorState(), "0x700 service_conf_file_verify.cpp");
    StartAnew();
    EXPECT_EQ(TAVOServiceConfInstall(Source(kGame).c_str(), 3), -1);
    EXPECT_EQ(ErrorState(), "0xD00 utils.cpp");
}

TEST_F(ServiceConfInstalling, UnderABaseNameHandsOutTheConflicts) {
    TAVO_SERVICE_CONF_PORT *conflicts = nullptr;
    EXPECT_EQ(
        TAVOServiceConfInstallBaseName("other.sc", Source(kTelnetGame).c_str(), 1, &conflicts), 1);
    const Ports owner(conflicts);
    EXPECT_THAT(Describe(conflicts), ElementsAre("src 23 with end 23 protocol 0"));
    EXPECT_EQ(ReadFile("/usr/tavo/etc/services.d/other.sc"), kTelnetGame);
    EXPECT_THAT(Entries(kPackageServices), IsEmpty());
}

TEST_F(ServiceConfInstalling, UnderABaseNameNeedsOne) {
    EXPECT_EQ(TAVOServiceConfInstallBaseName(nullptr, Source(kGame).c_str(), 2, nullptr), -1);
    EXPECT_EQ(ErrorState(), "0xD00 utils.cpp");
    StartAnew();
    EXPECT_EQ(TAVOServiceConfInstallBaseName("game.sc", nullptr, 2, nullptr), -1);
    EXPECT_EQ(ErrorState(), "0xD00 utils.cpp");
}

TEST_F(ServiceConfInstalling, SaysThatItCouldNotDuplicateThePath) {
    const std::string source = Source(kGame);
    FailingAllocation first(1, FailingAllocation::Mode::kOnlyNth);
    EXPECT_EQ(first.During([&] { return TAVOServiceConfInstall(source.c_str(), 2); }), -1);
    EXPECT_THAT(Messages(), ElementsAre("FAILED to duplicate string=" + source));
    EXPECT_EQ(ErrorState(), "0x200 service_conf_install.cpp");
    EXPECT_THAT(Entries(kPackageServices), IsEmpty());
}

}  // namespace
}  // namespace tavo::test
