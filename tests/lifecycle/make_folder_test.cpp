// New service folders: at no time does their mode depend on the caller's umask.
#include "service_files_test.h"

namespace tavo::test {
namespace {

using testing::Each;
using testing::ElementsAre;

constexpr mode_t kFolderMode = S_IFDIR | 0755;

class NewFolders : public ServiceFilesTest, public testing::WithParamInterface<mode_t> {
  protected:
    NewFolders() : umask_before_(umask(GetParam())) {
        for (const char *folder : {"/usr/tavo/etc/services.d", "/usr/local/etc"}) {
            std::filesystem::remove_all(folder);
        }
    }
    ~NewFolders() override { umask(umask_before_); }

    static constexpr const char *kFolders[] = {"/usr/local/etc", "/usr/local/etc/services.d",
                                               "/usr/local/etc/services.d/tmp",
                                               "/usr/tavo/etc/services.d"};

    // From now on, records the modes before a folder is created and before the file is copied.
    void LookMeanwhile() {
        programs_.Before("/bin/mkdir", [&] { Look(); });
        programs_.Before("/bin/cp", [&] { Look(); });
    }

    // Records the modes of the existing folders.
    void Look() {
        for (const char *folder : kFolders) {
            struct stat status = {};
            if (lstat(folder, &status) == 0) {
                modes_.push_back(status.st_mode);
            }
        }
    }

    Programs programs_;
    std::vector<mode_t> modes_;

  private:
    mode_t umask_before_;
};

TEST_P(NewFolders, OfAnInstallationCanBeReadByAll) {
    LookMeanwhile();
    EXPECT_EQ(TAVOServiceConfInstall(Source(kGame).c_str(), TAVO_SERVICE_CONF_DIR_PACKAGE), 0);
    EXPECT_THAT(programs_.Run(),
                testing::IsSupersetOf({"/bin/mkdir -p /usr/local/etc/services.d",
                                       "/bin/mkdir -p /usr/local/etc/services.d/tmp"}));
    Look();
    EXPECT_THAT(modes_, Each(kFolderMode));
    EXPECT_EQ(modes_.size(), 2U + 3U + 3U + 3U);
}

TEST_P(NewFolders, OfASectionCanBeReadByAll) {
    LookMeanwhile();
    auto param = Param("web.sc", "web");
    const Ports ports = MakePorts("7002/tcp");
    TAVO_SERVICE_CONF_SECTION section = {};
    Fill(section.szName, "web");
    Fill(section.strTitle.szText, "Web");
    Fill(section.strDesc.szText, "Web pages");
    section.pDstPorts = ports.get();
    EXPECT_EQ(TLIBServiceConfSectionSet(&param, &section), 0);
    Look();
    EXPECT_THAT(modes_, ElementsAre(kFolderMode, kFolderMode, kFolderMode));
}

TEST_P(NewFolders, GoAgainWhereMkdirFails) {
    programs_.Answer("/bin/mkdir", 1);
    EXPECT_EQ(TAVOServiceConfInstall(Source(kGame).c_str(), TAVO_SERVICE_CONF_DIR_PACKAGE), -1);
    EXPECT_FALSE(std::filesystem::exists("/usr/local/etc"));
    EXPECT_THAT(Messages(), ElementsAre("mkdir fail for path /usr/local/etc/services.d"
                                        "[0x3C00 utils.cpp:N]"));
}

TEST_P(NewFolders, GoAgainWhereOneCannotBeMade) {
    programs_.Answer("/bin/mkdir", 1);
    const Failing step("mkdir", "/usr/local/etc/services.d", ENOSPC);
    EXPECT_EQ(TAVOServiceConfInstall(Source(kGame).c_str(), TAVO_SERVICE_CONF_DIR_PACKAGE), -1);
    EXPECT_FALSE(std::filesystem::exists("/usr/local/etc"));
}

INSTANTIATE_TEST_SUITE_P(Umasks, NewFolders, testing::Values(0, 022, 077),
                         testing::PrintToStringParamName());

}  // namespace
}  // namespace tavo::test
