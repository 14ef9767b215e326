// Both kinds of result record, of the configuration check and of the runtime check. Each test runs
// for both.
#include <gmock/gmock.h>

#include <cstring>
#include <set>

#include "check_test.h"
#include "failing_allocation.h"

namespace tavo::test {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

constexpr char kNoRecord[] = "Failed to alloc pResult, Out of memory.[0x0200]";

struct ConfKind {
    using Record = TAVO_CONF_PORT_CONFLICT_RESULT;
    static constexpr auto kText = &Record::szService;
    static constexpr auto kAlloc = TAVOConfPortConflictResultAlloc;
    static constexpr auto kFree = TAVOConfPortConflictResultFree;
    static constexpr auto kCopy = TAVOConfPortConflictResultCopy;
    static constexpr auto kListAlloc = TAVOConfPortConflictResultListAlloc;
    static constexpr auto kListFree = TAVOConfPortConflictResultListFree;
    static constexpr auto kListCopy = TAVOConfPortConflictResultListCopy;
    static constexpr auto kFilter = ConfResultListFilter;
    static constexpr auto kAppendNobody = ConfNotConflictResultAppend;
    static constexpr char kComparer[] = "port_conflict_conf_comparer.cpp";
    static constexpr char kCopyFailed[] = "Failed to allocate PTAVO_CONF_PORT_CONFLICT_RESULT";
    static constexpr char kListCopyFailed[] =
        "Failed to allocate TAVOConfPortConflictResultListAlloc";
    static Record Taken(uint16_t port, uint16_t protocol, char *text) {
        return {port, protocol, text, 1};
    }
    static std::string Text(const std::string &port) { return port + " some text"; }
};

struct RuntimeKind {
    using Record = TAVO_RUNTIME_PORT_CONFLICT_RESULT;
    static constexpr auto kText = &Record::szProgram;
    static constexpr auto kAlloc = TAVORuntimePortConflictResultAlloc;
    static constexpr auto kFree = TAVORuntimePortConflictResultFree;
    static constexpr auto kCopy = TAVORuntimePortConflictResultCopy;
    static constexpr auto kListAlloc = TAVORuntimePortConflictResultListAlloc;
    static constexpr auto kListFree = TAVORuntimePortConflictResultListFree;
    static constexpr auto kListCopy = TAVORuntimePortConflictResultListCopy;
    static constexpr auto kFilter = RuntimeResultListFilter;
    static constexpr auto kAppendNobody = RuntimeNotConflictResultAppend;
    static constexpr char kComparer[] = "port_conflict_runtime_comparer.cpp";
    static constexpr char kCopyFailed[] = "Failed to allocate PTAVO_RUNTIME_PORT_CONFLICT_RESULT";
    static constexpr char kListCopyFailed[] =
        "Failed to allocate TAVORuntimePortConflictResultListAlloc";
    static Record Taken(uint16_t port, uint16_t protocol, char *text) {
        return {port, protocol, 4294967295U, 10, text, 1};
    }
    static std::string Text(const std::string &port) {
        return port + " 4294967295 in state 10 some text";
    }
};

template <typename Kind>
class ResultRecords : public LibraryTest {
  protected:
    using Record = typename Kind::Record;

    struct FreeRecord {
        void operator()(Record *record) const { Kind::kFree(record); }
    };
    using Owned = std::unique_ptr<Record, FreeRecord>;

    static std::vector<std::string> Listed(const Elements &list) {
        return Describe<Record>(list.get());
    }

    // A list of taken ports, with a TCP and a UDP record for each port.
    static Elements ListOf(const std::vector<uint16_t> &ports) {
        Elements list(Kind::kListAlloc());
        char text[] = "some text";
        for (const uint16_t port : ports) {
            for (const auto protocol : std::initializer_list<uint16_t>{1, 2}) {
                const Record record = Kind::Taken(port, protocol, text);
                EXPECT_EQ(TLIBCDListAppend(list.get(), &record), 0);
            }
        }
        return list;
    }

    char text_[10] = "some text";
    const Record taken_ = Kind::Taken(80, TAVO_PROTO_TCP, text_);
};

using Kinds = testing::Types<ConfKind, RuntimeKind>;
TYPED_TEST_SUITE(ResultRecords, Kinds);

TYPED_TEST(ResultRecords, StartAsZeros) {
    const typename TestFixture::Owned record(TypeParam::kAlloc());
    ASSERT_NE(record, nullptr);
    EXPECT_EQ(Describe(*record), "0 0 free");
}

TYPED_TEST(ResultRecords, AreFreedWithTheirText) {
    auto *record = TypeParam::kAlloc();
    record->*TypeParam::kText = strdup("freed, or the leak is found");
    TypeParam::kFree(record);
}

TYPED_TEST(ResultRecords, AreCopiedWithATextOfTheirOwn) {
    const typename TestFixture::Owned copy(TypeParam::kCopy(&this->taken_));
    ASSERT_NE(copy, nullptr);
    EXPECT_NE((*copy).*TypeParam::kText, this->text_);
    EXPECT_EQ(Describe(*copy), TypeParam::Text("80 tcp"));
}

TYPED_TEST(ResultRecords, AreCopiedWithoutTextWhereTheyHaveNone) {
    auto record = this->taken_;
    record.*TypeParam::kText = nullptr;
    const typename TestFixture::Owned copy(TypeParam::kCopy(&record));
    ASSERT_NE(copy, nullptr);
    EXPECT_EQ((*copy).*TypeParam::kText, nullptr);
    EXPECT_EQ(Describe(*copy), Describe(record));
}

TYPED_TEST(ResultRecords, FailInSilenceWithoutMemory) {
    FailingAllocation fail(1, FailingAllocation::Mode::kOnlyNth);
    EXPECT_EQ(fail.During([] { return TypeParam::kAlloc(); }), nullptr);
    EXPECT_EQ(fail.During([] { return TypeParam::kListAlloc(); }), nullptr);
    EXPECT_THAT(this->Messages(), IsEmpty());
}

TYPED_TEST(ResultRecords, CannotBeCopiedWithoutMemory) {
    FailingAllocation fail(1, FailingAllocation::Mode::kOnlyNth);
    EXPECT_EQ(fail.During([&] { return TypeParam::kCopy(&this->taken_); }), nullptr);
    EXPECT_THAT(this->Messages(), ElementsAre(TypeParam::kCopyFailed));
    EXPECT_EQ(TLIBCErrGet(), 0U);
}

TYPED_TEST(ResultRecords, LoseTheirTextInACopyWithoutMemoryForIt) {
    FailingAllocation fail(2, FailingAllocation::Mode::kOnlyNth);
    const typename TestFixture::Owned copy(
        fail.During([&] { return TypeParam::kCopy(&this->taken_); }));
    ASSERT_NE(copy, nullptr);
    EXPECT_EQ((*copy).*TypeParam::kText, nullptr);
    EXPECT_EQ(copy->uPort, 80);
    EXPECT_EQ(copy->blConflict, 1U);
    EXPECT_THAT(this->Messages(), IsEmpty());
    EXPECT_EQ(TLIBCErrGet(), 0U);
}

TYPED_TEST(ResultRecords, AreCopiedIntoLists) {
    const Elements list(TypeParam::kListAlloc());
    auto record = this->taken_;
    EXPECT_EQ(TLIBCDListAppend(list.get(), &record), 0);
    record.uPort = 443;
    EXPECT_EQ(TLIBCDListAppend(list.get(), &record), 0);
    this->text_[0] = '\0';
    EXPECT_THAT(this->Listed(list),
                ElementsAre(TypeParam::Text("80 tcp"), TypeParam::Text("443 tcp")));
}

TYPED_TEST(ResultRecords, AreFreedWithTheirList) {
    TypeParam::kListFree(this->ListOf({80}).release());
    TypeParam::kListFree(nullptr);
}

TYPED_TEST(ResultRecords, KeepTheirOrderInTheCopyOfAList) {
    Elements list = this->ListOf({80, 7, 443});
    const Elements copy(TypeParam::kListCopy(list.get()));
    const std::vector<std::string> expected = this->Listed(list);
    list.reset();
    EXPECT_EQ(expected.size(), 6U);
    EXPECT_EQ(this->Listed(copy), expected);
}

TYPED_TEST(ResultRecords, NeedNotBeInAListToCopyIt) {
    const Elements copy(TypeParam::kListCopy(Elements(TypeParam::kListAlloc()).get()));
    ASSERT_NE(copy, nullptr);
    EXPECT_EQ(TLIBCDListCount(copy.get()), 0);
}

TYPED_TEST(ResultRecords, AreCopiedAllOrNoneWithTheirList) {
    const Elements list = this->ListOf({80, 443});
    std::set<std::vector<std::string>> lines;
    const int allocations = ForEachFailingAllocation([&](FailingAllocation &fail) {
        this->log_.Clear();
        const Elements copy(fail.During([&] { return TypeParam::kListCopy(list.get()); }));
        EXPECT_TRUE(copy == nullptr || TLIBCDListCount(copy.get()) == 4);
        EXPECT_EQ(copy == nullptr, !this->Messages().empty());
        lines.insert(this->Messages());
    });
    EXPECT_EQ(allocations, 13) << "a list, and for each record a node, the record and its text";
    EXPECT_THAT(lines,
                testing::UnorderedElementsAre(
                    ElementsAre(TypeParam::kListCopyFailed),
                    ElementsAre(TypeParam::kCopyFailed, TypeParam::kListCopyFailed), IsEmpty()));
}

// ---- Filtering ----

TYPED_TEST(ResultRecords, AreFilteredByPortAndProtocol) {
    const Elements list = this->ListOf({80, 443, 80});
    Elements filtered = this->ListOf({9});
    EXPECT_EQ(TypeParam::kFilter(list.get(), 80, TAVO_PROTO_UDP, filtered.get()), 2);
    EXPECT_EQ(TypeParam::kFilter(list.get(), 443, TAVO_PROTO_TCP, filtered.get()), 1);
    EXPECT_EQ(TypeParam::kFilter(list.get(), 81, TAVO_PROTO_TCP, filtered.get()), 0);
    EXPECT_THAT(
        this->Listed(filtered),
        ElementsAre(TypeParam::Text("9 tcp"), TypeParam::Text("9 udp"), TypeParam::Text("80 udp"),
                    TypeParam::Text("80 udp"), TypeParam::Text("443 tcp")));
    EXPECT_EQ(TLIBCDListCount(list.get()), 6);
}

TYPED_TEST(ResultRecords, MatchAFilterWithExactlyTheirProtocol) {
    const Elements list = this->ListOf({80});
    const Elements filtered(TypeParam::kListAlloc());
    for (const auto protocol : std::initializer_list<uint16_t>{0, 3, 5, 0xFFFF}) {
        EXPECT_EQ(TypeParam::kFilter(list.get(), 80, protocol, filtered.get()), 0) << protocol;
    }
    EXPECT_EQ(TLIBCDListCount(filtered.get()), 0);
}

TYPED_TEST(ResultRecords, MatchAFilterEvenWhereNobodyHasThePort) {
    const Elements list(TypeParam::kListAlloc());
    const Elements filtered(TypeParam::kListAlloc());
    EXPECT_EQ(TypeParam::kFilter(list.get(), 80, TAVO_PROTO_TCP, filtered.get()), 0);
    EXPECT_EQ(TypeParam::kAppendNobody(list.get(), 80, TAVO_PROTO_TCP), 0);
    EXPECT_EQ(TypeParam::kFilter(list.get(), 80, TAVO_PROTO_TCP, filtered.get()), 1);
    EXPECT_THAT(this->Listed(filtered), ElementsAre("80 tcp free"));
}

TYPED_TEST(ResultRecords, AreNotFilteredWithoutAList) {
    const Elements list = this->ListOf({80});
    EXPECT_EQ(TypeParam::kFilter(nullptr, 80, TAVO_PROTO_TCP, list.get()), -1);
    EXPECT_EQ(ErrorState(), std::string("0xD00 ") + TypeParam::kComparer);
    EXPECT_EQ(TLIBCDListCount(list.get()), 2);
    TLIBCErrSetEx(0, nullptr, 0);
    EXPECT_EQ(TypeParam::kFilter(list.get(), 80, TAVO_PROTO_TCP, nullptr), -1);
    EXPECT_EQ(ErrorState(), std::string("0xD00 ") + TypeParam::kComparer);
    EXPECT_EQ(TypeParam::kFilter(nullptr, 80, TAVO_PROTO_TCP, nullptr), -1);
    EXPECT_THAT(this->Messages(),
                ElementsAre("pSourceResultList is undefined", "pFilteredResultList is undefined",
                            "pSourceResultList is undefined"));
}

TYPED_TEST(ResultRecords, StayFilteredWhenMemoryRunsOutForTheNext) {
    const Elements list = this->ListOf({80, 80});
    std::set<std::vector<std::string>> lines;
    const int allocations = ForEachFailingAllocation([&](FailingAllocation &fail) {
        this->log_.Clear();
        TLIBCErrSetEx(0, nullptr, 0);
        const Elements filtered = this->ListOf({9});
        const int matches = fail.During(
            [&] { return TypeParam::kFilter(list.get(), 80, TAVO_PROTO_TCP, filtered.get()); });
        EXPECT_TRUE(matches == 2 || matches == -1) << matches;
        EXPECT_EQ(matches == -1 ? 0x200U : 0U, TLIBCErrGet());
        const int count = TLIBCDListCount(filtered.get());
        EXPECT_TRUE(matches == 2 ? count == 4 : count == 2 || count == 3) << count;
        lines.insert(this->Messages());
    });
    EXPECT_EQ(allocations, 6);
    EXPECT_THAT(lines, testing::UnorderedElementsAre(ElementsAre(kNoRecord),
                                                     ElementsAre(TypeParam::kCopyFailed, kNoRecord),
                                                     IsEmpty()));
}

// ---- Records of ports that are not in use ----

TYPED_TEST(ResultRecords, SayThatNobodyHasAPort) {
    const Elements list = this->ListOf({80});
    EXPECT_EQ(TypeParam::kAppendNobody(list.get(), 65535, TAVO_PROTO_UDP), 0);
    EXPECT_THAT(this->Listed(list), ElementsAre(TypeParam::Text("80 tcp"),
                                                TypeParam::Text("80 udp"), "65535 udp free"));
    EXPECT_THAT(this->Messages(), IsEmpty());
}

TYPED_TEST(ResultRecords, CannotSayThatNobodyHasAPortWithoutAList) {
    EXPECT_EQ(TypeParam::kAppendNobody(nullptr, 80, TAVO_PROTO_TCP), -1);
    EXPECT_EQ(ErrorState(), std::string("0xD00 ") + TypeParam::kComparer);
    EXPECT_THAT(this->Messages(), ElementsAre("pResultList is undefined"));
    EXPECT_THAT(this->log_.Lines().front().text,
                testing::StartsWith(TypeParam::kComparer + std::string(":")));
}

TYPED_TEST(ResultRecords, CannotSayThatNobodyHasAPortWithoutMemory) {
    std::set<std::vector<std::string>> lines;
    const int allocations = ForEachFailingAllocation([&](FailingAllocation &fail) {
        this->log_.Clear();
        TLIBCErrSetEx(0, nullptr, 0);
        const Elements list = this->ListOf({80});
        const int result =
            fail.During([&] { return TypeParam::kAppendNobody(list.get(), 7, TAVO_PROTO_UDP); });
        EXPECT_EQ(result, fail.Hit() ? -1 : 0);
        EXPECT_EQ(ErrorState(), fail.Hit() ? std::string("0x200 ") + TypeParam::kComparer : "0x0 ");
        EXPECT_EQ(TLIBCDListCount(list.get()), fail.Hit() ? 2 : 3);
        lines.insert(this->Messages());
    });
    EXPECT_EQ(allocations, 3);
    EXPECT_THAT(lines, testing::UnorderedElementsAre(ElementsAre(kNoRecord),
                                                     ElementsAre(TypeParam::kCopyFailed, kNoRecord),
                                                     IsEmpty()));
}

}  // namespace
}  // namespace tavo::test
