// servicetool services on a reading that the test can change before the command receives it.
#include <gmock/gmock.h>

#include <functional>
#include <sstream>

#include "catalogue/firewall_service.h"
#include "commands/commands.h"
#include "open_counter.h"
#include "service_folders.h"
#include "temporary_folder.h"

namespace tavo::test {

using namespace tool;

namespace {

using testing::ElementsAre;
using testing::HasSubstr;
using testing::Not;

std::function<void(DeclaredServices &)> change;

struct Output {
    Status status = Status::kOk;
    std::string out;
    std::string err;
};

class FirewallServicesList : public ServiceFolders {
  protected:
    ~FirewallServicesList() override { change = nullptr; }

    static Status RunCommand() {
        Arguments arguments;
        arguments.SetCommand(kServicesCommand);
        Report report(false);
        kServicesCommand.run(arguments, report);
        return report.Worst();
    }

    static Output Run() {
        testing::internal::CaptureStdout();
        testing::internal::CaptureStderr();
        const Status status = RunCommand();
        return {status, testing::internal::GetCapturedStdout(),
                testing::internal::GetCapturedStderr()};
    }
};

// The names and origins in the lines of the table.
std::vector<std::string> Origins(const std::string &table) {
    std::istringstream lines(table);
    std::vector<std::string> origins;
    std::string name;
    std::string skipped;
    std::string origin;
    std::string rest;
    while (lines >> name >> skipped >> skipped >> skipped >> origin && std::getline(lines, rest)) {
        origins.push_back(name + ' ' + origin);
    }
    return origins;
}

TEST_F(FirewallServicesList, NamesTheOriginOfEachService) {
    WriteFile(kSystem + "a.sc", Section("a", "1") + Section("b", "2"));
    WriteFile("/usr/local/etc/services.d/c.sc", Section("a", "3"));
    std::vector<std::string> origins = Origins(Run().out);
    ASSERT_EQ(origins.size(), 16U);
    EXPECT_EQ(origins[1], "telnet built-in");
    origins.erase(origins.begin(), origins.begin() + 12);
    EXPECT_THAT(origins,
                ElementsAre("ipp built-in", "a system/a.sc", "b system/a.sc", "a package/c.sc"));
}

TEST_F(FirewallServicesList, LintsOnlyFilesOfWhichSomethingIsLeftOut) {
    const std::string whole = kSystem + "a.sc";
    const std::string partial = kSystem + "b.sc";
    WriteFile(whole, Section("a", "1"));
    WriteFile(partial, Section("b", "2") + "[bad]\n");
    Output output;
    EXPECT_EQ(CountOpens(whole.c_str(), [&output] { output = Run(); }), 1);
    EXPECT_EQ(output.status, Status::kFailed);
    EXPECT_THAT(output.err, HasSubstr(partial + ":5:2: error: section [bad] is left out"));
    EXPECT_THAT(output.err, Not(HasSubstr(whole)));
    EXPECT_EQ(CountOpens(partial.c_str(), [&output] { output = Run(); }), 2);
}

// Services that are missing for lack of memory must not be reported as absent.
TEST_F(FirewallServicesList, IsRefusedWhenMemoryRanOutForTheCatalogue) {
    change = [](DeclaredServices &declared) {
        declared.report.NoteFault(Reading::Unknown(TLIBC_ERR_NO_MEMORY));
    };
    EXPECT_THROW(RunCommand(), std::bad_alloc);
}

// A file that was left out when it was read but is readable now.
TEST_F(FirewallServicesList, IsIncompleteWithoutAFileThatRecovered) {
    WriteFile(kSystem + "a.sc", Section("a", "1"));
    change = [](DeclaredServices &declared) {
        const ServiceFileRecord &file = declared.report.Files()[0];
        declared.report.BeginFile(*file.folder, file.path);
        declared.report.NoteSection(Reading::Unknown(TLIBC_ERR_FILE_UNUSABLE), "a");
    };
    const Output output = Run();
    EXPECT_EQ(output.status, Status::kFailed);
    EXPECT_EQ(output.err, kSystem + "a.sc: error: changed while it was read [unreadable]\n");
}

// The settings are readable when the command looks for the reason, so they are not to blame.
TEST_F(FirewallServicesList, DoesNotBlameReadableSettingsForAFailedReading) {
    change = [](DeclaredServices &declared) {
        const Reading failed = Reading::Unknown(TLIBC_ERR_FILE_UNUSABLE);
        for (const char *name : {"ipp", "nfs"}) {
            const auto *row = rgServices;
            while (row->szName != std::string(name)) {
                ++row;
            }
            declared.report.NoteRow(failed, *row);
        }
    };
    const Output output = Run();
    EXPECT_EQ(output.status, Status::kFailed);
    EXPECT_EQ(output.err,
              "servicetool: error: built-in service ipp is left out: a file cannot be opened or "
              "used [failed]\n"
              "servicetool: error: built-in service nfs is left out: a file cannot be opened or "
              "used [failed]\n");
}

}  // namespace
}  // namespace tavo::test

namespace tavo {

DeclaredServices LinkedReader(const FileVisitor *visitor) asm(
    "__real__ZN4tavo20ReadDeclaredServicesEPKNS_11FileVisitorE");
DeclaredServices StandInReader(const FileVisitor *visitor) asm(
    "__wrap__ZN4tavo20ReadDeclaredServicesEPKNS_11FileVisitorE");

// The linker redirects calls of ReadDeclaredServices to this function.
DeclaredServices StandInReader(const FileVisitor *visitor) {
    DeclaredServices declared = LinkedReader(visitor);
    if (test::change) {
        test::change(declared);
    }
    return declared;
}

}  // namespace tavo
