// The library is loaded by a running program, as a plugin would load it. Thread-local data of such
// a library may be allocated when a thread first uses it, and the dynamic linker ends the process
// if that fails.
#include <dlfcn.h>
#include <gtest/gtest.h>

#include <thread>

#include "child_process.h"
#include "failing_allocation.h"
#include "tavocore.h"

namespace tavo::test {
namespace {

class LoadedLate : public testing::Test {
  protected:
    ~LoadedLate() override { Unload(library_); }

    static void Unload(void *library) {
        if (library != nullptr) {
            dlclose(library);
        }
    }

    void *library_ = dlopen(TAVO_CORE_LIBRARY, RTLD_NOW | RTLD_LOCAL);
};

#define FIND(function) reinterpret_cast<decltype(&(function))>(dlsym(library_, #function))

// The exit status of a process in which a new thread makes the call while every allocation fails: 0
// if the call returned true.
template <typename Call>
int StatusInNewThread(Call call) {
    return StatusInChild([&] {
        bool result = false;
        std::thread([&] {
            FailingAllocation fail(1, FailingAllocation::Mode::kFromNthOn);
            result = fail.During(call);
            fail.Hit();  // some calls need no memory
        }).join();
        return result ? 0 : 1;
    });
}

TEST_F(LoadedLate, RecordsTheFirstErrorOfAThreadWithoutMemory) {
    ASSERT_NE(library_, nullptr) << dlerror();
    const auto allocate = FIND(TLIBCSzListAlloc);
    const auto error = FIND(TLIBCErrGet);
    ASSERT_TRUE(allocate != nullptr && error != nullptr);
    EXPECT_EQ(StatusInNewThread([&] { return allocate(1) == nullptr && error() == 0x200; }), 0);
}

TEST_F(LoadedLate, HasAnErrorStateInAThreadWithoutMemory) {
    ASSERT_NE(library_, nullptr) << dlerror();
    const auto error = FIND(TLIBCErrGet);
    const auto file = FIND(TLIBCErrorGetFile);
    ASSERT_TRUE(error != nullptr && file != nullptr);
    EXPECT_EQ(StatusInNewThread([&] { return error() == 0 && *file() == '\0'; }), 0);
}

TEST_F(LoadedLate, HoldsNoFileInAThreadWithoutMemory) {
    ASSERT_NE(library_, nullptr) << dlerror();
    const auto hold = FIND(TLIBCFileHold);
    const auto release = FIND(TLIBCFileRelease);
    ASSERT_TRUE(hold != nullptr && release != nullptr);
    EXPECT_EQ(StatusInNewThread([&] {
                  release();
                  return hold("/proc/self/status") == -1;
              }),
              0);
}

// The space for thread-local data of libraries that are loaded late is limited.
TEST_F(LoadedLate, CanBeLoadedWithTheLibraryThatUsesIt) {
    void *service_conf = dlopen(TAVO_SERVICE_CONF_LIBRARY, RTLD_NOW | RTLD_LOCAL);
    EXPECT_NE(service_conf, nullptr) << dlerror();
    Unload(service_conf);
}

}  // namespace
}  // namespace tavo::test
