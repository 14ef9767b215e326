// The rules of lint for port lists.
#include <gmock/gmock.h>

#include <string>

#include "lint_findings.h"

namespace tavo::test {
namespace {

using namespace std::string_literals;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::SizeIs;

TEST(LintPorts, TakesWhatTheLibraryTakes) {
    for (const char *value :
         {"80", "80/", "\"80/ \"", "80/TCP", "80/tcp,tcp", "1/udp", "65535/udp",
          "\" 80 , 81 /tcp\"", "6000:6010,7000/tcp,udp", "00080", "137:139/udp", "5:5"}) {
        EXPECT_THAT(PortFindings(value), IsEmpty()) << value;
    }
}

TEST(LintPorts, EmptyListIsAnError) {
    const std::string says =
        " error empty-port-item: the port list is empty | name a port, as in 80/tcp, or remove the "
        "key";
    EXPECT_THAT(PortFindings(""), ElementsAre("4:11" + says));
    EXPECT_THAT(PortFindings("\" \""), ElementsAre("4:13" + says));
    EXPECT_THAT(PortFindings("/tcp"), ElementsAre("4:11" + says));
}

TEST(LintPorts, EmptyItemIsAnErrorWhereItIsMissing) {
    const std::string says =
        " error empty-port-item: a port is missing next to a comma | remove the comma";
    EXPECT_THAT(PortFindings("80,/tcp"), ElementsAre("4:14" + says));
    EXPECT_THAT(PortFindings(",80/tcp"), ElementsAre("4:11" + says));
    EXPECT_THAT(PortFindings("\"80, ,81\""), ElementsAre("4:16" + says));
}

TEST(LintPorts, PortAbove65535IsAnError) {
    EXPECT_THAT(PortFindings("65536/tcp"),
                ElementsAre("4:11 error port-range: port 65536 is above 65535"));
    EXPECT_THAT(PortFindings("\"80, 70000\""),
                ElementsAre("4:16 error port-range: port 70000 is above 65535"));
    EXPECT_THAT(PortFindings("80:70000"),
                ElementsAre("4:14 error port-range: port 70000 is above 65535"));
    EXPECT_THAT(PortFindings("99999999999999999999"),
                ElementsAre("4:11 error port-range: port 99999999999999999999 is above 65535"));
}

TEST(LintPorts, WhatIsNoNumberIsAnError) {
    EXPECT_THAT(PortFindings("http/tcp"),
                ElementsAre("4:11 error port-syntax: \"http\" is not a port number"));
    EXPECT_THAT(PortFindings("-1/tcp"),
                ElementsAre("4:11 error port-syntax: \"-1\" is not a port number"));
    EXPECT_THAT(
        PortFindings("80-90/tcp"),
        ElementsAre("4:11 error port-syntax: \"80-90\" is not a port number | write 80:90"));
    EXPECT_THAT(
        PortFindings("80..90/tcp"),
        ElementsAre("4:11 error port-syntax: \"80..90\" is not a port number | write 80:90"));
    EXPECT_THAT(PortFindings("80 81/tcp"),
                ElementsAre("4:11 error port-syntax: \"80 81\" is not a port number | separate "
                            "ports by commas, and put no blanks into a range"));
    EXPECT_THAT(PortFindings("80 : 90"),
                ElementsAre("4:11 error port-syntax: \"80 \" is not a port number | separate ports "
                            "by commas, and put no blanks into a range",
                            "4:15 error port-syntax: \" 90\" is not a port number | separate ports "
                            "by commas, and put no blanks into a range"));
}

TEST(LintPorts, HalfARangeIsAnError) {
    const std::string says =
        " error port-syntax: a range is written START:END, and one of them is missing";
    EXPECT_THAT(PortFindings(":80/tcp"), ElementsAre("4:11" + says));
    EXPECT_THAT(PortFindings("80:/tcp"), ElementsAre("4:14" + says));
}

TEST(LintPorts, SecondColonIsAnError) {
    EXPECT_THAT(PortFindings("1:2:3/tcp"),
                ElementsAre("4:14 error port-syntax: a range has one colon only: START:END"));
}

TEST(LintPorts, ProtocolMustBeKnown) {
    EXPECT_THAT(
        PortFindings("80/tcp, sctp"),
        ElementsAre("4:19 error protocol-word: \"sctp\" is not a protocol | write tcp, udp or "
                    "tcp,udp"));
    EXPECT_THAT(
        PortFindings("80/tcp/udp"),
        ElementsAre("4:14 error protocol-word: \"tcp/udp\" is not a protocol | write tcp, udp "
                    "or tcp,udp"));
    EXPECT_THAT(
        PortFindings("80/tcp,"),
        ElementsAre("4:18 error protocol-word: a protocol is missing next to a comma | write "
                    "tcp, udp or tcp,udp"));
}

TEST(LintPorts, EveryBadItemIsReported) {
    EXPECT_THAT(PortFindings("x,80,70000/y,tcp,z"), SizeIs(4));
}

TEST(LintPorts, SourcePortsAreCheckedLikeDestinationPorts) {
    EXPECT_THAT(Findings(GoodFileAnd("src.ports=\"1,x\"\n")),
                ElementsAre("5:14 error port-syntax: \"x\" is not a port number"));
}

TEST(LintPorts, ReversedRangeIsDoubtful) {
    EXPECT_THAT(PortFindings("80,1000:999/udp"),
                ElementsAre("4:14 warning reversed-range: the range starts above its end | write "
                            "999:1000"));
}

TEST(LintPorts, NumberThatWrapsIsDoubtful) {
    EXPECT_THAT(
        PortFindings("4294967376"),
        ElementsAre("4:11 warning port-wrap: \"4294967376\" is read as port 80 | write 80"));
}

TEST(LintPorts, PortZeroIsDoubtful) {
    EXPECT_THAT(PortFindings("0/tcp"),
                ElementsAre("4:11 warning port-zero: no service can be reached at port 0"));
}

TEST(LintPorts, PortNamedTwiceIsDoubtful) {
    EXPECT_THAT(PortFindings("80,443,080"),
                ElementsAre("4:18 warning duplicate-port: port 80 is named twice | remove it"));
    EXPECT_THAT(PortFindings("70:90,80"),
                ElementsAre("4:17 warning duplicate-port: port 80 is named twice | remove it"));
    EXPECT_THAT(
        PortFindings("80,95:90,70:90"),
        ElementsAre(testing::StartsWith("4:14 warning reversed-range"),
                    "4:20 warning duplicate-port: ports of the range 70:90 are named twice"));
    EXPECT_THAT(PortFindings("1:5,10:15,6:9,16,0:100"),
                ElementsAre("4:28 warning duplicate-port: ports of the range 0:100 are named "
                            "twice"));
}

std::string Service(const std::string &name, const std::string &ports) {
    return "[" + name + "]\n" + kTitle + kDesc + "dst.ports=" + ports + '\n';
}

TEST(LintPorts, PortOfTwoServicesIsDoubtful) {
    EXPECT_THAT(
        Findings(Service("a", "80/tcp") + Service("b", "443,80/tcp")),
        ElementsAre("8:15 warning duplicate-port: tcp port 80 is already declared by service [a] "
                    "in line 4"));
    EXPECT_THAT(
        Findings(Service("a", "53,67:69/udp") + Service("b", "68")),
        ElementsAre("8:11 warning duplicate-port: udp port 68 is already declared by service [a] "
                    "in line 4"));
    EXPECT_THAT(
        Findings(Service("a", "90/tcp") + Service("b", "80/tcp") + Service("c", "100:60,7/tcp")),
        ElementsAre(testing::StartsWith("12:11 warning reversed-range"),
                    "12:11 warning duplicate-port: tcp port 80 is already declared by service [b] "
                    "in line 8"));
}

TEST(LintPorts, PortOfTwoServicesNamesTheFirstOfThem) {
    EXPECT_THAT(
        Findings(Service("a", "5:8/tcp") + Service("b", "1:20/tcp") + Service("c", "8,9,20/tcp")),
        ElementsAre(
            "8:11 warning duplicate-port: tcp port 5 is already declared by service [a] in line 4",
            "12:11 warning duplicate-port: tcp port 8 is already declared by service [a] in line 4",
            "12:13 warning duplicate-port: tcp port 9 is already declared by service [b] in line 8",
            "12:15 warning duplicate-port: tcp port 20 is already declared by service [b] in line "
            "8"));
}

TEST(LintPorts, ServicesMayDifferInProtocol) {
    EXPECT_THAT(Findings(Service("a", "80/tcp") + Service("b", "80/udp")), IsEmpty());
}

TEST(LintPorts, NeighbouringPortsAreNotShared) {
    EXPECT_THAT(Findings(Service("a", "5:8,65535,0/tcp") + Service("b", "4,9,65534,1/tcp")),
                ElementsAre(testing::HasSubstr("port-zero")));
}

TEST(LintPorts, SourcePortsMayBeShared) {
    EXPECT_THAT(Findings(Service("a", "1/tcp") + "src.ports=7\n" + Service("b", "2/tcp") +
                         "src.ports=7,1\n"),
                IsEmpty());
}

TEST(LintPorts, BadListDeclaresNothing) {
    EXPECT_THAT(Findings(Service("a", "80,x/tcp") + Service("b", "80/tcp")),
                ElementsAre(testing::HasSubstr("port-syntax")));
}

TEST(LintPorts, SourceAndDestinationMayBeTheSame) {
    EXPECT_THAT(Findings(GoodFileAnd("src.ports=80/tcp\n")), IsEmpty());
}

}  // namespace
}  // namespace tavo::test
