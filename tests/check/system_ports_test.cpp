// The records of the ports that the system itself declares.
#include <utility>

#include "check/declared_ports.h"
#include "conf_check_test.h"
#include "failing_allocation.h"

namespace tavo::test {
namespace {

class SystemPortRecords : public DeclaredPortsTest {
  protected:
    // "514 good", "80 invalid", "0 unknown 0x900" for syslogport.
    static std::string Syslog() {
        const SystemDeclaration declared = ReadSystemPort(TAVO_HERE, kSystemPorts[0]);
        char code[16];
        snprintf(code, sizeof(code), " 0x%X", declared.reading.Fault());
        return std::to_string(declared.port) +
               (declared.reading.IsGood()       ? " good"
                : declared.reading.Fault() == 0 ? " invalid"
                                                : " unknown") +
               (declared.reading.Fault() == 0 ? "" : code);
    }
};

TEST_F(SystemPortRecords, SayWhetherTheSettingIsAPort) {
    const std::pair<const char *, const char *> cases[] = {
        {"514", "514 good"},     {"", "0 good"},          {"0", "0 good"},
        {"65535", "65535 good"}, {"80x", "80 invalid"},   {"65536", "0 invalid"},
        {"x", "0 invalid"},      {"-1", "65535 invalid"}, {"4294967376", "80 good"},
        {"80,81", "80 invalid"},
    };
    for (const auto &[value, expected] : cases) {
        Settings(std::string("syslogport=\"") + value + "\"\n");
        EXPECT_EQ(Syslog(), expected) << value;
    }
}

TEST_F(SystemPortRecords, AreGoodWithoutTheKeyOrTheSettings) {
    Settings("");
    EXPECT_EQ(Syslog(), "0 good");
    std::filesystem::remove(kSettings);
    EXPECT_EQ(Syslog(), "0 good");
}

TEST_F(SystemPortRecords, AreUnknownWhenTheSettingsCannotBeRead) {
    MakeUnreadable(kSettings);
    EXPECT_EQ(Syslog(), "0 unknown 0x900");
}

TEST_F(SystemPortRecords, AreNeverTakenForAbsentWithoutMemory) {
    // The file must be large, because a small one is read without allocating.
    Settings("syslogport=\"514\"\n" + std::string(1 << 20, '#'));
    int unknown = 0;
    ForEachFailingAllocation([&](FailingAllocation &fail) {
        TLIBCErrSetEx(0, nullptr, 0);
        const std::string read = fail.During([] {
            const SystemDeclaration declared = ReadSystemPort(TAVO_HERE, kSystemPorts[0]);
            return declared.reading.Fault() == TLIBC_ERR_NO_MEMORY ? "unknown"
                   : declared.port == 514                          ? "514"
                                                                   : "lost";
        });
        EXPECT_NE(read, "lost");
        unknown += read == "unknown" ? 1 : 0;
    });
    EXPECT_GT(unknown, 0);
}

}  // namespace
}  // namespace tavo::test
