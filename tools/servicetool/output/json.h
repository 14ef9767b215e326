// The JSON output of servicetool.
#ifndef TAVO_SERVICETOOL_OUTPUT_JSON_H
#define TAVO_SERVICETOOL_OUTPUT_JSON_H

#include <concepts>
#include <cstdint>
#include <initializer_list>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <type_traits>
#include <variant>
#include <vector>

namespace tavo::tool {

// A value of a JSON document. The members of an object keep the order in which they were added.
//
// Only json.cpp includes the header of the JSON library, which takes long to compile.
class Json {
  public:
    struct Member;

    // null
    Json(std::nullptr_t = nullptr) : Json(Scalar()) {}

    template <std::integral Number>
    Json(Number number) : Json(Scalar(Widest<Number>(number))) {}

    // The text must be UTF-8, or else Text() throws std::exception.
    template <std::convertible_to<std::string_view> Characters>
    Json(const Characters &text) : Json(Scalar(std::string_view(text))) {}

    // The value, or null if there is none.
    template <class Value>
    Json(const std::optional<Value> &value) : Json(value ? Json(*value) : Json(nullptr)) {}

    // An array of these values.
    template <class Value>
    Json(const std::vector<Value> &values)
        : Json(ArrayOf(values, [](const Value &value) { return Json(value); })) {}

    // An object of these members.
    Json(std::initializer_list<Member> members);

    Json(Json &&other) = default;
    Json &operator=(Json &&other) = default;

    // An array of convert(element) for each element.
    template <class Elements, class Convert>
    static Json ArrayOf(const Elements &elements, Convert convert) {
        Json array = EmptyArray();
        for (const auto &element : elements) {
            array.Append(convert(element));
        }
        return array;
    }
    static Json EmptyArray();

    void Append(Json element);

    // Adds the members of an object to this one. The value of an existing member is replaced.
    void Merge(const Json &object);

    // The document on one line, in ASCII and without control characters.
    std::string Text() const;

  private:
    struct Tree;

    template <class Number>
    using Widest = std::conditional_t<
        std::same_as<Number, bool>, bool,
        std::conditional_t<std::is_signed_v<Number>, std::int64_t, std::uint64_t>>;

    using Scalar =
        std::variant<std::nullptr_t, bool, std::int64_t, std::uint64_t, std::string_view>;

    explicit Json(const Scalar &value);

    std::shared_ptr<Tree> tree_;  // of this object alone; unique_ptr needs the type of the tree
};

struct Json::Member {
    std::string_view key;
    mutable Json value;  // moved into the object
};

// The text as Utf8Text converts it; null if it is empty.
Json TextOrNull(std::string_view text);

}  // namespace tavo::tool

#endif
