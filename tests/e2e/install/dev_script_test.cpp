// Runs ./dev in a temporary folder with stand-ins for the programs that it calls. The stand-ins
// record their arguments, so nothing is installed or built, and the test can simulate any machine.
#include <sys/stat.h>

#include <filesystem>
#include <string>
#include <vector>

#include "gmock/gmock.h"
#include "gtest/gtest.h"
#include "run_program.h"
#include "temporary_folder.h"

namespace tavo::test {
namespace {

namespace fs = std::filesystem;

using ::testing::AllOf;
using ::testing::EndsWith;
using ::testing::HasSubstr;
using ::testing::IsEmpty;
using ::testing::Not;
using ::testing::StartsWith;

class DevScript : public ::testing::Test {
  protected:
    DevScript() {
        fs::copy_file(TAVO_SOURCE_DIR "/dev", folder_ / "dev");
        fs::copy_file(TAVO_SOURCE_DIR "/CMakePresets.json", folder_ / "CMakePresets.json");
        for (const char *sources :
             {"include", "base", "src", "platform", "tools", "tests", "bench"}) {
            fs::create_directory(folder_ / sources);
        }
        fs::create_directory(folder_ / "bin");
        StandIn("dpkg-query", R"([[ " $MISSING " == *" ${*: -1} "* ]] || echo installed)", false);
        StandIn("id", "echo ${PLAYED_UID-1000}", false);
        StandIn("sudo", R"([[ $SUDO_WORKS ]] && { [[ $1 == -* ]] || exec "$@"; })");
        StandIn("apt-get", "exit ${APT_GET_STATUS-0}");
        StandIn("clang-format", "cat >/dev/null");
        StandIn("cmake", R"([[ $1 != --preset ]] || mkdir -p "build/$2")");
        StandIn("ctest", R"([[ $2 != "$FAILING_PRESET" ]])");
        folder_.Write("src/one.cpp", "");
    }

    // Creates a stand-in on the PATH; if `recorded`, it adds its name and arguments to the calls.
    void StandIn(const std::string &name, const std::string &body, bool recorded = true) {
        PlaceProgram("bin/" + name,
                     (recorded ? "echo \"" + name + " $*\" >>\"$CALLS\"\n" : "") + body);
    }

    void PlaceProgram(const std::string &path, const std::string &body) {
        fs::create_directories(fs::path(folder_ / path).parent_path());
        chmod(folder_.Write(path, "#!/bin/bash\n" + body + "\n").c_str(), 0755);
    }

    ProgramResult Dev(const std::vector<std::string> &arguments,
                      const std::vector<std::string> &environment = {}) {
        WriteFile(folder_ / "calls", "");
        std::vector<std::string> command = {folder_ / "dev"};
        command.insert(command.end(), arguments.begin(), arguments.end());
        std::vector<std::string> settings = {"PATH=" + folder_ / "bin" + ":/usr/bin:/bin",
                                             "CALLS=" + folder_ / "calls"};
        settings.insert(settings.end(), environment.begin(), environment.end());
        return RunProgram(command, "", settings);
    }

    std::string Calls() const { return ReadFile(folder_ / "calls"); }

    TemporaryFolder folder_;
};

TEST_F(DevScript, InstallsNothingWhenNothingIsMissing) {
    const ProgramResult result = Dev({"format"});
    EXPECT_EQ(result.status, 0) << result.err;
    EXPECT_EQ(Calls(), "clang-format -i src/one.cpp\n");
}

TEST_F(DevScript, InstallsWhatIsMissingAsRoot) {
    const ProgramResult result = Dev({"format"}, {"PLAYED_UID=0", "MISSING=clang-format"});
    EXPECT_EQ(result.status, 0) << result.err;
    EXPECT_EQ(Calls(),
              "apt-get update --quiet\n"
              "apt-get install --quiet --yes --no-install-recommends clang-format\n"
              "clang-format -i src/one.cpp\n");
}

TEST_F(DevScript, InstallsWhatIsMissingWithSudo) {
    const ProgramResult result = Dev({"format"}, {"SUDO_WORKS=1", "MISSING=clang-format"});
    EXPECT_EQ(result.status, 0) << result.err;
    EXPECT_THAT(Calls(), HasSubstr("sudo apt-get update --quiet\n"));
    EXPECT_THAT(Calls(),
                HasSubstr("sudo env DEBIAN_FRONTEND=noninteractive apt-get install --quiet "
                          "--yes --no-install-recommends clang-format\n"));
}

TEST_F(DevScript, PrintsTheInstallLineWithNeitherRootNorSudo) {
    const ProgramResult result = Dev({"test"}, {"MISSING=cmake strace clang"});
    EXPECT_EQ(result.status, 1);
    EXPECT_THAT(result.err, StartsWith("dev: packages are missing"));
    EXPECT_THAT(result.err,
                EndsWith("\n    apt-get install --no-install-recommends cmake strace clang\n"));
    EXPECT_THAT(Calls(), Not(HasSubstr("apt-get")));
    EXPECT_THAT(Calls(), Not(HasSubstr("cmake"))) << "it must stop";
}

TEST_F(DevScript, StopsWhenTheInstallationFails) {
    const ProgramResult result =
        Dev({"format"}, {"PLAYED_UID=0", "MISSING=clang-format", "APT_GET_STATUS=100"});
    EXPECT_NE(result.status, 0);
    EXPECT_THAT(Calls(), Not(HasSubstr("clang-format -i")));
}

TEST_F(DevScript, ConfiguresOnceAndAgainWhenThePresetsChange) {
    EXPECT_EQ(Dev({"test"}).status, 0);
    EXPECT_THAT(Calls(), HasSubstr("cmake --preset dev\n"));
    EXPECT_EQ(Dev({"test"}).status, 0);
    EXPECT_THAT(Calls(), Not(HasSubstr("cmake --preset")));
    EXPECT_THAT(Calls(), HasSubstr("cmake --build build/dev\n"));
    fs::last_write_time(folder_ / "CMakePresets.json",
                        fs::file_time_type::clock::now() + std::chrono::hours(1));
    EXPECT_EQ(Dev({"test"}).status, 0);
    EXPECT_THAT(Calls(), HasSubstr("cmake --preset dev\n"));
}

TEST_F(DevScript, TryShowsTheServicesOfAPrivateAppliance) {
    PlaceProgram("build/package/bin/appliance", "exec '" TAVO_APPLIANCE "' \"$@\"");
    const ProgramResult result = Dev({"try"});
    EXPECT_EQ(result.status, 0) << result.err;
    EXPECT_THAT(Calls(), HasSubstr("cmake --build build/package\n"));
    EXPECT_THAT(result.out, HasSubstr("\nchat "));
    EXPECT_THAT(result.err, HasSubstr("photo-frame.sc:4:"));
}

TEST_F(DevScript, TestBuildsAndRunsEveryPreset) {
    const ProgramResult result = Dev({"test"});
    EXPECT_EQ(result.status, 0) << result.err;
    for (const std::string preset : {"dev", "fuzz", "asan"}) {
        EXPECT_THAT(Calls(), HasSubstr("cmake --build build/" + preset + "\n"));
        EXPECT_THAT(Calls(), HasSubstr("ctest --preset " + preset + " --parallel "));
    }
}

TEST_F(DevScript, QuickTestNeedsTheCompilerOfTheFirstPresetAlone) {
    const ProgramResult result = Dev({"test", "--quick"}, {"MISSING=clang"});
    EXPECT_EQ(result.status, 0) << result.err;
    EXPECT_THAT(Calls(), HasSubstr("ctest --preset dev --parallel "));
    EXPECT_THAT(Calls(), AllOf(Not(HasSubstr("fuzz")), Not(HasSubstr("asan"))));
    EXPECT_EQ(Dev({"test", "--quick"}, {"FAILING_PRESET=dev"}).status, 1);
}

class DevScriptPreset : public DevScript, public ::testing::WithParamInterface<const char *> {};

TEST_P(DevScriptPreset, TestFailsWhenTheTestsOfOnePresetFail) {
    EXPECT_NE(Dev({"test"}, {"FAILING_PRESET=" + std::string(GetParam())}).status, 0);
}

INSTANTIATE_TEST_SUITE_P(Every, DevScriptPreset, ::testing::Values("dev", "fuzz", "asan"));

TEST_F(DevScript, FuzzRunsEachFuzzerOnItsCorpusAndFailsWhenOneCrashes) {
    PlaceProgram("build/fuzz/bin/fuzz_bad", R"(echo "bad $*" >>"$CALLS"; exit 77)");
    PlaceProgram("build/fuzz/bin/fuzz_good", R"(echo "good $*" >>"$CALLS")");
    PlaceProgram("build/fuzz/bin/appliance", R"([[ "$1 $2" == "run --" ]] && exec "${@:3}")");
    EXPECT_NE(Dev({"fuzz", "7"}).status, 0);
    EXPECT_THAT(Calls(), HasSubstr("bad -max_total_time=7 "));
    EXPECT_THAT(Calls(), HasSubstr("good -max_total_time=7 "));
    EXPECT_THAT(Calls(), EndsWith(" build/fuzz/found/good tests/fuzz/corpus/good\n"));
    EXPECT_TRUE(fs::is_directory(folder_ / "build/fuzz/found/good"));
}

TEST_F(DevScript, FuzzKeepsWhatIsFoundInAnAppliance) {
    PlaceProgram("build/fuzz/bin/fuzz_one", "");
    PlaceProgram("build/fuzz/bin/appliance",
                 "'" TAVO_APPLIANCE
                 "' run -- sh -c 'echo 1 >\"$TAVO_APPLIANCE_WRITABLE/one-crash\"'");
    const ProgramResult result = Dev({"fuzz"});
    EXPECT_EQ(result.status, 0) << result.err;
    EXPECT_EQ(ReadFile(folder_ / "build/fuzz/found/one-crash"), "1\n");
}

TEST_F(DevScript, FuzzAndBenchFailWhenThereIsNothingToRun) {
    EXPECT_EQ(Dev({"fuzz"}).status, 1);
    EXPECT_EQ(Dev({"bench"}).status, 1);
}

TEST_F(DevScript, BenchRunsInAnApplianceAndWritesJsonBesideTheTable) {
    PlaceProgram("build/release/bin/bench_one", "echo TABLE");
    PlaceProgram("build/release/bin/appliance",
                 "echo \"appliance ${*:4}\" >>\"$CALLS\"\n"
                 "mkdir \"$3/run\"; echo JSON >\"$3/run/benchmark.json\"; \"$5\"");
    const ProgramResult result = Dev({"bench"});
    EXPECT_EQ(result.status, 0) << result.err;
    EXPECT_THAT(result.out, HasSubstr("TABLE"));
    EXPECT_THAT(Calls(), HasSubstr("appliance -- build/release/bin/bench_one "
                                   "--benchmark_out=/run/benchmark.json "));
    EXPECT_EQ(ReadFile(folder_ / "build/release/bench/bench_one.json"), "JSON\n");
}

TEST_F(DevScript, CoverageKeepsWhatProgramsCountInAppliances) {
    StandIn("gcovr", "");
    StandIn("ctest", "'" TAVO_APPLIANCE
                     "' run -- sh -c 'echo 1 >\"$TAVO_APPLIANCE_WRITABLE/counter.gcda\"'");
    fs::create_directories(folder_ / "build/coverage");
    folder_.Write("build/coverage/old.gcda", "");
    const ProgramResult result = Dev({"coverage"});
    EXPECT_EQ(result.status, 0) << result.err;
    EXPECT_EQ(ReadFile(folder_ / "build/coverage/counter.gcda"), "1\n");
    EXPECT_FALSE(fs::exists(folder_ / "build/coverage/old.gcda"));
    EXPECT_THAT(Calls(), HasSubstr("gcovr "));
}

TEST_F(DevScript, EveryCommandSaysFirstWhatItDoes) {
    for (const char *command :
         {"try", "test", "bench", "shell", "lint", "format", "fuzz", "coverage", "package"}) {
        EXPECT_THAT(Dev({command}).out, StartsWith("\n==> ")) << command;
    }
}

TEST_F(DevScript, HelpNamesEveryCommand) {
    const ProgramResult result = Dev({"help"});
    EXPECT_EQ(result.status, 0);
    for (const char *command :
         {"try", "test", "bench", "shell", "lint", "format", "fuzz", "coverage", "package"}) {
        EXPECT_THAT(result.out, HasSubstr("\n  " + std::string(command) + " ")) << command;
    }
}

TEST_F(DevScript, RefusesWhatItDoesNotKnow) {
    for (const std::vector<std::string> &wrong :
         std::vector<std::vector<std::string>>{{"nope"},
                                               {"test", "dev"},
                                               {"test", "--quick", "x"},
                                               {"fuzz", "x"},
                                               {"fuzz", "0"},
                                               {"fuzz", "1", "2"}}) {
        const ProgramResult result = Dev(wrong);
        EXPECT_EQ(result.status, 2) << wrong.back();
        EXPECT_THAT(result.err, HasSubstr("usage: ./dev COMMAND"));
        EXPECT_THAT(result.out, IsEmpty());
        EXPECT_THAT(Calls(), IsEmpty());
    }
}

TEST_F(DevScript, NamesACommandThatItDoesNotKnow) {
    const ProgramResult result = Dev({"nosuch"});
    EXPECT_EQ(result.status, 2);
    EXPECT_THAT(result.err, StartsWith("dev: unknown command nosuch\nusage: ./dev COMMAND\n"));
    EXPECT_THAT(result.out, IsEmpty());
}

TEST(CiRun, CallsDevTestAndNothingElse) {
    const TemporaryFolder folder;
    fs::create_directory(folder / ".ci");
    fs::copy_file(TAVO_SOURCE_DIR "/.ci/run", folder / ".ci/run");
    chmod(folder.Write("dev", "#!/bin/bash\necho \"dev $*\"; exit 3\n").c_str(), 0755);
    const ProgramResult result = RunProgram({folder / ".ci/run"});
    EXPECT_EQ(result.out, "dev test\n");
    EXPECT_EQ(result.status, 3);
}

}  // namespace
}  // namespace tavo::test
