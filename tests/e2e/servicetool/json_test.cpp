#include "output/json.h"

#include <gtest/gtest.h>

#include <exception>
#include <limits>
#include <utility>

namespace tavo::tool {
namespace {

TEST(Json, WritesEveryKindOfValue) {
    const char text[8] = "web";
    const Json json = {{"null", nullptr},
                       {"yes", true},
                       {"least", std::numeric_limits<std::int64_t>::min()},
                       {"most", std::numeric_limits<std::uint64_t>::max()},
                       {"field", text},
                       {"view", std::string_view("wiki")},
                       {"string", std::string("mail")}};
    EXPECT_EQ(json.Text(),
              R"({"null":null,"yes":true,"least":-9223372036854775808,)"
              R"("most":18446744073709551615,"field":"web","view":"wiki","string":"mail"})");
}

TEST(Json, WritesAnEmptyOptionalAsNull) {
    EXPECT_EQ(Json(std::optional<int>()).Text(), "null");
    EXPECT_EQ(Json(std::optional<int>(0)).Text(), "0");
    EXPECT_EQ(Json(std::optional<bool>(false)).Text(), "false");
}

TEST(Json, WritesArrays) {
    EXPECT_EQ(Json::EmptyArray().Text(), "[]");
    EXPECT_EQ(Json(std::vector<std::string_view>{"tcp", "udp"}).Text(), R"(["tcp","udp"])");
    Json array = Json::ArrayOf(std::vector<int>{1, 2}, [](int number) -> Json {
        return {{"twice", 2 * number}};
    });
    array.Append({{"end", nullptr}});
    EXPECT_EQ(array.Text(), R"([{"twice":2},{"twice":4},{"end":null}])");
}

TEST(Json, NestsWhatItIsGiven) {
    Json ports = Json::EmptyArray();
    ports.Append(80);
    const Json json = {{"service", {{"name", "web"}, {"ports", std::move(ports)}}}};
    EXPECT_EQ(json.Text(), R"({"service":{"name":"web","ports":[80]}})");
}

TEST(Json, MergesMembersInOrder) {
    Json json = {{"name", "web"}, {"file", nullptr}};
    json.Merge({{"port", 80}, {"file", "a.sc"}});
    EXPECT_EQ(json.Text(), R"({"name":"web","file":"a.sc","port":80})");
}

TEST(Json, WritesAsciiOnly) {
    EXPECT_EQ(Json("\xC3\xA9\x1B\n\x7F\"").Text(), "\"\\u00e9\\u001b\\n\\u007f\\\"\"");
}

TEST(Json, RefusesATextThatIsNotUtf8) {
    EXPECT_THROW(Json("\xFF").Text(), std::exception);
    EXPECT_EQ(TextOrNull("\xFF").Text(), R"("\\xff")");
    EXPECT_EQ(TextOrNull("").Text(), "null");
}

}  // namespace
}  // namespace tavo::tool
