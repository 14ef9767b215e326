#include <gmock/gmock.h>

#include <dlfcn.h>
#include <fcntl.h>
#include <sys/inotify.h>
#include <sys/stat.h>
#include <unistd.h>

#include <atomic>
#include <cstring>
#include <thread>

#include "failing_allocation.h"
#include "library_test.h"
#include "temporary_folder.h"

namespace tavo::test {
namespace {

using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::StartsWith;

std::string Service(const std::string &name) {
    return "[" + name + "]\ntitle=\"T\"\ndesc=\"D\"\ndst.ports=\"80/tcp\"\n";
}

class ConfGet : public LibraryTest {
  protected:
    ~ConfGet() override { TAVOServiceConfFree(list_); }

    int Read(const std::string &contents) {
        path_ = folder_.Write("test.sc", contents);
        return TAVOServiceConfGet(path_.c_str(), &list_);
    }

    TemporaryFolder folder_;
    std::string path_;
    TAVO_SERVICE_CONF *list_ = nullptr;
};

TEST_F(ConfGet, ReadsTheServicesLastOneFirst) {
    ASSERT_EQ(Read("[global]\nversion=\"2\"\n\n" + Service("one") + Service("two")), 0);
    EXPECT_EQ(list_->nVersion, 2);
    EXPECT_THAT(Names(list_->pSections), ElementsAre("two", "one"));
    EXPECT_EQ(list_->pNext, nullptr);
    EXPECT_EQ(TLIBCErrGet(), 0U);
    EXPECT_THAT(Messages(), IsEmpty());
}

TEST_F(ConfGet, ReadsTheKeysOfGlobalInAnyPlace) {
    ASSERT_EQ(Read(Service("one") + "[global]\nsupport_key=\"supportweb\"\nrun_key=runweb\n"), 0);
    EXPECT_EQ(list_->nVersion, 1);
    EXPECT_STREQ(list_->szSupportKey, "supportweb");
    EXPECT_STREQ(list_->szRunKey, "runweb");
}

TEST_F(ConfGet, CutsTheKeysOfGlobal) {
    const std::string key(200, 'k');
    ASSERT_EQ(Read("[global]\nsupport_key=" + key + "\nrun_key=" + key + "\n" + Service("s")), 0);
    EXPECT_EQ(list_->szSupportKey, std::string(127, 'k'));
    EXPECT_EQ(list_->szRunKey, std::string(127, 'k'));
}

TEST_F(ConfGet, ReadsTheVersionAsStrtolDoes) {
    struct {
        const char *global;
        int version;
    } const rows[] = {{"", 0},
                      {"[global]\nrun_key=r\n", 1},
                      {"[global]\nversion=\"2\"\n", 2},
                      {"[global]\nversion=-3\n", -3},
                      {"[global]\nversion=4 beta\n", 4},
                      {"[global]\nversion=beta\n", 0},
                      {"[global]\nversion=\n", 0},
                      {"[Global]\nversion=2\n", 0}};
    for (const auto &row : rows) {
        ASSERT_EQ(Read(row.global + Service("s")), 0) << row.global;
        EXPECT_EQ(list_->nVersion, row.version) << row.global;
    }
}

TEST_F(ConfGet, LogsAndSkipsAnEmptyGlobal) {
    ASSERT_EQ(Read("[global]\n" + Service("s")), 0);
    EXPECT_EQ(list_->nVersion, 0);
    EXPECT_STREQ(list_->szSupportKey, "");
    EXPECT_THAT(Messages(),
                ElementsAre("Failed to TLIBCFileGetSection, file: " + path_ +
                            ", section name: global, nHashRecords: 0, tavoerr=[0x0000 :N]"));
}

TEST_F(ConfGet, AcceptsLettersDigitsDashDotAndUnderscoreInNames) {
    ASSERT_EQ(Read(Service("Web.Admin") + Service("a-b_c.0-9") + Service("Z")), 0);
    EXPECT_THAT(Names(list_->pSections), ElementsAre("Z", "a-b_c.0-9", "Web.Admin"));
    EXPECT_THAT(Messages(), IsEmpty());
}

TEST_F(ConfGet, LogsAndSkipsOtherNames) {
    for (const char *name :
         {"web admin", "web/admin", "", " web", "w\xc3\xa9", "a:b", "a]b", "*"}) {
        log_.Clear();
        TLIBCErrSetEx(0, nullptr, 0);
        ASSERT_EQ(Read(Service(name) + Service("good")), 0) << name;
        EXPECT_THAT(Names(list_->pSections), ElementsAre("good"));
        EXPECT_THAT(
            Messages(),
            ElementsAre("Section name format error (File: " + path_ + ", Section Name: [" + name +
                        "])! It can not be empty, and just can composed of a~z, 0~9, `-`, "
                        "'_', tavoerr=[0x0D00 service_conf_get.cpp:N]"));
        EXPECT_EQ(ErrorState(), "0xD00 service_conf_get.cpp");
    }
}

TEST_F(ConfGet, LeavesOutABadSectionAndReadsTheRest) {
    ASSERT_EQ(Read(Service("first") + "[bad]\ntitle=T\ndesc=D\n" + Service("last")), 0);
    EXPECT_THAT(Names(list_->pSections), ElementsAre("last", "first"));
    EXPECT_THAT(Messages(),
                ElementsAre("Service get port error, filepath: " + path_ +
                            ", section name: bad, target: dstPort, tavoerr=[0x0000 :N]"));
}

TEST_F(ConfGet, CountsTwoSectionsOfOneNameAsOne) {
    ASSERT_EQ(Read("[s]\ntitle=T\n" + Service("other") + "[s]\ndesc=D\ndst.ports=1\ntitle=U\n"), 0);
    EXPECT_THAT(Names(list_->pSections), ElementsAre("other", "s"));
    EXPECT_STREQ(list_->pSections->pNext->strTitle.szText, "U");
}

TEST_F(ConfGet, FailsForAFileWithOnlyGlobal) {
    EXPECT_EQ(Read("[global]\nversion=1\n"), -1);
    EXPECT_THAT(Messages(),
                ElementsAre("Configure file format error! (file: " + path_ +
                            ") Only [global] section, you should add at least one service section "
                            "in the file. tavoerr=[0x0000 :N]"));
    EXPECT_EQ(list_, nullptr);
}

TEST_F(ConfGet, FailsForAFileWithoutSections) {
    for (const char *contents : {"", "\n\n", "# comment\n", "title=T\n", "just text", "[open\n"}) {
        log_.Clear();
        EXPECT_EQ(Read(contents), -1);
        EXPECT_THAT(Messages(), ElementsAre("Failed to TLIBCFileEnumSection " + path_ +
                                            "(ret: 0) or 0 section, tavoerr=[0x0000 :N]"));
    }
    EXPECT_EQ(list_, nullptr);
}

TEST_F(ConfGet, FailsWhenNoServiceIsWhole) {
    EXPECT_EQ(Read("[global]\nversion=1\n[a]\ntitle=T\ndesc=D\n[b c]\ntitle=T\n"), -1);
    ASSERT_EQ(Messages().size(), 3U);
    EXPECT_EQ(Messages()[2], "Get service section fail. (file: " + path_ +
                                 "), tavoerr=[0x0D00 service_conf_get.cpp:N]");
    EXPECT_EQ(list_, nullptr);
}

TEST_F(ConfGet, FailsForAFileThatCannotBeRead) {
    const std::string pipe = folder_ / "pipe";
    ASSERT_EQ(mkfifo(pipe.c_str(), 0600), 0);
    const std::string pipe_link = folder_ / "link to a pipe";
    ASSERT_EQ(symlink("pipe", pipe_link.c_str()), 0);
    const std::string dangling = folder_ / "dangling";
    ASSERT_EQ(symlink("nowhere", dangling.c_str()), 0);
    struct {
        std::string path;
        unsigned code;
    } const rows[] = {{folder_ / "missing.sc", 0x700},
                      {dangling, 0x700},
                      {pipe, 0x900},
                      {pipe_link, 0x900},
                      {"/dev/zero", 0x900},
                      {folder_.Path(), 0x900}};
    for (const auto &row : rows) {
        log_.Clear();
        TLIBCErrSetEx(0, nullptr, 0);
        EXPECT_EQ(TAVOServiceConfGet(row.path.c_str(), &list_), -1);
        EXPECT_EQ(TLIBCErrGet(), row.code) << row.path;
        ASSERT_EQ(Messages().size(), 1U);
        EXPECT_THAT(Messages()[0], StartsWith("Failed to TLIBCFileEnumSection " + row.path +
                                              "(ret: -1) or 0 section, tavoerr=[0x0"));
    }
    EXPECT_EQ(list_, nullptr);
}

TEST_F(ConfGet, PutsTheSecondFileInFront) {
    ASSERT_EQ(Read("[global]\nversion=1\n" + Service("a")), 0);
    ASSERT_EQ(Read("[global]\nversion=2\n" + Service("b")), 0);
    EXPECT_EQ(list_->nVersion, 2);
    ASSERT_NE(list_->pNext, nullptr);
    EXPECT_EQ(list_->pNext->nVersion, 1);
    EXPECT_EQ(list_->pNext->pNext, nullptr);
}

TEST_F(ConfGet, LeavesTheListAloneOnFailure) {
    ASSERT_EQ(Read(Service("a")), 0);
    TAVO_SERVICE_CONF *before = list_;
    EXPECT_EQ(Read("[b]\n"), -1);
    EXPECT_EQ(list_, before);
    EXPECT_EQ(list_->pNext, nullptr);
}

TEST_F(ConfGet, RejectsNullWithoutALogLine) {
    EXPECT_EQ(TAVOServiceConfGet(nullptr, &list_), -1);
    EXPECT_EQ(ErrorState(), "0xD00 service_conf_get.cpp");
    TLIBCErrSetEx(0, nullptr, 0);
    EXPECT_EQ(TAVOServiceConfGet("/nowhere", nullptr), -1);
    EXPECT_EQ(ErrorState(), "0xD00 service_conf_get.cpp");
    EXPECT_THAT(Messages(), IsEmpty());
}

TEST_F(ConfGet, ReadsFilesFromOtherSystems) {
    ASSERT_EQ(Read("\xef\xbb\xbf[global]\r\nversion=3\r\n; note\r\n [one] \r\n title = \"T\" \r\n"
                   "desc=D\r\ndst.ports = \"80/tcp\""),
              0);
    EXPECT_EQ(list_->nVersion, 3);
    EXPECT_THAT(Names(list_->pSections), ElementsAre("one"));
    EXPECT_STREQ(list_->pSections->strTitle.szText, "T");
}

TEST_F(ConfGet, ReadsBinaryContentAsNoService) {
    std::string bytes;
    for (int i = 0; i < 100000; ++i) {
        bytes += static_cast<char>(i * 7919 % 256);
    }
    EXPECT_EQ(Read(bytes), -1);
    EXPECT_EQ(list_, nullptr);
}

TEST_F(ConfGet, ReadsAHugeFile) {
    // 200 MB, almost all of it in one line.
    path_ = folder_.Write("huge.sc", Service("one") + "[two]\ntitle=T\ndesc=D\ndst.ports=1\n");
    const int fd = open(path_.c_str(), O_WRONLY | O_CLOEXEC);
    ASSERT_GE(fd, 0);
    ASSERT_EQ(ftruncate(fd, 200 << 20), 0);
    close(fd);
    ASSERT_EQ(TAVOServiceConfGet(path_.c_str(), &list_), 0);
    EXPECT_THAT(Names(list_->pSections), ElementsAre("two", "one"));
}

// A file may be rewritten while it is read, even in place. The records must always be complete.
TEST_F(ConfGet, SurvivesAFileThatChangesWhileItIsRead) {
    path_ = folder_.Write("test.sc", Service("a"));
    std::atomic<bool> stop = false;
    std::thread writer([&] {
        for (int i = 0; !stop; ++i) {
            std::string text;
            for (int section = 0; section < i % 60; ++section) {
                text += Service("s" + std::to_string(section));
            }
            WriteFile(path_, text);
        }
    });
    for (int i = 0; i < 300; ++i) {
        TAVO_SERVICE_CONF *list = nullptr;
        const int result = TAVOServiceConfGet(path_.c_str(), &list);
        EXPECT_EQ(result == 0, list != nullptr);
        for (const auto *section = list != nullptr ? list->pSections : nullptr; section != nullptr;
             section = section->pNext) {
            EXPECT_STREQ(section->strTitle.szText, "T");
            EXPECT_NE(section->pDstPorts, nullptr);
        }
        TAVOServiceConfFree(list);
    }
    stop = true;
    writer.join();
}

TEST_F(ConfGet, ReportsEveryFailedAllocation) {
    const std::string path =
        folder_.Write("test.sc", "[global]\nversion=2\nsupport_key=s\n" + Service("one"));
    const int allocations = ForEachFailingAllocation([&](FailingAllocation &fail) {
        TAVO_SERVICE_CONF before = {};
        TAVO_SERVICE_CONF *list = &before;
        TLIBCErrSetEx(0, nullptr, 0);
        log_.Clear();
        const int result = fail.During([&] { return TAVOServiceConfGet(path.c_str(), &list); });
        if (result == 0) {
            // Only [global] may be lost when memory runs out, and only with a log line.
            EXPECT_THAT(Names(list->pSections), ElementsAre("one"));
            EXPECT_EQ(list->nVersion == 2, Messages().empty());
            list->pNext = nullptr;
            TAVOServiceConfFree(list);
        } else {
            EXPECT_TRUE(fail.Hit());
            EXPECT_EQ(list, &before);
            EXPECT_EQ(TLIBCErrGet(), 0x200U);
            EXPECT_THAT(Messages(), testing::Not(IsEmpty()));
        }
    });
    EXPECT_GT(allocations, 10);
}

TEST_F(ConfGet, NamesWhatCannotBeAllocated) {
    const std::string path = folder_.Write("test.sc", "[global]\nversion=2\n" + Service("one"));
    ForEachFailingAllocation([&](FailingAllocation &fail) {
        TAVO_SERVICE_CONF *list = nullptr;
        fail.During([&] { return TAVOServiceConfGet(path.c_str(), &list); });
        TAVOServiceConfFree(list);
    });
    EXPECT_THAT(Messages(),
                testing::Contains(HasSubstr("Failed to TLIBCSzListAlloc, tavoerr=[0x0200 ")));
    EXPECT_THAT(Messages(), testing::Contains("Failed to allocate for service, "
                                              "tavoerr=[0x0200 service_conf_get.cpp:N]"));
    EXPECT_THAT(Messages(),
                testing::Contains(HasSubstr("(ret: -1) or 0 section, tavoerr=[0x0200 ")));
    EXPECT_THAT(Messages(),
                testing::Contains(StartsWith("failed to TLIBCSzHashAlloc, tavoerr=[0x0200 ")));
    EXPECT_THAT(
        Messages(),
        testing::Contains(HasSubstr("section name: global, nHashRecords: -1, tavoerr=[0x0200 ")));
}

// Counts how often a file is opened during the lifetime of the object.
class OpenCount {
  public:
    explicit OpenCount(const std::string &path) : fd_(inotify_init1(IN_CLOEXEC | IN_NONBLOCK)) {
        // Closing is watched too, because inotify merges equal consecutive events.
        inotify_add_watch(fd_, path.c_str(), IN_OPEN | IN_CLOSE);
    }
    ~OpenCount() { close(fd_); }
    OpenCount(const OpenCount &) = delete;
    OpenCount &operator=(const OpenCount &) = delete;

    int Get() const {
        int opened = 0;
        alignas(inotify_event) char buffer[65536];
        const ssize_t got = read(fd_, buffer, sizeof(buffer));
        for (ssize_t at = 0; at < got;) {
            const auto *event = reinterpret_cast<const inotify_event *>(buffer + at);
            opened += (event->mask & IN_OPEN) != 0 ? 1 : 0;
            at += static_cast<ssize_t>(sizeof(*event) + event->len);
        }
        return opened;
    }

  private:
    int fd_;
};

TEST_F(ConfGet, OpensTheFileOnceWhereThePlatformCanHoldIt) {
    std::string text;
    for (int i = 0; i < 50; ++i) {
        text += Service("s" + std::to_string(i));
    }
    path_ = folder_.Write("test.sc", text);
    const OpenCount opened(path_);
    ASSERT_EQ(TAVOServiceConfGet(path_.c_str(), &list_), 0);
    EXPECT_EQ(opened.Get(), dlsym(RTLD_DEFAULT, "TLIBCFileHold") != nullptr ? 1 : 51);
}

TEST_F(ConfGet, HoldsNoFileWhenItReturns) {
    ASSERT_EQ(Read(Service("a")), 0);
    EXPECT_EQ(Read("[b]\n"), -1);
    const auto hold = reinterpret_cast<int (*)(const char *)>(dlsym(RTLD_DEFAULT, "TLIBCFileHold"));
    const auto release = reinterpret_cast<void (*)()>(dlsym(RTLD_DEFAULT, "TLIBCFileRelease"));
    if (hold == nullptr || release == nullptr) {
        GTEST_SKIP() << "the core library in use cannot hold files";
    }
    EXPECT_EQ(hold(path_.c_str()), 0);
    release();
}

TEST_F(ConfGet, ReadsAFileBesideTheOneThatTheCallerHolds) {
    const auto hold = reinterpret_cast<int (*)(const char *)>(dlsym(RTLD_DEFAULT, "TLIBCFileHold"));
    const auto release = reinterpret_cast<void (*)()>(dlsym(RTLD_DEFAULT, "TLIBCFileRelease"));
    if (hold == nullptr || release == nullptr) {
        GTEST_SKIP() << "the core library in use cannot hold files";
    }
    ASSERT_EQ(hold(folder_.Write("held", "").c_str()), 0);
    EXPECT_EQ(Read(Service("a")), 0);
    release();
    EXPECT_EQ(TLIBCErrGet(), 0U);
}

TEST_F(ConfGet, LeavesNoDescriptorOpen) {
    const int before = open("/dev/null", O_RDONLY | O_CLOEXEC);
    close(before);
    Read(Service("a"));
    Read("[b]\n");
    TAVOServiceConfGet((folder_ / "missing").c_str(), &list_);
    TAVOServiceConfGet(folder_.Path().c_str(), &list_);
    const int after = open("/dev/null", O_RDONLY | O_CLOEXEC);
    close(after);
    EXPECT_EQ(before, after);
}

TEST_F(ConfGet, FreeTakesWhatACallerBuilt) {
    list_ = static_cast<TAVO_SERVICE_CONF *>(calloc(1, sizeof(*list_)));
    list_->pNext = static_cast<TAVO_SERVICE_CONF *>(calloc(1, sizeof(*list_)));
    for (int i = 0; i < 2; ++i) {
        auto *section =
            static_cast<TAVO_SERVICE_CONF_SECTION *>(calloc(1, sizeof(TAVO_SERVICE_CONF_SECTION)));
        section->pSrcPorts =
            static_cast<TAVO_SERVICE_CONF_PORT *>(calloc(1, sizeof(*section->pSrcPorts)));
        section->pDstPorts =
            static_cast<TAVO_SERVICE_CONF_PORT *>(calloc(1, sizeof(*section->pDstPorts)));
        section->pNext = list_->pSections;
        list_->pSections = section;
    }
}

TEST_F(ConfGet, FreeTakesNull) {
    TAVOServiceConfFree(nullptr);
}

}  // namespace
}  // namespace tavo::test
