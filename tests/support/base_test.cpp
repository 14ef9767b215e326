// Tests of the owners of descriptors and memory, and of WriteAll.
#include <fcntl.h>
#include <gmock/gmock.h>
#include <pthread.h>
#include <signal.h>

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <string>
#include <thread>
#include <utility>

#include "base/descriptor.h"
#include "base/owners.h"

namespace tavo::test {
namespace {

int OpenNull() {
    return open("/dev/null", O_RDWR | O_CLOEXEC);
}

bool IsOpen(int fd) {
    return fcntl(fd, F_GETFD) != -1;
}

TEST(OwnedDescriptor, IsClosedWithItsOwner) {
    int fd = -1;
    {
        const Descriptor file(OpenNull());
        ASSERT_TRUE(file.IsOpen());
        fd = file.Get();
        EXPECT_TRUE(IsOpen(fd));
    }
    EXPECT_FALSE(IsOpen(fd));
}

TEST(OwnedDescriptor, MayBeNone) {
    Descriptor none;
    EXPECT_FALSE(none.IsOpen());
    EXPECT_EQ(none.Release(), -1);
    EXPECT_TRUE(none.Close());
}

TEST(OwnedDescriptor, PassesToAnotherOwner) {
    auto first = std::make_unique<Descriptor>(OpenNull());
    const int fd = first->Get();
    auto second = std::make_unique<Descriptor>(std::move(*first));
    first.reset();
    EXPECT_TRUE(IsOpen(fd));

    Descriptor third(OpenNull());
    const int replaced = third.Get();
    third = std::move(*second);
    second.reset();
    EXPECT_EQ(third.Get(), fd);
    EXPECT_TRUE(IsOpen(fd));
    EXPECT_FALSE(IsOpen(replaced));
}

TEST(OwnedDescriptor, KeepsItselfInASelfAssignment) {
    Descriptor file(OpenNull());
    const int fd = file.Get();
    Descriptor &same = file;
    file = std::move(same);
    EXPECT_EQ(file.Get(), fd);
    EXPECT_TRUE(IsOpen(fd));
}

TEST(OwnedDescriptor, IsNotClosedAfterItsRelease) {
    int fd = -1;
    {
        Descriptor file(OpenNull());
        fd = file.Release();
    }
    EXPECT_TRUE(IsOpen(fd));
    EXPECT_EQ(close(fd), 0);
}

// Closing a descriptor that is not open fails with EBADF.
TEST(OwnedDescriptor, ReportsThatClosingFailed) {
    const int fd = OpenNull();
    Descriptor file(fd);
    ASSERT_EQ(close(fd), 0);
    EXPECT_FALSE(file.Close());
    EXPECT_EQ(errno, EBADF);
    EXPECT_FALSE(file.IsOpen());
}

TEST(OwnedDescriptor, LeavesErrnoUnchanged) {
    {
        const int fd = OpenNull();
        const Descriptor file(fd);
        ASSERT_EQ(close(fd), 0);
        errno = ENOSPC;
    }
    EXPECT_EQ(errno, ENOSPC);
}

void FreeAndSpoilErrno(char *text) {
    std::free(text);
    errno = EBADF;
}

TEST(OwnedMemory, LeavesErrnoUnchanged) {
    {
        const std::unique_ptr<char, FreeWith<FreeAndSpoilErrno>> text(strdup("text"));
        errno = ENOMEM;
    }
    EXPECT_EQ(errno, ENOMEM);
}

TEST(Uninterrupted, CallsAgainAfterASignalOnly) {
    int calls = 0;
    EXPECT_EQ(Uninterrupted([&] {
                  errno = ++calls < 3 ? EINTR : EIO;
                  return -1;
              }),
              -1);
    EXPECT_EQ(calls, 3);
    EXPECT_EQ(errno, EIO);
}

// The text is larger than the buffer of a pipe, so the writer blocks in the middle of it, where the
// signals interrupt it.
TEST(WriteAll, WritesATextThatSignalsInterrupt) {
    struct sigaction action = {};
    struct sigaction before = {};
    action.sa_handler = [](int) {};
    ASSERT_EQ(sigaction(SIGUSR1, &action, &before), 0);
    int ends[2];
    ASSERT_EQ(pipe2(ends, O_CLOEXEC), 0);
    const Descriptor reading(ends[0]);
    Descriptor writing(ends[1]);
    const std::string text(1 << 20, 'x');
    const pthread_t writer = pthread_self();
    std::string read_text;
    std::thread reader([&] {
        char buffer[1000];
        ssize_t got = 0;
        while ((got = Uninterrupted([&] { return read(reading.Get(), buffer, sizeof(buffer)); })) >
               0) {
            read_text.append(buffer, static_cast<std::size_t>(got));
            pthread_kill(writer, SIGUSR1);
        }
    });
    const bool written = WriteAll(writing.Get(), text);
    writing.Reset();
    reader.join();
    EXPECT_TRUE(written);
    EXPECT_EQ(read_text, text);
    sigaction(SIGUSR1, &before, nullptr);
}

TEST(WriteAll, ReportsAFullDevice) {
    const Descriptor full(open("/dev/full", O_WRONLY | O_CLOEXEC));
    EXPECT_FALSE(WriteAll(full.Get(), "text"));
    EXPECT_EQ(errno, ENOSPC);
    EXPECT_TRUE(WriteAll(full.Get(), ""));
}

}  // namespace
}  // namespace tavo::test
