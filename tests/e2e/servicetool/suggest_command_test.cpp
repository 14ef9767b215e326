// servicetool suggest: free ports, nearest first.
#include <gmock/gmock.h>

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <memory>
#include <string>
#include <vector>

#include "json_value.h"
#include "port_world.h"
#include "ports/port_query.h"
#include "servicetool_run.h"

namespace tavo::test {

using namespace tool;

namespace {

using testing::HasSubstr;
using testing::IsEmpty;

class SuggestCommand : public ServiceFolders {
  protected:
    static std::string Suggest(std::vector<std::string> options) {
        options.insert(options.begin(), "suggest");
        const ProgramResult result = ServiceTool(options);
        EXPECT_EQ(result.err, "");
        EXPECT_EQ(result.status, 0);
        return result.out;
    }
};

TEST_F(SuggestCommand, GivesThePortThatIsNearestToAFamiliarOne) {
    EXPECT_EQ(Suggest({}), "8080\n");
    WriteFile(kSystem + "a.sc", Section("a", "8080/tcp"));
    EXPECT_EQ(Suggest({}), "8079\n");
    EXPECT_EQ(Suggest({"--proto", "udp"}), "8080\n");
}

TEST_F(SuggestCommand, GivesSeveralNearestFirstAndTheLowerOfTwoFirst) {
    WriteFile(kSystem + "a.sc", Section("a", "7000,7002/tcp"));
    EXPECT_EQ(Suggest({"4", "--near", "7000"}), "6999\n7001\n6998\n6997\n");
}

TEST_F(SuggestCommand, LeavesOutWhatAnySourceHolds) {
    WriteFile(kSystem + "a.sc", Section("a", "7000/tcp"));
    WriteFile(kRules, Rule("1", "x", "7001", "7002"));
    WriteFile(kSettings, "WebDavPort=7003\n");
    const HeldPort tcp(Family::kV4, Protocol::kTcp, 7004);
    const HeldPort udp(Family::kV6, Protocol::kUdp, 7005);
    EXPECT_EQ(Suggest({"--near", "7003", "6"}), "7006\n6999\n7007\n6998\n7008\n6997\n");
}

TEST_F(SuggestCommand, LeavesOutTheReservedPort) {
    EXPECT_EQ(Suggest({"3", "--near", "412"}), "411\n413\n410\n");
}

TEST_F(SuggestCommand, MindsTheProtocolOfSocketsAndServices) {
    const HeldPort tcp(Family::kV4, Protocol::kTcp, 7000);
    const HeldPort udp(Family::kV4, Protocol::kUdp, 6999);
    EXPECT_EQ(Suggest({"--near", "7000"}), "7001\n");
    EXPECT_EQ(Suggest({"--near", "7000", "--proto", "tcp"}), "6999\n");
    EXPECT_EQ(Suggest({"--near", "7000", "--proto", "udp"}), "7000\n");
    EXPECT_EQ(Suggest({"--near", "7000", "--proto", "udp,tcp"}), "7001\n");
}

TEST_F(SuggestCommand, GoesBelow1024OnlyWhereItIsAskedTo) {
    EXPECT_EQ(Suggest({"3", "--near", "1024"}), "1024\n1025\n1026\n");
    EXPECT_EQ(Suggest({"3", "--near", "1023"}), "1023\n1022\n1024\n");
    EXPECT_EQ(Suggest({"--near", "1"}), "1\n");
}

TEST_F(SuggestCommand, LeavesOutThePortsThatTheKernelGivesAway) {
    PortRange kernel{};
    ASSERT_EQ(ReadEphemeralPorts(kEphemeralPorts, kernel), "");
    EXPECT_EQ(Suggest({"1", "--near", std::to_string(kernel.first)}),
              std::to_string(kernel.first - 1) + "\n");
    EXPECT_EQ(Suggest({"1", "--near", std::to_string(kernel.last)}),
              std::to_string(kernel.last + 1) + "\n");
}

TEST_F(SuggestCommand, GivesABlockThatStartsNearest) {
    WriteFile(kSystem + "a.sc", Section("a", "7005/tcp"));
    EXPECT_EQ(Suggest({"5", "--block", "--near", "7000"}), "7000:7004\n");
    EXPECT_EQ(Suggest({"6", "--block", "--near", "7000"}), "6999:7004\n");
    EXPECT_EQ(Suggest({"1", "--block", "--near", "7005"}), "7004\n");
    const HeldPort held(Family::kV4, Protocol::kTcp, 7002);
    EXPECT_EQ(Suggest({"5", "--block", "--near", "7000"}), "6997:7001\n");
}

TEST_F(SuggestCommand, GivesABlockBetweenManySockets) {
    std::vector<std::unique_ptr<HeldPort>> held;
    for (std::uint32_t port = 7000; port < 7040; port += 4) {
        held.push_back(std::make_unique<HeldPort>(Family::kV4, Protocol::kTcp, port));
    }
    EXPECT_EQ(Suggest({"3", "--block", "--near", "7010"}), "7009:7011\n");
    EXPECT_EQ(Suggest({"4", "--block", "--near", "7020"}), "7037:7040\n");
}

// Every suggested port is free according to servicetool check.
TEST_F(SuggestCommand, SuggestsOnlyWhatCheckCallsFree) {
    std::vector<std::unique_ptr<HeldPort>> held;
    for (const std::uint32_t port : {5001U, 5004U, 5010U}) {
        held.push_back(std::make_unique<HeldPort>(Family::kV4, Protocol::kTcp, port));
    }
    WriteFile(kSystem + "a.sc", Section("a", "5006:5008"));
    std::string ports = Suggest({"50", "--near", "5005"});
    ports.pop_back();
    std::replace(ports.begin(), ports.end(), '\n', ',');
    const ProgramResult result = ServiceTool({"check", "--json", ports});
    EXPECT_EQ(Json::Parse(result.out)["results"][0]["query"], ports + "/tcp,udp");
    EXPECT_EQ(Json::Parse(result.out)["results"][0]["verdict"], "free");
    EXPECT_EQ(std::count(ports.begin(), ports.end(), ','), 49);
}

TEST_F(SuggestCommand, PrintsJson) {
    const auto results = [](const std::vector<std::string> &command) {
        const Json document = Json::Parse(ServiceTool(command).out);
        EXPECT_EQ(document["ok"], true);
        return document["results"];
    };
    EXPECT_EQ(results({"suggest", "2", "--near", "7000", "--json"}), Json::Parse(R"([
        {"start": 7000, "end": 7000, "protocols": ["tcp", "udp"]},
        {"start": 6999, "end": 6999, "protocols": ["tcp", "udp"]}])"));
    EXPECT_EQ(results({"suggest", "9", "--block", "--near", "7000", "--proto", "tcp", "--json"}),
              Json::Parse(R"([{"start": 7000, "end": 7008, "protocols": ["tcp"]}])"));
}

// ---- Too few free ports

TEST_F(SuggestCommand, GivesWhatThereIsWhereThatIsTooFew) {
    WriteFile(kSystem + "a.sc", Section("a", "1024:7999,8003:65535"));
    const ProgramResult result = ServiceTool({"suggest", "5"});
    EXPECT_EQ(result.out, "8002\n8001\n8000\n");
    EXPECT_EQ(result.err, "servicetool: error: only 3 ports are free [not-found]\n");
    EXPECT_EQ(result.status, 1);
}

TEST_F(SuggestCommand, GivesNothingWhereThereIsNoBlock) {
    WriteFile(kSystem + "a.sc", Section("a", "1024:7999,8003:65535"));
    const HeldPort held(Family::kV4, Protocol::kTcp, 8001);
    const ProgramResult result = ServiceTool({"suggest", "2", "--block"});
    EXPECT_THAT(result.out, IsEmpty());
    EXPECT_EQ(result.err, "servicetool: error: no 2 consecutive free ports [not-found]\n");
    EXPECT_EQ(result.status, 1);
}

TEST_F(SuggestCommand, NamesTheRangeOfTheKernelWhereThatLeavesTooFew) {
    PortRange kernel{};
    ASSERT_EQ(ReadEphemeralPorts(kEphemeralPorts, kernel), "");
    std::ofstream(kEphemeralPorts) << "1024 65535\n";
    const ProgramResult above = ServiceTool({"suggest"});
    const ProgramResult block = ServiceTool({"suggest", "1000", "--block", "--near", "9"});
    const ProgramResult below = ServiceTool({"suggest", "--near", "1023"});
    std::ofstream(kEphemeralPorts) << kernel.first << ' ' << kernel.last << '\n';
    EXPECT_EQ(above.err,
              "servicetool: error: only 0 ports are free, because the kernel uses 1024:65535 for "
              "outgoing connections [not-found]\n"
              "    fix: name a port below 1024 with --near\n");
    EXPECT_EQ(above.status, 1);
    EXPECT_EQ(block.err, "servicetool: error: no 1000 consecutive free ports [not-found]\n");
    EXPECT_EQ(below.out, "1023\n");
}

// ---- Unknown answers

TEST_F(SuggestCommand, SuggestsNothingWhereASourceCannotTell) {
    WriteFile(kSettings, "WebDavPort=x\n");
    const ProgramResult result = ServiceTool({"suggest"});
    EXPECT_THAT(result.out, IsEmpty());
    EXPECT_THAT(result.err, HasSubstr("\"x\" is not a port number for WebDavPort [bad-setting]"));
    EXPECT_EQ(result.status, 3);
    WriteFile(kSettings, "");
    WriteFile(kRules, "[1]\n");
    EXPECT_EQ(ServiceTool({"suggest"}).status, 3);
    EXPECT_THAT(Json::Parse(ServiceTool({"suggest", "--json"}).out)["results"], IsEmpty());
}

TEST_F(SuggestCommand, SuggestsNothingWhereNoSocketIsSeenAtAll) {
    const ProgramResult result = ServiceToolPreloading(BLIND_NET, {"suggest"});
    EXPECT_THAT(result.out, IsEmpty());
    EXPECT_EQ(result.err, "servicetool: error: the ports that sockets hold are unknown [failed]\n");
    EXPECT_EQ(result.status, 3);
}

}  // namespace
}  // namespace tavo::test
