// Compares the ports of a query with declared ports, both as text.
#include <gmock/gmock.h>

#include <random>

#include "engine/comparison.h"
#include "failing_allocation.h"
#include "library_test.h"

namespace tavo::test {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

int ComparePairs(const char *query, const char *declared, TAVO_SERVICE_CONF_PORT **conflicts) {
    Comparison comparison(TAVO_HERE, query);
    const int answer = comparison.Compare(declared);
    return comparison.MakePairs(conflicts) < 0 ? -1 : answer;
}

class ComparePorts : public LibraryTest {
  protected:
    ~ComparePorts() override { TAVOServiceConfPortsFree(conflicts_); }

    int Query(const char *query, const char *declared) {
        return ComparePairs(query, declared, &conflicts_);
    }
    std::vector<std::string> Conflicts() const { return Describe(conflicts_); }

    TAVO_SERVICE_CONF_PORT *conflicts_ = nullptr;
};

TEST_F(ComparePorts, ReportsOnePortOfOnePort) {
    EXPECT_EQ(Query("80", "80"), 1);
    EXPECT_THAT(Conflicts(), ElementsAre("src 80 protocol 3"));
}

TEST_F(ComparePorts, ReportsOnePortInsideADeclaredRange) {
    EXPECT_EQ(Query("80", "79-81"), 1);
    EXPECT_EQ(Query("79", "79-81"), 1) << "the first of the range";
    EXPECT_EQ(Query("81", "79-81"), 1) << "the last of the range";
    EXPECT_THAT(Conflicts(),
                ElementsAre("src 81 protocol 3", "src 79 protocol 3", "src 80 protocol 3"));
}

TEST_F(ComparePorts, LetsNeighboursBe) {
    EXPECT_EQ(Query("78", "79-81"), 0);
    EXPECT_EQ(Query("82", "79-81"), 0);
    EXPECT_EQ(Query("79", "80"), 0);
    EXPECT_EQ(Query("70:78", "79-81"), 0);
    EXPECT_EQ(Query("82:90", "79-81"), 0);
    EXPECT_EQ(Query("82:90", "81,91"), 0);
    EXPECT_THAT(Conflicts(), IsEmpty());
    EXPECT_EQ(ErrorState(), "0x0 ");
}

TEST_F(ComparePorts, ReportsTheOverlapOfTwoRanges) {
    EXPECT_EQ(Query("100:200", "150-300"), 1);
    EXPECT_EQ(Query("100:200", "50-120"), 1);
    EXPECT_EQ(Query("100:200", "1-1000"), 1);
    EXPECT_EQ(Query("100:200", "110-120"), 1);
    EXPECT_THAT(Conflicts(), ElementsAre("src 110:120 protocol 3", "src 100:200 protocol 3",
                                         "src 100:120 protocol 3", "src 150:200 protocol 3"));
}

TEST_F(ComparePorts, ReportsAnOverlapOfOnePortAsOnePort) {
    EXPECT_EQ(Query("100:200", "200-300"), 1);
    EXPECT_EQ(Query("100:200", "150"), 1);
    EXPECT_EQ(Query("100:100", "90-110"), 1);
    EXPECT_THAT(Conflicts(),
                ElementsAre("src 100 protocol 3", "src 150 protocol 3", "src 200 protocol 3"));
}

TEST_F(ComparePorts, ReportsEveryTokenThatCollides) {
    EXPECT_EQ(Query("1:100", "80,200, 22 ,90-300"), 1);
    EXPECT_THAT(Conflicts(),
                ElementsAre("src 90:100 protocol 3", "src 22 protocol 3", "src 80 protocol 3"));
}

TEST_F(ComparePorts, TakesADeclaredRangeInAnyOrder) {
    EXPECT_EQ(Query("150", "200-100"), 1);
    EXPECT_EQ(Query("90:110", "200-100"), 1);
    EXPECT_THAT(Conflicts(), ElementsAre("src 100:110 protocol 3", "src 150 protocol 3"));
}

TEST_F(ComparePorts, TakesTheSeparatorOfEitherText) {
    EXPECT_EQ(Query("100:200", "150-160"), 1);
    EXPECT_EQ(Query("150", "100:200"), -1);
    EXPECT_EQ(Query("100-200", "150"), -1);
    EXPECT_THAT(Messages(), ElementsAre("illegal ports number, port=100:200, tavoerr=[0x0D00 "
                                        "service_conf_ports_get.cpp:N]",
                                        "illegal ports number, port=100-200, tavoerr=[0x0D00 "
                                        "service_conf_ports_get.cpp:N]"));
}

TEST_F(ComparePorts, PassesOverEmptyTokensOnly) {
    EXPECT_EQ(Query("80", ""), 0);
    EXPECT_EQ(Query("80", "  "), 0);
    EXPECT_EQ(Query("80", ",,80,"), 1);
    EXPECT_EQ(Query("80", "80, ,81"), -1) << "a blank is no empty token";
}

TEST_F(ComparePorts, RefusesWhatIsNoPort) {
    for (const char *declared : {"x", "-80", "80-", "80--90", "1-2-3", "1-2-", "65536", "1-65536",
                                 "+80", "80 90", "80:90", "0x50", "80,x", "x-80"}) {
        SCOPED_TRACE(declared);
        TLIBCErrSetEx(0, nullptr, 0);
        EXPECT_EQ(Query("8:9", declared), -1);
        EXPECT_EQ(TLIBCErrGet(), 0xD00u);
    }
    EXPECT_THAT(Conflicts(), IsEmpty());
}

TEST_F(ComparePorts, IsSilentAboutASeparatorAtAnEnd) {
    EXPECT_EQ(Query("80", "1-2-"), -1);
    EXPECT_EQ(Query("80", "-"), -1);
    EXPECT_THAT(Messages(), IsEmpty());
}

TEST_F(ComparePorts, KeepsWhatItTookBeforeItFailed) {
    EXPECT_EQ(Query("80", "80,x"), -1);
    EXPECT_THAT(Conflicts(), ElementsAre("src 80 protocol 3"));
}

TEST_F(ComparePorts, FailsWhereTheConflictHasNoPlaceToGo) {
    EXPECT_EQ(ComparePairs("80", "80", nullptr), -1);
    EXPECT_EQ(ComparePairs("80", "81", nullptr), 0);
}

TEST_F(ComparePorts, WalksTheQueryWithColons) {
    EXPECT_EQ(Query(" 22 , 1000:2000,3000 ", "1500-3000"), 1);
    EXPECT_THAT(Conflicts(), ElementsAre("src 3000 protocol 3", "src 1500:2000 protocol 3"));
}

TEST_F(ComparePorts, PutsAReversedQueryInOrder) {
    EXPECT_EQ(Query("2000:1000", "1990-2010"), 1);
    EXPECT_THAT(Conflicts(), ElementsAre("src 1990:2000 protocol 3"));
}

TEST_F(ComparePorts, ReadsTheLow32BitsOfANumber) {
    EXPECT_EQ(Query("4294967376", "80"), 1) << "the check of port numbers looks at no more";
    EXPECT_EQ(Query("80", "4294967376"), 1);
}

TEST_F(ComparePorts, FindsNothingInAnEmptyQuery) {
    EXPECT_EQ(Query("", "80"), 0);
    EXPECT_EQ(Query(",,", "80"), 0);
    EXPECT_EQ(Query("80", ""), 0);
}

TEST_F(ComparePorts, RefusesAQueryThatIsNoListOfPorts) {
    for (const char *query :
         {"80 443", "80-90", ":80", "80:", "1:2:3", "1:2:", "x", "65536", "-1", "80, ,81", "tcp"}) {
        SCOPED_TRACE(query);
        TLIBCErrSetEx(0, nullptr, 0);
        EXPECT_EQ(Query(query, "1-2"), -1);
        EXPECT_EQ(TLIBCErrGet(), 0xD00u);
    }
}

TEST_F(ComparePorts, NamesTheTextThatCannotBeCopied) {
    FailingAllocation first(1, FailingAllocation::Mode::kOnlyNth);
    EXPECT_EQ(first.During([&] { return Query("80", "81"); }), -1);
    FailingAllocation second(3, FailingAllocation::Mode::kOnlyNth);
    EXPECT_EQ(second.During([&] { return Query("80", "81"); }), -1);
    EXPECT_EQ(ErrorState(), "0x200 service_is_port_conflict_compare_test.cpp");
    EXPECT_THAT(
        Messages(),
        ElementsAre("strdup fail for 80[0x0200 service_is_port_conflict_compare_test.cpp:N]",
                    "strdup fail for 81[0x0200 service_is_port_conflict_compare_test.cpp:N]"));
}

TEST_F(ComparePorts, ReportsEveryFailingAllocation) {
    const int allocations = ForEachFailingAllocation([](FailingAllocation &fail) {
        TAVO_SERVICE_CONF_PORT *conflicts = nullptr;
        const int result =
            fail.During([&] { return ComparePairs("80,90:99", "80,95-96", &conflicts); });
        EXPECT_EQ(result, fail.Hit() ? -1 : 1);
        TAVOServiceConfPortsFree(conflicts);
    });
    EXPECT_GT(allocations, 3);
}

// Compares the answer with a table of ports, for random texts.
TEST_F(ComparePorts, AgreesWithATableOfPorts) {
    const unsigned int seed = std::random_device{}();
    SCOPED_TRACE("seed " + std::to_string(seed));
    std::mt19937 random(seed);
    const auto list = [&random](char separator, std::vector<bool> &ports) {
        std::string text;
        for (unsigned int i = 0; i <= random() % 4; ++i) {
            const std::size_t first = random() % 60;
            const std::size_t last = random() % 3 == 0 ? random() % 60 : first;
            text += (i == 0 ? "" : ",") + std::to_string(first);
            text += first == last ? "" : separator + std::to_string(last);
            for (std::size_t port = std::min(first, last); port <= std::max(first, last); ++port) {
                ports[port] = true;
            }
        }
        return text;
    };
    for (int round = 0; round < 20000; ++round) {
        std::vector<bool> asked(60);
        std::vector<bool> declared(60);
        std::vector<bool> listed(60);
        const std::string query = list(':', asked);
        const std::string declaration = list('-', declared);
        TAVO_SERVICE_CONF_PORT *conflicts = nullptr;
        const int result = ComparePairs(query.c_str(), declaration.c_str(), &conflicts);
        for (const auto *port = conflicts; port != nullptr; port = port->pNext) {
            const uint32_t last = port->nPortType == 0 ? port->nPortStart : port->nPortEnd;
            for (uint32_t p = port->nPortStart; p <= last; ++p) {
                listed[p] = true;
            }
        }
        TAVOServiceConfPortsFree(conflicts);
        std::vector<bool> both(60);
        std::transform(asked.begin(), asked.end(), declared.begin(), both.begin(),
                       [](bool a, bool b) { return a && b; });
        ASSERT_EQ(listed, both) << query << " against " << declaration;
        ASSERT_EQ(result, std::count(both.begin(), both.end(), true) > 0 ? 1 : 0);
    }
}

}  // namespace
}  // namespace tavo::test
