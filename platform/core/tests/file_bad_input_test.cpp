// A path may lead to an entry that is not a regular file or not text, that never ends, or that
// changes while it is read: each case is reported quickly.
#include <fcntl.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <functional>
#include <random>
#include <string>
#include <thread>

#include "file_support.h"
#include "ordinary_user.h"
#include "temporary_folder.h"

// By default AddressSanitizer ends a program that requests too much memory.
extern "C" __attribute__((visibility("default"))) const char *__asan_default_options();
const char *__asan_default_options() {
    return "allocator_may_return_null=1";
}

namespace tavo::test {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;
using testing::Pair;

struct Reader {
    const char *name;
    std::function<int(const char *path)> call;
};

const Reader kReaders[] = {
    {"TLIBCFileEnumSection",
     [](const char *path) {
         StringList names;
         return TLIBCFileEnumSection(path, names.Address());
     }},
    {"TLIBCFileGetSection",
     [](const char *path) {
         Table table;
         return TLIBCFileGetSection(path, "s", table.Address());
     }},
    {"TLIBCFileGetKeyValue",
     [](const char *path) {
         char text[16];
         return TLIBCFileGetKeyValue(path, "k", text, sizeof(text));
     }},
    {"TLIBCFileReadLines",
     [](const char *path) {
         StringList lines;
         return TLIBCFileReadLines(path, lines.Address());
     }},
};

const Reader kWriters[] = {
    {"TLIBCFileSetSection",
     [](const char *path) {
         return TLIBCFileSetSection(path, "s", nullptr, Table{{"k", "v"}}.Get(), 0);
     }},
    {"TLIBCFileAddSection",
     [](const char *path) {
         return TLIBCFileAddSection(path, "s", Table{{"k", "v"}}.Get(), 0);
     }},
    {"TLIBCFileSetSectionValue",
     [](const char *path) { return TLIBCFileSetSectionValue(path, "s", "k", "v"); }},
    {"TLIBCFileRemoveSection", [](const char *path) { return TLIBCFileRemoveSection(path, "s"); }},
};

class FileBadInput : public testing::Test {
  protected:
    void SetUp() override { start_ = std::chrono::steady_clock::now(); }

    // No call may block, or take time that grows faster than its input.
    void TearDown() override {
        EXPECT_LT(std::chrono::steady_clock::now() - start_, std::chrono::seconds(20));
    }

    void ExpectEveryoneFails(unsigned int code, const std::string &path) {
        for (const Reader &reader : kReaders) {
            EXPECT_FAILURE(code, reader.call(path.c_str())) << reader.name << " " << path;
        }
        ExpectChecksFail(code, path);
        for (const Reader &writer : kWriters) {
            EXPECT_FAILURE(code, writer.call(path.c_str())) << writer.name << " " << path;
        }
    }

    void ExpectChecksFail(unsigned int code, const std::string &path) {
        EXPECT_EQ(ResultAndError([&] { return TLIBCFileCheckKeyValue(path.c_str(), "k", "v", 0); }),
                  std::make_pair(0, code));
    }

    std::string Link(const std::string &target, std::string_view name) {
        std::string link = folder_ / name;
        EXPECT_EQ(symlink(target.c_str(), link.c_str()), 0);
        return link;
    }

    TemporaryFolder folder_;
    std::chrono::steady_clock::time_point start_;
};

TEST_F(FileBadInput, AMissingFileIsReported) {
    const std::string file = folder_.Write("file", "");
    for (const std::string &path : {folder_ / "absent", folder_ / "absent/below", file + "/below",
                                    file + "/", Link("absent", "dangling")}) {
        ExpectEveryoneFails(kMissingCode, path);
    }
}

TEST_F(FileBadInput, AFolderIsUnusable) {
    ExpectEveryoneFails(kUnusableCode, folder_.Path());
    ExpectEveryoneFails(kUnusableCode, folder_.Path() + "/.");
    ExpectEveryoneFails(kUnusableCode, "/");
    EXPECT_THAT(folder_.Entries(), IsEmpty());
}

TEST_F(FileBadInput, APipeIsUnusableWithAndWithoutAWriter) {
    const std::string pipe = folder_ / "pipe";
    ASSERT_EQ(mkfifo(pipe.c_str(), 0600), 0);
    ExpectEveryoneFails(kUnusableCode, pipe);
    ExpectEveryoneFails(kUnusableCode, Link("pipe", "link"));
    const int both_ends = open(pipe.c_str(), O_RDWR | O_CLOEXEC);
    ASSERT_GE(both_ends, 0);
    ASSERT_EQ(write(both_ends, "[s]\n", 4), 4);
    ExpectEveryoneFails(kUnusableCode, pipe);
    char text[8];
    EXPECT_EQ(read(both_ends, text, sizeof(text)), 4) << "no data was read from it";
    close(both_ends);
}

TEST_F(FileBadInput, ASocketIsUnusable) {
    const std::string path = folder_ / "socket";
    const int listener = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
    struct sockaddr_un address = {};
    address.sun_family = AF_UNIX;
    ASSERT_LT(path.size(), sizeof(address.sun_path));
    path.copy(address.sun_path, sizeof(address.sun_path));
    ASSERT_EQ(bind(listener, reinterpret_cast<struct sockaddr *>(&address), sizeof(address)), 0);
    ExpectEveryoneFails(kUnusableCode, path);
    close(listener);
}

// A writer would follow links to devices and lock /dev, so only the readers are tested with them.
TEST_F(FileBadInput, ADeviceIsUnusable) {
    for (const std::string &path :
         {std::string("/dev/null"), std::string("/dev/zero"), Link("/dev/zero", "link")}) {
        for (const Reader &reader : kReaders) {
            EXPECT_FAILURE(kUnusableCode, reader.call(path.c_str())) << reader.name << " " << path;
        }
        ExpectChecksFail(kUnusableCode, path);
    }
}

TEST_F(FileBadInput, ALinkToItselfCannotBeOpened) {
    ExpectEveryoneFails(kUnusableCode, Link("loop", "loop"));
}

TEST_F(FileBadInput, ANameThatIsTooLongCannotBeOpened) {
    ExpectEveryoneFails(kUnusableCode, folder_ / std::string(256, 'n'));
    ExpectEveryoneFails(kUnusableCode, "/" + std::string(5000, 'n'));
}

TEST_F(FileBadInput, AFileThatTheUserMayNotReadCannotBeOpened) {
    const std::string file = folder_.Write("file", "[s]\nk=v\n");
    ASSERT_EQ(chmod(file.c_str(), 0), 0);
    ASSERT_EQ(chmod(folder_.Path().c_str(), 0777), 0);
    for (const Reader &reader : kReaders) {
        EXPECT_EQ(AsOrdinaryUser([&] { return reader.call(file.c_str()); }),
                  std::make_pair(-1, kUnusableCode));
    }
    for (const Reader &writer : kWriters) {
        EXPECT_EQ(AsOrdinaryUser([&] { return writer.call(file.c_str()); }),
                  std::make_pair(-1, kUnusableCode));
    }
    EXPECT_THAT(folder_.Entries(), ElementsAre("file"));
}

TEST_F(FileBadInput, NamesOfFilesMayContainAnyBytes) {
    for (const std::string name : {"new\nline", " ", "\xFF\xFE", "[s]", "%s%n", "\\"}) {
        const std::string file = folder_.Write(name, "[s]\nk=1\n");
        EXPECT_SUCCESS(0, TLIBCFileSetSectionValue(file.c_str(), "s", "k", "2"));
        EXPECT_THAT(SectionOf(file, "s"), ElementsAre(Pair("k", "2")));
    }
}

TEST_F(FileBadInput, ARandomBinaryFileIsReadLineByLine) {
    std::mt19937 random(1);
    std::string bytes(1 << 20, '\0');
    for (char &c : bytes) {
        c = static_cast<char>(random());
    }
    const std::string file = folder_.Write("file", bytes);
    StringList lines;
    const auto newlines = std::count(bytes.begin(), bytes.end(), '\n');
    EXPECT_SUCCESS(newlines + 1, TLIBCFileReadLines(file.c_str(), lines.Address()));
    EXPECT_GE(kReaders[0].call(file.c_str()), 0);
    EXPECT_SUCCESS(0, kReaders[1].call(file.c_str()));
    EXPECT_SUCCESS(0, TLIBCFileAddSection(file.c_str(), "s", Table{{"k", "v"}}.Get(), 0));
    EXPECT_THAT(ReadFile(file), testing::StartsWith(bytes));
    EXPECT_THAT(SectionOf(file, "s"), ElementsAre(Pair("k", "v")));
}

TEST_F(FileBadInput, A200MegabyteFileOfZerosIsOneLine) {
    const std::string file = folder_.Write("file", "");
    ASSERT_EQ(truncate(file.c_str(), 200'000'000), 0);
    StringList lines;
    EXPECT_SUCCESS(1, TLIBCFileReadLines(file.c_str(), lines.Address()));
    EXPECT_THAT(lines.Items(), ElementsAre(""));
    for (const Reader &reader : kReaders) {
        if (reader.name != std::string("TLIBCFileReadLines")) {
            EXPECT_SUCCESS(0, reader.call(file.c_str())) << reader.name;
        }
    }
}

TEST_F(FileBadInput, ASectionAfter200MegabytesIsFound) {
    const std::string file = folder_.Write("file", "");
    ASSERT_EQ(truncate(file.c_str(), 200'000'000), 0);
    const int fd = open(file.c_str(), O_WRONLY | O_APPEND | O_CLOEXEC);
    ASSERT_EQ(write(fd, "\n[s]\nk=v", 8), 8);
    close(fd);
    EXPECT_THAT(SectionOf(file, "s"), ElementsAre(Pair("k", "v")));
    EXPECT_THAT(SectionNamesOf(file), ElementsAre("s"));
}

TEST_F(FileBadInput, AFileThatIsTooLargeIsRejected) {
    const std::string file = folder_.Write("file", "");
    if (truncate(file.c_str(), off_t{1} << 43) != 0) {
        GTEST_SKIP() << "the file system does not support a file of 8 TiB";
    }
    ExpectEveryoneFails(kUnusableCode, file);
}

TEST_F(FileBadInput, AnEndlessLineTakesLinearTime) {
    const std::size_t size = 20'000'000;
    std::string brackets_after_blanks;
    while (brackets_after_blanks.size() < size) {
        brackets_after_blanks += std::string(1000, ' ') + "[";
    }
    for (const std::string &line :
         {std::string(size, 'a'), std::string(size, '['), std::string(size, ' '),
          std::string(size, '='), brackets_after_blanks}) {
        const std::string file = folder_.Write("file", line);
        for (const Reader &reader : kReaders) {
            EXPECT_GE(reader.call(file.c_str()), 0) << reader.name;
        }
    }
}

TEST_F(FileBadInput, ManyShortLinesTakeLinearTime) {
    std::string text;
    for (int i = 0; i < 200'000; ++i) {
        text += "[" + std::to_string(i) + "]\n[s]\nk" + std::to_string(i) + "=1\n";
    }
    const std::string file = folder_.Write("file", text);
    EXPECT_EQ(kReaders[0].call(file.c_str()), 200'001);
    EXPECT_EQ(kReaders[1].call(file.c_str()), 200'000);
    EXPECT_EQ(kReaders[3].call(file.c_str()), 600'000);
    EXPECT_SUCCESS(0, TLIBCFileSetSectionValue(file.c_str(), "s", "k7", "2"));
    EXPECT_SUCCESS(0, TLIBCFileRemoveSection(file.c_str(), "s"));
    EXPECT_EQ(kReaders[1].call(file.c_str()), 0);
}

// Sizes around those of the loader's buffers.
TEST_F(FileBadInput, FilesOfAnySizeAreReadToTheirLastByte) {
    for (const std::size_t around : {0u, 4096u, 8192u, 16384u, 32768u, 65536u}) {
        for (std::size_t size = around < 3 ? 3 : around - 3; size <= around + 3; ++size) {
            const std::string text = std::string(size - 3, '#') + "\nk=";
            const std::string file = folder_.Write("file", text);
            StringList lines;
            EXPECT_SUCCESS(2, TLIBCFileReadLines(file.c_str(), lines.Address()));
            EXPECT_THAT(lines.Items(), ElementsAre(std::string(size - 3, '#'), "k="));
        }
    }
}

TEST_F(FileBadInput, AFileThatChangesWhileItIsReadYieldsSomeOfItsLines) {
    const std::string file = folder_.Write("file", "");
    std::atomic<bool> stop = false;
    std::thread changer([&] {
        const int fd = open(file.c_str(), O_WRONLY | O_CLOEXEC);
        std::string block;
        while (block.size() < 100'000) {
            block += "[s]\nk=v\n";
        }
        for (unsigned int turn = 1; !stop; turn = turn * 1103515245 + 12345) {
            EXPECT_EQ(ftruncate(fd, turn % 100'000 / 8 * 8), 0);
            EXPECT_GT(pwrite(fd, block.data(), turn / 8 % 100'000 / 8 * 8 + 8, 0), 0);
        }
        close(fd);
    });
    const auto end = std::chrono::steady_clock::now() + std::chrono::milliseconds(500);
    while (std::chrono::steady_clock::now() < end) {
        for (const Reader &reader : kReaders) {
            EXPECT_GE(reader.call(file.c_str()), 0) << reader.name;
        }
    }
    stop = true;
    changer.join();
}

}  // namespace
}  // namespace tavo::test
