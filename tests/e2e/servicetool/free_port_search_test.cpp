// The search for free ports, against a table of held ones that counts the questions.
#include "ports/free_port_search.h"

#include <gmock/gmock.h>

#include <algorithm>
#include <cstdint>
#include <optional>
#include <random>
#include <set>
#include <utility>

namespace tavo::test {

using namespace tool;

namespace {

using testing::Optional;

const PortRanges kNone;

class Sockets {
  public:
    explicit Sockets(std::set<std::uint32_t> held) : held_(std::move(held)) {}

    HeldQuestion Question() {
        return [this](const PortRanges &set) { return Ask(set); };
    }
    int Questions() const { return questions_; }
    void LoseAnswersAfter(int questions) { answers_ = questions; }

    bool Hold(const PortRange &range) const {
        const auto next = held_.lower_bound(range.first);
        return next != held_.end() && *next <= range.last;
    }

  private:
    std::optional<bool> Ask(const PortRanges &set) {
        if (++questions_ > answers_) {
            return {};
        }
        return std::any_of(set.begin(), set.end(),
                           [this](const PortRange &range) { return Hold(range); });
    }

    std::set<std::uint32_t> held_;
    int questions_ = 0;
    int answers_ = 1000000;
};

std::set<std::uint32_t> Every(std::uint32_t step, const PortRange &range) {
    std::set<std::uint32_t> ports;
    for (std::uint32_t port = range.first; port <= range.last; port += step) {
        ports.insert(port);
    }
    return ports;
}

TEST(FindFreePorts, TakesOneQuestionWhereNoneIsHeld) {
    Sockets sockets({});
    const PortCandidates candidates(100, {{90, 110}});
    EXPECT_THAT(FindFreePorts(candidates, 3, sockets.Question()),
                Optional(PortRanges{{100, 100}, {99, 99}, {101, 101}}));
    EXPECT_EQ(sockets.Questions(), 1);
}

TEST(FindFreePorts, TakesFewQuestionsWhereFewAreHeld) {
    Sockets sockets({8080, 8000, 8200});
    const auto found =
        FindFreePorts(PortCandidates(8080, {{1024, 32767}}), 1000, sockets.Question());
    ASSERT_TRUE(found);
    EXPECT_EQ(found->size(), 1000U);
    EXPECT_LT(sockets.Questions(), 70);
}

TEST(FindFreePorts, TakesOneQuestionForEachPortOfARowOfHeldOnes) {
    Sockets sockets(Every(1, {7000, 8999}));
    EXPECT_THAT(FindFreePorts(PortCandidates(8000, {{1024, 32767}}), 1, sockets.Question()),
                Optional(PortRanges{{9000, 9000}}));
    EXPECT_EQ(sockets.Questions(), 2001);
}

TEST(FindFreePorts, GivesWhatThereIs) {
    Sockets sockets({7, 9});
    EXPECT_THAT(FindFreePorts(PortCandidates(8, {{7, 10}}), 5, sockets.Question()),
                Optional(PortRanges{{8, 8}, {10, 10}}));
    EXPECT_THAT(FindFreePorts(PortCandidates(8, {}), 5, sockets.Question()), Optional(kNone));
}

TEST(FindFreePorts, GivesNothingOnceAQuestionHasNoAnswer) {
    Sockets sockets(Every(2, {7000, 7100}));
    sockets.LoseAnswersAfter(20);
    EXPECT_EQ(FindFreePorts(PortCandidates(7050, {{7000, 7100}}), 20, sockets.Question()),
              std::nullopt);
    EXPECT_EQ(sockets.Questions(), 21);
}

TEST(FindFreeBlock, TakesFewQuestionsForEachBlockBetweenVeryManySockets) {
    Sockets sockets(Every(2, {1024, 21022}));
    EXPECT_THAT(FindFreeBlock(PortCandidates(8080, {{1024, 32767}}), 100, sockets.Question()),
                Optional(PortRanges{{21023, 21122}}));
    EXPECT_LT(sockets.Questions(), 700);
}

TEST(FindFreeBlock, FindsNone) {
    Sockets sockets({5, 10});
    EXPECT_THAT(FindFreeBlock(PortCandidates(8, {{1, 14}}), 5, sockets.Question()),
                Optional(kNone));
    EXPECT_THAT(FindFreeBlock(PortCandidates(8, {{1, 15}}), 5, sockets.Question()),
                Optional(PortRanges{{11, 15}}));
}

TEST(FindFreeBlock, GivesNothingOnceAQuestionHasNoAnswer) {
    for (const int answers : {0, 1, 5}) {
        Sockets sockets(Every(10, {7000, 7900}));
        sockets.LoseAnswersAfter(answers);
        EXPECT_EQ(FindFreeBlock(PortCandidates(7450, {{7000, 7900}}), 20, sockets.Question()),
                  std::nullopt);
        EXPECT_EQ(sockets.Questions(), answers + 1);
    }
}

// Whatever is held, the nearest come first, and of two as near the lower.
TEST(FreePortSearch, AgreesWithALookAtEveryPort) {
    std::mt19937 random(1);
    for (int round = 0; round < 200; ++round) {
        std::set<std::uint32_t> held;
        for (auto i = random() % 60; i > 0; --i) {
            held.insert(static_cast<std::uint32_t>(100 + random() % 100));
        }
        const auto near = static_cast<std::uint32_t>(90 + random() % 120);
        const auto count = static_cast<std::uint32_t>(1 + random() % 6);
        Sockets sockets(held);
        PortCandidates left(near, {{100, 199}});
        for (const std::uint32_t port : held) {
            left.Remove({{port, port}});
        }
        PortRanges nearest;
        for (const std::uint32_t port : left.NearestPorts(count)) {
            nearest.push_back({port, port});
        }
        const std::optional<PortRange> block = left.NearestBlock(count);
        const PortCandidates candidates(near, {{100, 199}});
        EXPECT_THAT(FindFreePorts(candidates, count, sockets.Question()), Optional(nearest));
        EXPECT_THAT(FindFreeBlock(candidates, count, sockets.Question()),
                    Optional(block ? PortRanges{*block} : PortRanges{}));
    }
}

}  // namespace
}  // namespace tavo::test
