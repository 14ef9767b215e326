#include "output/json.h"

#include <nlohmann/json.hpp>
#include <utility>

#include "output/text.h"

namespace tavo::tool {

struct Json::Tree {
    nlohmann::ordered_json value;
};

Json::Json(const Scalar &value)
    : tree_(new Tree{std::visit([](auto one) { return nlohmann::ordered_json(one); }, value)}) {}

Json::Json(std::initializer_list<Member> members)
    : tree_(new Tree{nlohmann::ordered_json::object()}) {
    for (const Member &member : members) {
        tree_->value[std::string(member.key)] = std::move(member.value.tree_->value);
    }
}

Json Json::EmptyArray() {
    Json array;
    array.tree_->value = nlohmann::ordered_json::array();
    return array;
}

void Json::Append(Json element) {
    tree_->value.push_back(std::move(element.tree_->value));
}

void Json::Merge(const Json &object) {
    tree_->value.update(object.tree_->value);
}

std::string Json::Text() const {
    return tree_->value.dump(-1, ' ', true);
}

Json TextOrNull(std::string_view text) {
    return text.empty() ? Json(nullptr) : Json(Utf8Text(text));
}

}  // namespace tavo::tool
