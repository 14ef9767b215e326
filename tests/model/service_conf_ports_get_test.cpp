#include <gmock/gmock.h>

#include "failing_allocation.h"
#include "library_test.h"
#include "strict_trim.h"

namespace tavo::test {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

class PortsGet : public LibraryTest {
  protected:
    ~PortsGet() override { TAVOServiceConfPortsFree(list_); }

    std::vector<std::string> Parse(const char *text, unsigned direction = 1) {
        TAVOServiceConfPortsFree(list_);
        list_ = nullptr;
        EXPECT_EQ(TAVOServiceConfPortsGet(text, direction, &list_), 0) << text;
        return Describe(list_);
    }

    TAVO_SERVICE_CONF_PORT *list_ = nullptr;
};

TEST_F(PortsGet, ReadsSinglePortsLastOneFirst) {
    EXPECT_THAT(Parse("80,443/tcp"), ElementsAre("dst 443 protocol 1", "dst 80 protocol 1"));
    EXPECT_EQ(TLIBCErrGet(), 0U);
    EXPECT_THAT(Messages(), IsEmpty());
}

TEST_F(PortsGet, NeedsNoProtocolsToTrim) {
    const StrictTrim strict;
    EXPECT_THAT(Parse("80/"), ElementsAre("dst 80 protocol 3"));
    EXPECT_THAT(Parse("80/ tcp "), ElementsAre("dst 80 protocol 1"));
    EXPECT_EQ(TLIBCErrGet(), 0U);
}

TEST_F(PortsGet, ReadsRanges) {
    EXPECT_THAT(Parse("6000:6010,7000/tcp,udp"),
                ElementsAre("dst 7000 protocol 3", "dst 6000:6010 protocol 3"));
    EXPECT_THAT(Parse("137:139/udp"), ElementsAre("dst 137:139 protocol 2"));
}

TEST_F(PortsGet, KeepsAReversedRangeAsWritten) {
    EXPECT_THAT(Parse("1000:999/udp"), ElementsAre("dst 1000:999 protocol 2"));
}

TEST_F(PortsGet, MarksTheDirectionOfTheCaller) {
    EXPECT_THAT(Parse("80/tcp", 0), ElementsAre("src 80 protocol 1"));
    EXPECT_THAT(Parse("80/tcp", 1), ElementsAre("dst 80 protocol 1"));
}

TEST_F(PortsGet, TakesBothProtocolsWithoutAProtocolPart) {
    for (const char *text : {"80", "80/", "80/ ", "80/\t"}) {
        EXPECT_THAT(Parse(text), ElementsAre("dst 80 protocol 3")) << text;
    }
}

TEST_F(PortsGet, ReadsProtocolWordsInAnyCaseOrderAndNumber) {
    EXPECT_THAT(Parse("80/TCP"), ElementsAre("dst 80 protocol 1"));
    EXPECT_THAT(Parse("80/ Udp "), ElementsAre("dst 80 protocol 2"));
    EXPECT_THAT(Parse("80/udp , tcp"), ElementsAre("dst 80 protocol 3"));
    EXPECT_THAT(Parse("80/tcp,tcp"), ElementsAre("dst 80 protocol 1"));
}

TEST_F(PortsGet, TrimsItemsAndParts) {
    EXPECT_THAT(Parse(" 80 ,\t443 / tcp "), ElementsAre("dst 443 protocol 1", "dst 80 protocol 1"));
}

TEST_F(PortsGet, AcceptsTheFirstAndTheLastPort) {
    EXPECT_THAT(Parse("0/tcp"), ElementsAre("dst 0 protocol 1"));
    EXPECT_THAT(Parse("65535/udp"), ElementsAre("dst 65535 protocol 2"));
    EXPECT_THAT(Parse("0:65535"), ElementsAre("dst 0:65535 protocol 3"));
    EXPECT_THAT(Parse("00080"), ElementsAre("dst 80 protocol 3"));
}

TEST_F(PortsGet, ReadsTheLow32BitsThatTheCheckLooksAt) {
    EXPECT_THAT(Parse("4294967376:4294967377/tcp"), ElementsAre("dst 80:81 protocol 1"));
}

TEST_F(PortsGet, RejectsBadSyntax) {
    for (const char *text : {"",
                             " ",
                             ",",
                             "80,/tcp",
                             ",80/tcp",
                             "80,,81/tcp",
                             ":80/tcp",
                             "80:/tcp",
                             ":/tcp",
                             "1:2:3/tcp",
                             "1::3/tcp",
                             "-1/tcp",
                             "+1/tcp",
                             "65536/tcp",
                             "80:65536",
                             "65536:80",
                             "80/tcp,",
                             "80/,tcp",
                             "80/sctp",
                             "80/tcp/udp",
                             "80/tcp udp",
                             "/tcp",
                             "80 81/tcp",
                             "80 :81/tcp",
                             "80: 81",
                             "0x50",
                             "80-90",
                             "http",
                             "80;81",
                             "80.0",
                             "99999999999999999999999",
                             "80/\xff"}) {
        log_.Clear();
        TLIBCErrSetEx(0, nullptr, 0);
        EXPECT_EQ(TAVOServiceConfPortsGet(text, 1, &list_), -1) << text;
        EXPECT_EQ(list_, nullptr) << text;
        EXPECT_EQ(ErrorState(), "0xD00 service_conf_ports_get.cpp") << text;
    }
}

TEST_F(PortsGet, NamesTheItemThatIsBad) {
    EXPECT_EQ(TAVOServiceConfPortsGet("80,7o/tcp", 1, &list_), -1);
    EXPECT_EQ(TAVOServiceConfPortsGet("1:2:3/tcp", 1, &list_), -1);
    EXPECT_EQ(TAVOServiceConfPortsGet("70000/tcp", 1, &list_), -1);
    EXPECT_THAT(
        Messages(),
        ElementsAre(
            "illegal ports number, port=7o, tavoerr=[0x0D00 service_conf_ports_get.cpp:N]",
            "illegal ports number, port=2:3, tavoerr=[0x0D00 service_conf_ports_get.cpp:N]",
            "illegal ports number, port=70000, tavoerr=[0x0D00 service_conf_ports_get.cpp:N]"));
}

TEST_F(PortsGet, ReadsProtocolsBeforePorts) {
    EXPECT_EQ(TAVOServiceConfPortsGet("http/sctp", 1, &list_), -1);
    EXPECT_THAT(Messages(),
                ElementsAre("protocol format error (sctp)! It should be \"tcp\" or \"udp\" or "
                            "\"tcp,udp\", tavoerr=[0x0D00 service_conf_ports_get.cpp:N]"));
}

TEST_F(PortsGet, RejectsAnEmptyItemWithoutALogLine) {
    EXPECT_EQ(TAVOServiceConfPortsGet("80,", 1, &list_), -1);
    EXPECT_THAT(Messages(), IsEmpty());
}

TEST_F(PortsGet, RejectsBadArguments) {
    TAVO_SERVICE_CONF_PORT port = {};
    TAVO_SERVICE_CONF_PORT *taken = &port;
    TAVO_SERVICE_CONF_PORT *empty = nullptr;
    struct {
        const char *text;
        unsigned direction;
        TAVO_SERVICE_CONF_PORT **list;
    } const rows[] = {
        {nullptr, 1, &empty}, {"80", 1, nullptr}, {"80", 1, &taken}, {"80", 2, &empty}};
    for (const auto &row : rows) {
        TLIBCErrSetEx(0, nullptr, 0);
        EXPECT_EQ(TAVOServiceConfPortsGet(row.text, row.direction, row.list), -1);
        EXPECT_EQ(ErrorState(), "0xD00 service_conf_ports_get.cpp");
        EXPECT_EQ(empty, nullptr);
        EXPECT_EQ(taken, &port);
    }
    EXPECT_THAT(Messages(), IsEmpty());
}

TEST_F(PortsGet, ReadsThousandsOfItems) {
    std::string text = "1";
    for (int port = 2; port <= 20000; ++port) {
        text += "," + std::to_string(port);
    }
    EXPECT_EQ(Parse(text.c_str()).size(), 20000U);
    EXPECT_EQ(list_->nPortStart, 20000U);
}

TEST_F(PortsGet, ReportsEveryFailedAllocation) {
    const int allocations = ForEachFailingAllocation([&](FailingAllocation &fail) {
        TAVO_SERVICE_CONF_PORT *list = nullptr;
        log_.Clear();
        TLIBCErrSetEx(0, nullptr, 0);
        const int result =
            fail.During([&] { return TAVOServiceConfPortsGet("1,2:3,4/tcp", 1, &list); });
        if (!fail.Hit()) {
            ASSERT_EQ(result, 0);
            TAVOServiceConfPortsFree(list);
            return;
        }
        EXPECT_EQ(result, -1);
        EXPECT_EQ(list, nullptr);
        EXPECT_EQ(TLIBCErrGet(), 0x200U);
    });
    EXPECT_EQ(allocations, 4);
}

TEST_F(PortsGet, LogsAnEntryThatCannotBeAllocatedButNotTheCopyOfTheText) {
    FailingAllocation copy(1, FailingAllocation::Mode::kOnlyNth);
    copy.During([&] { return TAVOServiceConfPortsGet("80", 1, &list_); });
    EXPECT_THAT(Messages(), IsEmpty());
    FailingAllocation entry(2, FailingAllocation::Mode::kOnlyNth);
    entry.During([&] { return TAVOServiceConfPortsGet("80", 1, &list_); });
    EXPECT_THAT(Messages(), ElementsAre("Failed to allocate for service, "
                                        "tavoerr=[0x0200 service_conf_ports_get.cpp:N]"));
}

class PortsCheck : public LibraryTest {};

TEST_F(PortsCheck, AcceptsNumbersUpTo65535) {
    for (const char *text : {"0", "1", "80", "00080", "65535", "000000000000000000000065535"}) {
        EXPECT_EQ(TAVOServiceConfPortsCheck(text), 1) << text;
    }
    EXPECT_EQ(TLIBCErrGet(), 0U);
    EXPECT_THAT(Messages(), IsEmpty());
}

TEST_F(PortsCheck, LooksAtTheLow32BitsOfTheNumber) {
    EXPECT_EQ(TAVOServiceConfPortsCheck("4294967376"), 1);           // 2^32 + 80
    EXPECT_EQ(TAVOServiceConfPortsCheck("4295032832"), 0);           // 2^32 + 65536
    EXPECT_EQ(TAVOServiceConfPortsCheck("9223372036854775807"), 0);  // saturated or not: all ones
    EXPECT_EQ(TAVOServiceConfPortsCheck("99999999999999999999"), 0);
}

TEST_F(PortsCheck, RejectsNullAndEmptyWithoutALogLine) {
    for (const char *text : {static_cast<const char *>(nullptr), ""}) {
        TLIBCErrSetEx(0, nullptr, 0);
        EXPECT_EQ(TAVOServiceConfPortsCheck(text), 0);
        EXPECT_EQ(ErrorState(), "0xD00 service_conf_ports_get.cpp");
    }
    EXPECT_THAT(Messages(), IsEmpty());
}

TEST_F(PortsCheck, RejectsAndNamesEverythingElse) {
    for (const char *text : {"65536", "-1", "+1", " 80", "80 ", "8a", "0x50", "1.5", "\xff", "\x80",
                             "\xd9\xa1", "99999999999999999999"}) {
        log_.Clear();
        TLIBCErrSetEx(0, nullptr, 0);
        EXPECT_EQ(TAVOServiceConfPortsCheck(text), 0) << text;
        EXPECT_EQ(ErrorState(), "0xD00 service_conf_ports_get.cpp");
        EXPECT_THAT(Messages(), ElementsAre("illegal ports number, port=" + std::string(text) +
                                            ", tavoerr=[0x0D00 service_conf_ports_get.cpp:N]"));
    }
}

class ProtocolParse : public LibraryTest {
  protected:
    static int Parse(std::string text) { return TLIBServiceConfProtocolParse(text.data()); }
};

TEST_F(ProtocolParse, TakesNullAndEmptyAsBoth) {
    EXPECT_EQ(TLIBServiceConfProtocolParse(nullptr), 3);
    EXPECT_EQ(Parse(""), 3);
}

TEST_F(ProtocolParse, CollectsTheBits) {
    EXPECT_EQ(Parse("tcp"), 1);
    EXPECT_EQ(Parse("udp"), 2);
    EXPECT_EQ(Parse("tcp,udp"), 3);
    EXPECT_EQ(Parse(" UDP\t,  tCp "), 3);
    EXPECT_EQ(Parse("udp,udp"), 2);
    EXPECT_THAT(Messages(), IsEmpty());
}

TEST_F(ProtocolParse, ChangesItsArgument) {
    char text[] = " TCP ,udp";
    EXPECT_EQ(TLIBServiceConfProtocolParse(text), 3);
    EXPECT_STREQ(text, "tcp");
}

TEST_F(ProtocolParse, RejectsOtherWordsAndShowsTheTextAsGiven) {
    for (const char *text : {"sctp", "tcp,", ",udp", "tcp,,udp", "tcp udp", " ", " TCP,ICMP "}) {
        log_.Clear();
        TLIBCErrSetEx(0, nullptr, 0);
        EXPECT_EQ(Parse(text), -1) << text;
        EXPECT_EQ(ErrorState(), "0xD00 service_conf_ports_get.cpp");
        EXPECT_THAT(Messages(), ElementsAre("protocol format error (" + std::string(text) +
                                            ")! It should be \"tcp\" or \"udp\" or \"tcp,udp\", "
                                            "tavoerr=[0x0D00 service_conf_ports_get.cpp:N]"));
    }
}

TEST_F(ProtocolParse, ShowsAtMost63CharactersOfTheText) {
    EXPECT_EQ(Parse(std::string(200, 'x')), -1);
    EXPECT_THAT(Messages(), ElementsAre("protocol format error (" + std::string(63, 'x') +
                                        ")! It should be \"tcp\" or \"udp\" or \"tcp,udp\", "
                                        "tavoerr=[0x0D00 service_conf_ports_get.cpp:N]"));
}

}  // namespace
}  // namespace tavo::test
