#include "json_value.h"

#include <nlohmann/json.hpp>
#include <ostream>

namespace tavo::test {

struct Json::Tree {
    nlohmann::json value;
};

namespace {

template <class Tree>
std::shared_ptr<const Tree> TreeOf(nlohmann::json value) {
    return std::make_shared<const Tree>(Tree{std::move(value)});
}

}  // namespace

Json Json::Parse(const std::string &text) {
    return Json(TreeOf<Tree>(nlohmann::json::parse(text)));
}

bool Json::IsValid(const std::string &text) {
    return nlohmann::json::accept(text);
}

Json::Json(std::shared_ptr<const Tree> tree) : tree_(std::move(tree)) {}
Json::Json(std::nullptr_t) : Json(TreeOf<Tree>(nullptr)) {}
Json::Json(const char *text) : Json(TreeOf<Tree>(text)) {}
Json::Json(const std::string &text) : Json(TreeOf<Tree>(text)) {}

Json Json::OfScalar(std::int64_t value, bool is_truth) {
    return Json(is_truth ? TreeOf<Tree>(value != 0) : TreeOf<Tree>(value));
}

Json Json::Array(std::initializer_list<Json> elements) {
    nlohmann::json array = nlohmann::json::array();
    for (const Json &element : elements) {
        array.push_back(element.tree_->value);
    }
    return Json(TreeOf<Tree>(std::move(array)));
}

Json Json::operator[](std::string_view key) const {
    return Json(TreeOf<Tree>(tree_->value.at(std::string(key))));
}

Json Json::operator[](std::size_t number) const {
    return Json(TreeOf<Tree>(tree_->value.at(number)));
}

std::size_t Json::size() const {
    return tree_->value.size();
}

std::vector<Json> Json::Elements() const {
    std::vector<Json> elements;
    if (tree_->value.is_structured()) {
        for (const nlohmann::json &element : tree_->value) {
            elements.push_back(Json(TreeOf<Tree>(element)));
        }
    }
    return elements;
}

std::vector<std::string> Json::Keys() const {
    std::vector<std::string> keys;
    if (tree_->value.is_object()) {
        for (const auto &member : tree_->value.items()) {
            keys.push_back(member.key());
        }
    }
    return keys;
}

std::string Json::Text() const {
    return tree_->value.get<std::string>();
}

int Json::Number() const {
    return tree_->value.get<int>();
}

Json::operator bool() const {
    return tree_->value.get<bool>();
}

std::string Json::Dump() const {
    return tree_->value.dump();
}

bool operator==(const Json &one, const Json &other) {
    return one.tree_->value == other.tree_->value;
}

std::ostream &operator<<(std::ostream &stream, const Json &value) {
    return stream << value.Dump();
}

}  // namespace tavo::test
