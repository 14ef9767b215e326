// Shared by the tests of port range sets: sets built node by node, and sets formatted as text.
#ifndef TAVO_TESTS_ENGINE_PORT_RANGE_TEST_H
#define TAVO_TESTS_ENGINE_PORT_RANGE_TEST_H

#include <gmock/gmock.h>

#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <initializer_list>
#include <memory>
#include <string>
#include <vector>

#include "failing_allocation.h"
#include "library_test.h"

namespace tavo::test {

constexpr std::uint32_t kHighest = 0xFFFFFFFF;

struct Node {
    Node(std::uint32_t first, std::uint32_t last) : Node(first, last, first == last ? 0 : 1) {}
    Node(std::uint32_t first, std::uint32_t last, std::uint32_t port_type)
        : start(first), end(last), type(port_type) {}
    bool operator==(const Node &) const = default;

    std::uint32_t start;
    std::uint32_t end;
    std::uint32_t type;
};

// "80" or "1:5"; the type is added if it does not match the range.
inline void PrintTo(const Node &node, std::ostream *out) {
    *out << node.start;
    if (node.start != node.end) {
        *out << ":" << node.end;
    }
    if (node.type != (node.start == node.end ? 0U : 1U)) {
        *out << " of type " << node.type;
    }
}

// The nodes of a set. The count of any set must match them, and direction and protocol must be
// unset.
inline std::vector<Node> Nodes(const TAVO_PORT_RANGE *set) {
    std::vector<Node> nodes;
    for (const auto *port = set->pRanges; port != nullptr; port = port->pNext) {
        nodes.emplace_back(port->nPortStart, port->nPortEnd, port->nPortType);
        EXPECT_EQ(port->nDirection, 0U);
        EXPECT_EQ(port->nProtocol, 0U);
    }
    EXPECT_EQ(set->nCount, static_cast<int>(nodes.size()));
    return nodes;
}

inline std::vector<Node> FirstOf(const std::vector<Node> &nodes, std::size_t count) {
    return {nodes.begin(), nodes.begin() + static_cast<std::ptrdiff_t>(count)};
}

class Set {
  public:
    Set() : set_(TLIBPortRangeCreate()) {}
    // A set of exactly these nodes, even if Add would not create them.
    Set(std::initializer_list<Node> nodes) : Set(std::vector<Node>(nodes)) {}
    explicit Set(const std::vector<Node> &nodes) : Set() {
        TAVO_SERVICE_CONF_PORT **link = &set_->pRanges;
        for (const Node &node : nodes) {
            *link = static_cast<TAVO_SERVICE_CONF_PORT *>(std::calloc(1, sizeof(**link)));
            (*link)->nPortStart = node.start;
            (*link)->nPortEnd = node.end;
            (*link)->nPortType = node.type;
            link = &(*link)->pNext;
            ++set_->nCount;
        }
    }

    TAVO_PORT_RANGE *Get() const { return set_.get(); }
    std::vector<Node> Nodes() const { return tavo::test::Nodes(set_.get()); }

    int Add(std::uint32_t start, std::uint32_t end) const {
        TAVO_SERVICE_CONF_PORT port = {0, 1, 0, start, end, nullptr};
        return TLIBPortRangeAdd(set_.get(), &port);
    }
    int Add(std::uint32_t start) const {
        TAVO_SERVICE_CONF_PORT port = {0, 0, 0, start, 0, nullptr};
        return TLIBPortRangeAdd(set_.get(), &port);
    }
    int Remove(std::uint32_t start, std::uint32_t end) const {
        const TAVO_SERVICE_CONF_PORT port = {0, 1, 0, start, end, nullptr};
        return TLIBPortRangeRemove(set_.get(), &port);
    }

  private:
    struct Destroy {
        void operator()(TAVO_PORT_RANGE *set) const { TLIBPortRangeDestory(set); }
    };
    std::unique_ptr<TAVO_PORT_RANGE, Destroy> set_;
};

class PortRangeTest : public LibraryTest {
  protected:
    // If anything was logged, the error state must be set.
    void TearDown() override {
        if (!log_.Lines().empty()) {
            EXPECT_NE(TLIBCErrGet(), 0U);
        }
    }

    // The source files in the log lines.
    std::vector<std::string> Sources() const {
        std::vector<std::string> sources;
        for (const CapturedLog::Line &line : log_.Lines()) {
            sources.push_back(line.text.substr(0, line.text.find(':')));
        }
        return sources;
    }
};

}  // namespace tavo::test

#endif
