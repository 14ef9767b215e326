#include <gmock/gmock.h>

#include <sys/stat.h>

#include <cstdlib>
#include <cstring>
#include <string_view>
#include <vector>

#include "base/owners.h"
#include "failing_allocation.h"
#include "library_test.h"
#include "strict_trim.h"
#include "temporary_folder.h"

namespace tavo::test {
namespace {

using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;

class ServiceString : public LibraryTest {
  protected:
    ServiceString() {
        // Fields that the function does not set must be unchanged.
        strcpy(string_.szSource, "old source");
        strcpy(string_.szSection, "old section");
        strcpy(string_.szKey, "old key");
        strcpy(string_.szText, "old text");
        strcpy(string_.szExtra, "old extra");
    }

    std::vector<std::string> Fields() const {
        return {string_.szSource, string_.szSection, string_.szKey, string_.szText,
                string_.szExtra};
    }

    TAVO_SERVICE_CONF_STRING string_ = {};
};

TEST_F(ServiceString, TextWithoutAColonGoesToTheTextUntrimmed) {
    EXPECT_EQ(TAVOServiceConfServiceStringGet(" leaf_ftp ", &string_), 0);
    EXPECT_THAT(Fields(),
                ElementsAre("old source", "old section", "old key", " leaf_ftp ", "old extra"));
}

TEST_F(ServiceString, OneColonSplitsSectionAndKeyAndEmptiesTheSource) {
    EXPECT_EQ(TAVOServiceConfServiceStringGet(" tree :\tleaf_ftp ", &string_), 0);
    EXPECT_THAT(Fields(), ElementsAre("", "tree", "leaf_ftp", "old text", "old extra"));
}

TEST_F(ServiceString, TwoColonsSplitSourceSectionAndKey) {
    EXPECT_EQ(TAVOServiceConfServiceStringGet(" pkg : tree : leaf_ftp ", &string_), 0);
    EXPECT_THAT(Fields(), ElementsAre("pkg", "tree", "leaf_ftp", "old text", "old extra"));
}

TEST_F(ServiceString, FurtherColonsBelongToTheKey) {
    EXPECT_EQ(TAVOServiceConfServiceStringGet("a:b:c:d", &string_), 0);
    EXPECT_THAT(Fields(), ElementsAre("a", "b", "c:d", "old text", "old extra"));
    EXPECT_EQ(TAVOServiceConfServiceStringGet("a:b::", &string_), 0);
    EXPECT_THAT(Fields(), ElementsAre("a", "b", ":", "old text", "old extra"));
}

TEST_F(ServiceString, PiecesMayBeEmpty) {
    EXPECT_EQ(TAVOServiceConfServiceStringGet(":", &string_), 0);
    EXPECT_THAT(Fields(), ElementsAre("", "", "", "old text", "old extra"));
    EXPECT_EQ(TAVOServiceConfServiceStringGet("::k", &string_), 0);
    EXPECT_THAT(Fields(), ElementsAre("", "", "k", "old text", "old extra"));
}

TEST_F(ServiceString, CutsToFit) {
    const std::string reference =
        std::string(300, 's') + ":" + std::string(300, 'e') + ":" + std::string(300, 'k');
    EXPECT_EQ(TAVOServiceConfServiceStringGet(reference.c_str(), &string_), 0);
    EXPECT_EQ(TAVOServiceConfServiceStringGet(std::string(300, 't').c_str(), &string_), 0);
    EXPECT_THAT(Fields(), ElementsAre(std::string(255, 's'), std::string(63, 'e'),
                                      std::string(127, 'k'), std::string(127, 't'), "old extra"));
}

TEST_F(ServiceString, TheReferenceMayStandInTheRecordItself) {
    strcpy(string_.szText, "hello-abcdef");
    EXPECT_EQ(TAVOServiceConfServiceStringGet(string_.szText + 2, &string_), 0);
    EXPECT_STREQ(string_.szText, "llo-abcdef");
    strcpy(string_.szKey, "one:two:three");
    EXPECT_EQ(TAVOServiceConfServiceStringGet(string_.szKey, &string_), 0);
    EXPECT_THAT(Fields(), ElementsAre("one", "two", "three", "llo-abcdef", "old extra"));
}

TEST_F(ServiceString, RejectsNullAndEmptyWithoutAnError) {
    EXPECT_EQ(TAVOServiceConfServiceStringGet(nullptr, &string_), -1);
    EXPECT_EQ(TAVOServiceConfServiceStringGet("", &string_), -1);
    EXPECT_EQ(TAVOServiceConfServiceStringGet("a:b", nullptr), -1);
    EXPECT_EQ(TLIBCErrGet(), 0U);
    EXPECT_THAT(Messages(), IsEmpty());
    EXPECT_THAT(Fields(),
                ElementsAre("old source", "old section", "old key", "old text", "old extra"));
}

TEST_F(ServiceString, ReportsExhaustedMemoryWithoutAnError) {
    for (const char *reference : {"plain", "a:b", "a:b:c"}) {
        FailingAllocation fail(1, FailingAllocation::Mode::kOnlyNth);
        const int result =
            fail.During([&] { return TAVOServiceConfServiceStringGet(reference, &string_); });
        EXPECT_EQ(result, -1) << reference;
        EXPECT_TRUE(fail.Hit()) << reference;
        EXPECT_EQ(TLIBCErrGet(), 0U);
        EXPECT_THAT(Fields(),
                    ElementsAre("old source", "old section", "old key", "old text", "old extra"));
    }
}

class SectionGet : public LibraryTest {
  protected:
    ~SectionGet() override { TAVOServiceConfSectionFree(list_); }

    // Writes [web] with `keys` and reads it.
    int Read(const std::string &keys) {
        path_ = folder_.Write("web.sc", "[web]\n" + keys);
        return TAVOServiceConfSectionGet(path_.c_str(), "web", &list_);
    }

    TemporaryFolder folder_;
    std::string path_;
    TAVO_SERVICE_CONF_SECTION *list_ = nullptr;
};

constexpr char kRequired[] = "title=\"Web\"\ndesc=\"Serves pages\"\ndst.ports=\"80,443/tcp\"\n";

TEST_F(SectionGet, ReadsWhatIsRequired) {
    ASSERT_EQ(Read(kRequired), 0);
    EXPECT_STREQ(list_->szName, "web");
    EXPECT_STREQ(list_->strTitle.szText, "Web");
    EXPECT_STREQ(list_->strDesc.szText, "Serves pages");
    EXPECT_THAT(Describe(list_->pDstPorts), ElementsAre("dst 443 protocol 1", "dst 80 protocol 1"));
    EXPECT_EQ(list_->blPortForward, 0U);
    EXPECT_STREQ(list_->strTitle.szKey, "");
    EXPECT_STREQ(list_->strDesc.szExtra, "");
    EXPECT_EQ(list_->pSrcPorts, nullptr);
    EXPECT_EQ(list_->pNext, nullptr);
    EXPECT_EQ(TLIBCErrGet(), 0U);
    EXPECT_THAT(Messages(), IsEmpty());
}

TEST_F(SectionGet, ReadsEveryKey) {
    ASSERT_EQ(Read("title_key=\"pkg:tree:leaf_web\"\ntitle=\"Web\"\n"
                   "desc_key=\"tree:desc_web\"\ndesc=\"Serves pages\"\ndesc_extra=\"all day\"\n"
                   "port_forward=\"yes\"\nsrc.ports=\"1024:65535/udp\"\ndst.ports=\"80\"\n"),
              0);
    EXPECT_STREQ(list_->strTitle.szSource, "pkg");
    EXPECT_STREQ(list_->strTitle.szSection, "tree");
    EXPECT_STREQ(list_->strTitle.szKey, "leaf_web");
    EXPECT_STREQ(list_->strTitle.szText, "Web");
    EXPECT_STREQ(list_->strTitle.szExtra, "");
    EXPECT_STREQ(list_->strDesc.szSource, "");
    EXPECT_STREQ(list_->strDesc.szSection, "tree");
    EXPECT_STREQ(list_->strDesc.szKey, "desc_web");
    EXPECT_STREQ(list_->strDesc.szText, "Serves pages");
    EXPECT_STREQ(list_->strDesc.szExtra, "all day");
    EXPECT_EQ(list_->blPortForward, 1U);
    EXPECT_THAT(Describe(list_->pSrcPorts), ElementsAre("src 1024:65535 protocol 2"));
    EXPECT_THAT(Describe(list_->pDstPorts), ElementsAre("dst 80 protocol 3"));
}

TEST_F(SectionGet, TextWinsOverAReferenceWithoutAColon) {
    ASSERT_EQ(Read("title_key=leaf_web\ndesc_key=desc_web\n" + std::string(kRequired)), 0);
    EXPECT_STREQ(list_->strTitle.szText, "Web");
    EXPECT_STREQ(list_->strTitle.szKey, "");
    EXPECT_STREQ(list_->strDesc.szText, "Serves pages");
}

TEST_F(SectionGet, IgnoresAnEmptyReference) {
    EXPECT_EQ(Read("title_key=\"\"\ndesc_key=\n" + std::string(kRequired)), 0);
}

TEST_F(ServiceString, NeedsNoSourceToTrim) {
    const StrictTrim strict;
    EXPECT_EQ(TAVOServiceConfServiceStringGet(" tree : leaf ", &string_), 0);
    EXPECT_EQ(std::string(string_.szSource), "");
    EXPECT_EQ(std::string(string_.szSection), "tree");
    EXPECT_EQ(std::string(string_.szKey), "leaf");
    EXPECT_EQ(TAVOServiceConfServiceStringGet(":tree:leaf", &string_), -1)
        << "an empty source that is there is trimmed";
}

TEST_F(SectionGet, ForwardsOnlyForYes) {
    struct {
        const char *value;
        std::uint32_t forward;
    } const rows[] = {
        {"yes", 1},
        {"YES", 1},
        {"\" Yes \"", 1},
        {"no", 0},
        {"true", 0},
        {"1", 0},
        {"", 0},
        {"\"\"", 0},
        {"yess", 0},
        {"ye s", 0},
        {"\"yes                         x\"", 0},     // 30 bytes: compared completely
        {"\"yes                            x\"", 0},  // 32 bytes: too long, whatever the prefix
        {"\"yes                             \"", 0},
        {"\"yes                            \"", 1},  // 31 bytes still fit
        {"\"YES                            no\"", 0},
        {"\"yes                                        and more\"", 0},
        {"\"                              yes\"", 0},
    };
    for (const auto &row : rows) {
        ASSERT_EQ(Read("port_forward=" + std::string(row.value) + "\n" + kRequired), 0);
        EXPECT_EQ(list_->blPortForward, row.forward) << row.value;
    }
}

TEST_F(SectionGet, CutsLongTextsAndNames) {
    const std::string name(300, 'n');
    const std::string text(200, 't');
    path_ = folder_.Write("long.sc", "[" + name + "]\ntitle=" + text + "\ndesc=" + text +
                                         "\ndesc_extra=" + text + "\ndst.ports=80\n");
    ASSERT_EQ(TAVOServiceConfSectionGet(path_.c_str(), name.c_str(), &list_), 0);
    EXPECT_EQ(list_->szName, std::string(255, 'n'));
    EXPECT_EQ(list_->strTitle.szText, std::string(127, 't'));
    EXPECT_EQ(list_->strDesc.szText, std::string(127, 't'));
    EXPECT_EQ(list_->strDesc.szExtra, std::string(127, 't'));
}

std::string_view BytesOf(const TAVO_SERVICE_CONF_SECTION *section) {
    return {reinterpret_cast<const char *>(section), sizeof(*section)};
}

TEST_F(SectionGet, ClearsTheRestOfTheRecord) {
    using Record = TAVO_SERVICE_CONF_SECTION;
    std::vector<MallocPtr<void>> used;  // what the heap contains when the record is allocated
    for (int i = 0; i < 4; ++i) {
        used.emplace_back(std::memset(std::malloc(sizeof(Record)), 0xA5, sizeof(Record)));
        asm volatile("" : : "r"(used.back().get()) : "memory");  // keeps the writes
    }
    used.clear();
    ASSERT_EQ(Read(kRequired), 0);
    Record expected;
    std::memset(&expected, 0, sizeof(expected));
    strcpy(expected.szName, "web");
    strcpy(expected.strTitle.szText, "Web");
    strcpy(expected.strDesc.szText, "Serves pages");
    expected.pDstPorts = list_->pDstPorts;
    EXPECT_TRUE(BytesOf(list_) == BytesOf(&expected));
}

TEST_F(SectionGet, AcceptsEmptyTexts) {
    EXPECT_EQ(Read("title=\ndesc=\"\"\ndst.ports=80\n"), 0);
}

TEST_F(SectionGet, PutsTheSectionInFront) {
    ASSERT_EQ(Read(kRequired), 0);
    ASSERT_EQ(Read("title=t\ndesc=d\ndst.ports=1\n"), 0);
    ASSERT_NE(list_->pNext, nullptr);
    EXPECT_STREQ(list_->strTitle.szText, "t");
    EXPECT_STREQ(list_->pNext->strTitle.szText, "Web");
}

TEST_F(SectionGet, ReportsTheFirstKeyThatIsMissing) {
    struct {
        const char *keys;
        const char *message;
    } const rows[] = {
        {"desc=d\n", "Get key \"title\" fail! (file: %s, section name: web), tavoerr=[0x0000 :N]"},
        {"title=t\n", "Get key \"desc\" fail! (file: %s, section name: web), tavoerr=[0x0000 :N]"},
        {"title=t\ndesc=d\n",
         "Service get port error, filepath: %s, section name: web, target: dstPort, "
         "tavoerr=[0x0000 :N]"},
        {"dst.ports=1\n",
         "Get key \"title\" fail! (file: %s, section name: web), tavoerr=[0x0000 :N]"},
        {"title=t\nsrc.ports=x\ndst.ports=x\n",
         "Get key \"desc\" fail! (file: %s, section name: web), tavoerr=[0x0000 :N]"},
        {"Title=t\ndesc=d\ndst.ports=1\n",
         "Get key \"title\" fail! (file: %s, section name: web), tavoerr=[0x0000 :N]"},
    };
    for (const auto &row : rows) {
        log_.Clear();
        EXPECT_EQ(Read(row.keys), -1);
        std::string message = row.message;
        message.replace(message.find("%s"), 2, path_);
        EXPECT_THAT(Messages(), ElementsAre(message));
        EXPECT_EQ(list_, nullptr);
        EXPECT_EQ(TLIBCErrGet(), 0U);
    }
}

TEST_F(SectionGet, FailsForABadPortListAndNamesWhich) {
    EXPECT_EQ(Read("title=t\ndesc=d\ndst.ports=80\nsrc.ports=x\n"), -1);
    EXPECT_THAT(
        Messages(),
        ElementsAre("illegal ports number, port=x, tavoerr=[0x0D00 service_conf_ports_get.cpp:N]",
                    "Service get port error, filepath: " + path_ +
                        ", section name: web, target: srcPort, "
                        "tavoerr=[0x0D00 service_conf_ports_get.cpp:N]"));
    log_.Clear();
    // The source ports that were already read must not leak.
    EXPECT_EQ(Read("title=t\ndesc=d\ndst.ports=\"80,\"\nsrc.ports=\"1,2,3\"\n"), -1);
    EXPECT_THAT(Messages(), ElementsAre("Service get port error, filepath: " + path_ +
                                        ", section name: web, target: dstPort, "
                                        "tavoerr=[0x0D00 service_conf_ports_get.cpp:N]"));
    EXPECT_EQ(list_, nullptr);
    EXPECT_EQ(ErrorState(), "0xD00 service_conf_ports_get.cpp");
}

TEST_F(SectionGet, ReadsSourcePortsBeforeDestinationPorts) {
    EXPECT_EQ(Read("title=t\ndesc=d\nsrc.ports=x\n"), -1);
    ASSERT_EQ(Messages().size(), 2U);
    EXPECT_THAT(Messages()[1], HasSubstr("target: srcPort"));
}

TEST_F(SectionGet, FailsForASectionThatIsMissingOrEmpty) {
    path_ = folder_.Write("web.sc", "[web]\n# nothing\n[other]\na=b\n");
    for (const char *section : {"web", "nowhere", "WEB", ""}) {
        log_.Clear();
        EXPECT_EQ(TAVOServiceConfSectionGet(path_.c_str(), section, &list_), -1);
        EXPECT_THAT(Messages(), ElementsAre("Failed to TLIBCFileGetSection, file: " + path_ +
                                            ", section name: " + section +
                                            ", nHashRecords: 0, tavoerr=[0x0000 :N]"));
    }
    EXPECT_EQ(list_, nullptr);
}

TEST_F(SectionGet, FailsForAFileThatCannotBeRead) {
    const std::string pipe = folder_ / "pipe";
    ASSERT_EQ(mkfifo(pipe.c_str(), 0600), 0);
    struct {
        std::string path;
        unsigned code;
    } const rows[] = {
        {folder_ / "missing", 0x700}, {folder_.Path(), 0x900}, {pipe, 0x900}, {"/dev/null", 0x900}};
    for (const auto &row : rows) {
        log_.Clear();
        TLIBCErrSetEx(0, nullptr, 0);
        EXPECT_EQ(TAVOServiceConfSectionGet(row.path.c_str(), "web", &list_), -1);
        EXPECT_EQ(TLIBCErrGet(), row.code) << row.path;
        ASSERT_EQ(Messages().size(), 1U);
        EXPECT_THAT(Messages()[0], HasSubstr("Failed to TLIBCFileGetSection, file: " + row.path +
                                             ", section name: web, nHashRecords: -1, tavoerr=[0x0" +
                                             (row.code == 0x700 ? "7" : "9") + "00 "));
    }
    EXPECT_EQ(list_, nullptr);
}

TEST_F(SectionGet, RejectsNullWithoutALogLine) {
    const std::string path = folder_.Write("web.sc", "[web]\n" + std::string(kRequired));
    EXPECT_EQ(TAVOServiceConfSectionGet(nullptr, "web", &list_), -1);
    EXPECT_EQ(ErrorState(), "0xD00 service_conf_section_get.cpp");
    TLIBCErrSetEx(0, nullptr, 0);
    EXPECT_EQ(TAVOServiceConfSectionGet(path.c_str(), nullptr, &list_), -1);
    EXPECT_EQ(ErrorState(), "0xD00 service_conf_section_get.cpp");
    TLIBCErrSetEx(0, nullptr, 0);
    EXPECT_EQ(TAVOServiceConfSectionGet(path.c_str(), "web", nullptr), -1);
    EXPECT_EQ(ErrorState(), "0xD00 service_conf_section_get.cpp");
    EXPECT_THAT(Messages(), IsEmpty());
    EXPECT_EQ(list_, nullptr);
}

TEST_F(SectionGet, ReportsEveryFailedAllocation) {
    const std::string path = folder_.Write(
        "web.sc", "[web]\ntitle_key=a:b\ndesc_key=a:b:c\nsrc.ports=\"1,2\"\nport_forward=yes\n" +
                      std::string(kRequired));
    const int allocations = ForEachFailingAllocation([&](FailingAllocation &fail) {
        TAVO_SERVICE_CONF_SECTION before = {};
        TAVO_SERVICE_CONF_SECTION *list = &before;
        TLIBCErrSetEx(0, nullptr, 0);
        log_.Clear();
        const int result =
            fail.During([&] { return TAVOServiceConfSectionGet(path.c_str(), "web", &list); });
        if (result == 0) {
            // Only a reference may be lost when memory runs out.
            EXPECT_EQ(Describe(list->pDstPorts).size(), 2U);
            EXPECT_EQ(list->pNext, &before);
            list->pNext = nullptr;
            TAVOServiceConfSectionFree(list);
        } else {
            EXPECT_TRUE(fail.Hit());
            EXPECT_EQ(list, &before);
            EXPECT_EQ(TLIBCErrGet(), 0x200U);
            EXPECT_THAT(Messages(), testing::Not(IsEmpty()));
        }
    });
    EXPECT_GT(allocations, 10);
}

TEST_F(SectionGet, NamesTheTableAndTheRecordThatCannotBeAllocated) {
    const std::string path = folder_.Write("web.sc", "[web]\n" + std::string(kRequired));
    std::vector<std::string> seen;
    for (int nth = 1; nth <= 4; ++nth) {
        log_.Clear();
        FailingAllocation fail(nth, FailingAllocation::Mode::kOnlyNth);
        fail.During([&] { return TAVOServiceConfSectionGet(path.c_str(), "web", &list_); });
        seen.push_back(Messages().at(0));
    }
    EXPECT_THAT(seen[0], testing::MatchesRegex("Failed to TLIBCSzHashAlloc, "
                                               "tavoerr=\\[0x0200 [a-z_]+\\.cpp:N\\]"));
    EXPECT_THAT(seen, testing::Contains("Failed to allocate for service, "
                                        "tavoerr=[0x0200 service_conf_section_get.cpp:N]"));
    EXPECT_EQ(list_, nullptr);
}

}  // namespace
}  // namespace tavo::test
