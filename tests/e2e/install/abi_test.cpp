// Compares the interface that existing programs rely on with its record. A difference needs a new
// major version, unless it is an addition. Update the record after an addition: cmake --build
// build/dev --target abi-dump
#include <string>

#include "gmock/gmock.h"
#include "gtest/gtest.h"
#include "run_program.h"
#include "temporary_folder.h"

namespace tavo::test {
namespace {

using ::testing::HasSubstr;
using ::testing::Not;

TEST(Abi, IsTheRecordedOne) {
    const ProgramResult result = RunProgram(
        {"abidiff", "--harmless", TAVO_SOURCE_DIR "/packaging/abi/libtavoserviceconf.abi",
         TAVO_BUILD_DIR "/lib/libtavoserviceconf.so.7"});
    EXPECT_EQ(result.status, 0) << result.out << result.err;
}

TEST(Abi, RecordNamesNoFolderOfTheMachineThatWroteIt) {
    EXPECT_THAT(ReadFile(TAVO_SOURCE_DIR "/packaging/abi/libtavoserviceconf.abi"),
                Not(HasSubstr("='/")));
}

}  // namespace
}  // namespace tavo::test
