// If the thread holds an old version of a file in memory and another process has changed the file,
// an operation changes the current version.
#include <csetjmp>

#include "set_test.h"

namespace tavo::test {
namespace {

using testing::HasSubstr;

class HeldFileTest : public SetTest {
  protected:
    ~HeldFileTest() override { TLIBCFileRelease(); }

    int Set() override {
        TAVO_SERVICE_CONF_SECTION section = {};
        Fill(section.szName, "web");
        Fill(section.strTitle.szText, "New");
        Fill(section.strDesc.szText, "D");
        section.pDstPorts = ports_.get();
        return TLIBServiceConfSectionSet(&param_, &section);
    }

    int SetPorts() { return TLIBServiceConfPortsSet(&param_, ports_.get()); }

    int Remove() {
        param_.nWriteMode = TAVO_WRITE_MODE_REMOVE;
        return TLIBServiceConfSectionRemove(&param_);
    }

    // Makes the thread hold the file with the text `before`, and then changes the file to `after`.
    static void Hold(const std::string &before, const std::string &after) {
        WriteFile(kFile, before);
        ASSERT_EQ(TLIBCFileHold(kFile), 0);
        WriteFile(kFile, after);
    }

    // Reads the title and the first port of the section from the file.
    static std::string Read() {
        TAVO_SERVICE_CONF_SECTION *section = nullptr;
        if (TAVOServiceConfSectionGet(kFile, "web", &section) < 0) {
            return "none";
        }
        const std::string text = section->strTitle.szText + (": " + Describe(*section->pDstPorts));
        TAVOServiceConfSectionFree(section);
        return text;
    }

    static constexpr char kWeb[] = "[web]\ntitle=T\ndesc=D\ndst.ports=81/tcp\n";
    static constexpr char kChat[] = "[chat]\ntitle=C\ndesc=D\ndst.ports=82/tcp\n";

    Ports ports_ = MakePorts("8080/tcp");
};

TEST_F(HeldFileTest, SectionSetKeepsTheKeysThatCameSince) {
    Hold(std::string(kWeb) + "other=old\n", std::string(kWeb) + "other=new\nadded=1\n");
    EXPECT_EQ(Set(), 0);
    EXPECT_THAT(ReadFile(kFile), HasSubstr("\nother=new\nadded=1\n"));
    EXPECT_EQ(Read(), "New: dst 8080 protocol 1");
}

TEST_F(HeldFileTest, PortsSetSeesTheSectionThatCameSince) {
    Hold("", kWeb);
    EXPECT_EQ(SetPorts(), 0);
    EXPECT_EQ(Read(), "T: dst 8080 protocol 1");
}

TEST_F(HeldFileTest, PortsSetSeesTheConflictThatCameSince) {
    WriteFile(kPackageFile, "");
    WriteFile(kFile, kWeb);
    ASSERT_EQ(TLIBCFileHold(kPackageFile), 0);
    WriteFile(kPackageFile, "[chat]\ntitle=C\ndesc=D\ndst.ports=8080/tcp\n");
    EXPECT_EQ(SetPorts(), -1);
    EXPECT_EQ(ReadFile(kFile), kWeb);
}

TEST_F(HeldFileTest, SectionPortSetIsReadBack) {
    Hold(kWeb, std::string(kWeb) + kChat);
    EXPECT_EQ(TAVOServiceConfSectionPortSet(1, "web.sc", "web", ports_.get()), 0);
    EXPECT_EQ(Read(), "T: dst 8080 protocol 1");
    EXPECT_THAT(ReadFile(kFile), HasSubstr(kChat));
}

TEST_F(HeldFileTest, SectionRemoveRemovesTheSectionThatCameSince) {
    Hold(kChat, std::string(kWeb) + kChat);
    EXPECT_EQ(Remove(), 0);
    EXPECT_EQ(ReadFile(kFile), kChat);
}

TEST_F(HeldFileTest, SectionRemoveDeletesNoFileWithServicesThatCameSince) {
    Hold("", std::string(kWeb) + kChat);
    EXPECT_EQ(Remove(), 0);
    EXPECT_EQ(ReadFile(kFile), kChat);
}

TEST_F(HeldFileTest, InstallChecksTheSourceAsItIs) {
    WriteFile(kPackageFile, kChat);
    std::filesystem::create_directory("/packages");
    WriteFile("/packages/web.sc", kWeb);
    ASSERT_EQ(TLIBCFileHold("/packages/web.sc"), 0);
    WriteFile("/packages/web.sc", "[web]\ntitle=T\ndesc=D\ndst.ports=82/tcp\n");
    TAVO_SERVICE_CONF_PORT *conflicts = nullptr;
    EXPECT_EQ(TAVOServiceConfInstallBaseName("web.sc", "/packages/web.sc", 1, &conflicts), 1);
    EXPECT_NE(conflicts, nullptr);
    TAVOServiceConfPortsFree(conflicts);
    std::filesystem::remove_all("/packages");
}

TEST_F(HeldFileTest, LeftByAJumpIsNotReadForAChange) {
    std::jmp_buf out;
    WriteFile(kFile, std::string(kWeb) + "other=old\n");
    if (setjmp(out) == 0) {
        EXPECT_EQ(TLIBCFileHold(kFile), 0);
        std::longjmp(out, 1);
    }
    WriteFile(kFile, std::string(kWeb) + "other=new\n");
    EXPECT_EQ(Set(), 0);
    EXPECT_THAT(ReadFile(kFile), HasSubstr("\nother=new\n"));
}

}  // namespace
}  // namespace tavo::test
