// The JSON documents that servicetool prints. Only json_value.cpp includes the header of the JSON
// library, because compiling it takes longer than compiling a test.
#ifndef TAVO_TESTS_SERVICETOOL_JSON_VALUE_H
#define TAVO_TESTS_SERVICETOOL_JSON_VALUE_H

#include <concepts>
#include <cstdint>
#include <initializer_list>
#include <iosfwd>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

namespace tavo::test {

class Json {
  public:
    // The value of a document, or an expected value. Throws if the text is not valid JSON.
    static Json Parse(const std::string &text);
    static bool IsValid(const std::string &text);

    // Values to compare with: null, Boolean, number, text, array.
    Json(std::nullptr_t);
    Json(std::integral auto value)
        : Json(OfScalar(static_cast<std::int64_t>(value), std::same_as<decltype(value), bool>)) {}
    Json(const char *text);
    Json(const std::string &text);
    static Json Array(std::initializer_list<Json> elements);

    // A member of an object or an element of an array. Throws if it does not exist.
    Json operator[](std::string_view key) const;
    Json operator[](std::size_t number) const;

    // The elements of an array or the values of an object; empty for other values.
    std::vector<Json> Elements() const;

    // For matchers such as IsEmpty.
    std::size_t size() const;
    bool empty() const { return size() == 0; }

    // The keys of an object; empty for other values.
    std::vector<std::string> Keys() const;

    // These throw if the value has another type.
    std::string Text() const;
    int Number() const;
    explicit operator bool() const;

    std::string Dump() const;

    friend bool operator==(const Json &one, const Json &other);
    friend std::ostream &operator<<(std::ostream &stream, const Json &value);

  private:
    struct Tree;

    explicit Json(std::shared_ptr<const Tree> tree);
    static Json OfScalar(std::int64_t value, bool is_truth);

    std::shared_ptr<const Tree> tree_;
};

}  // namespace tavo::test

#endif
