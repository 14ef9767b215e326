#include <gmock/gmock.h>

#include <cstdlib>

#include "failing_allocation.h"
#include "library_test.h"

namespace tavo::test {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

class ComposePortInfo : public LibraryTest {
  protected:
    ~ComposePortInfo() override { TAVOServiceConfPortsFree(list_); }

    TAVO_SERVICE_CONF_PORT *list_ = nullptr;
};

TEST_F(ComposePortInfo, PutsCopiesInFrontAndLeavesTheSourceAlone) {
    TAVO_SERVICE_CONF_PORT elsewhere = {};
    TAVO_SERVICE_CONF_PORT range = {0, 1, 3, 100, 200, &elsewhere};
    const TAVO_SERVICE_CONF_PORT single = {1, 0, 1, 80, 0, nullptr};
    EXPECT_EQ(TAVOServiceComposePortInfo(&range, &list_), 0);
    EXPECT_EQ(TAVOServiceComposePortInfo(&single, &list_), 0);
    EXPECT_THAT(Describe(list_), ElementsAre("dst 80 protocol 1", "src 100:200 protocol 3"));
    EXPECT_EQ(range.pNext, &elsewhere);
    EXPECT_EQ(TLIBCErrGet(), 0U);
    EXPECT_THAT(Messages(), IsEmpty());
}

TEST_F(ComposePortInfo, KeepsTheEndOfASinglePortUnchecked) {
    const TAVO_SERVICE_CONF_PORT single = {1, 0, 2, 100, 99, nullptr};
    EXPECT_EQ(TAVOServiceComposePortInfo(&single, &list_), 0);
    EXPECT_THAT(Describe(list_), ElementsAre("dst 100 with end 99 protocol 2"));
}

TEST_F(ComposePortInfo, KeepsProtocolBitsBeyondTheTwo) {
    const TAVO_SERVICE_CONF_PORT port = {1, 0, 7, 1, 0, nullptr};
    EXPECT_EQ(TAVOServiceComposePortInfo(&port, &list_), 0);
    EXPECT_THAT(Describe(list_), ElementsAre("dst 1 protocol 7"));
}

TEST_F(ComposePortInfo, AcceptsARangeOfOnePort) {
    const TAVO_SERVICE_CONF_PORT port = {1, 1, 1, 99, 99, nullptr};
    EXPECT_EQ(TAVOServiceComposePortInfo(&port, &list_), 0);
    EXPECT_THAT(Describe(list_), ElementsAre("dst 99:99 protocol 1"));
}

TEST_F(ComposePortInfo, RejectsBadRecordsAndKeepsTheList) {
    const TAVO_SERVICE_CONF_PORT good = {1, 0, 1, 80, 0, nullptr};
    ASSERT_EQ(TAVOServiceComposePortInfo(&good, &list_), 0);
    const TAVO_SERVICE_CONF_PORT bad[] = {
        {1, 1, 1, 100, 99, nullptr}, {1, 2, 1, 80, 90, nullptr}, {2, 0, 1, 80, 0, nullptr},
        {1, 0, 0, 80, 0, nullptr},   {1, 0, 4, 80, 0, nullptr},  {~0U, 0, 1, 80, 0, nullptr},
    };
    for (const auto &port : bad) {
        log_.Clear();
        TLIBCErrSetEx(0, nullptr, 0);
        EXPECT_EQ(TAVOServiceComposePortInfo(&port, &list_), -1);
        EXPECT_EQ(ErrorState(), "0xD00 service_compose_port_info.cpp");
        EXPECT_THAT(Messages(),
                    ElementsAre("Bad Parameters![0x0D00 service_compose_port_info.cpp:N]"));
        EXPECT_THAT(Describe(list_), ElementsAre("dst 80 protocol 1"));
    }
}

TEST_F(ComposePortInfo, RejectsNull) {
    const TAVO_SERVICE_CONF_PORT port = {1, 0, 1, 80, 0, nullptr};
    EXPECT_EQ(TAVOServiceComposePortInfo(nullptr, &list_), -1);
    EXPECT_EQ(ErrorState(), "0xD00 service_compose_port_info.cpp");
    TLIBCErrSetEx(0, nullptr, 0);
    EXPECT_EQ(TAVOServiceComposePortInfo(&port, nullptr), -1);
    EXPECT_EQ(ErrorState(), "0xD00 service_compose_port_info.cpp");
    EXPECT_EQ(list_, nullptr);
    EXPECT_THAT(Messages(), ElementsAre("Bad Parameters![0x0D00 service_compose_port_info.cpp:N]",
                                        "Bad Parameters![0x0D00 service_compose_port_info.cpp:N]"));
}

TEST_F(ComposePortInfo, ReportsExhaustedMemory) {
    const TAVO_SERVICE_CONF_PORT port = {1, 0, 1, 80, 0, nullptr};
    FailingAllocation fail(1, FailingAllocation::Mode::kOnlyNth);
    EXPECT_EQ(fail.During([&] { return TAVOServiceComposePortInfo(&port, &list_); }), -1);
    EXPECT_TRUE(fail.Hit());
    EXPECT_EQ(list_, nullptr);
    EXPECT_EQ(ErrorState(), "0x200 service_compose_port_info.cpp");
    EXPECT_THAT(Messages(), ElementsAre("Failed to allocate TAVO_SERVICE_CONF_PORT! "
                                        "[0x0200 service_compose_port_info.cpp:N]"));
}

TEST_F(ComposePortInfo, FreeTakesNullAndRecordsThatTheCallerBuilt) {
    TAVOServiceConfPortsFree(nullptr);
    for (int i = 0; i < 2; ++i) {
        auto *port = static_cast<TAVO_SERVICE_CONF_PORT *>(calloc(1, sizeof(*list_)));
        port->pNext = list_;
        list_ = port;
    }
}

}  // namespace
}  // namespace tavo::test
