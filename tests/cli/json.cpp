#include "cli/json.h"

#include <algorithm>
#include <cstdlib>
#include <nlohmann/json.hpp>
#include <ostream>

namespace tests {

struct JsonReader {
    static Json::Kind KindOf(const nlohmann::json& value) {
        return value.is_null()      ? Json::Kind::kNull
               : value.is_boolean() ? Json::Kind::kBool
               : value.is_number()  ? Json::Kind::kNumber
               : value.is_string()  ? Json::Kind::kText
               : value.is_array()   ? Json::Kind::kArray
                                    : Json::Kind::kObject;
    }

    static Json Read(const nlohmann::json& value) {
        Json json;
        json.kind_ = KindOf(value);
        json.text_ = value.is_string() ? value.get<std::string>() : value.dump();
        for (const auto& item : value.items()) {
            if (value.is_object()) {
                json.keys_.push_back(item.key());
            }
            if (value.is_structured()) {
                json.items_.push_back(Read(item.value()));
            }
        }
        return json;
    }
};

Json Json::Parse(const std::string& text) {
    const auto document = nlohmann::json::parse(text, nullptr, false);
    return document.is_discarded() ? Json() : JsonReader::Read(document);
}

const Json& Json::operator[](const std::string& key) const {
    const auto found = std::find(keys_.begin(), keys_.end(), key);
    return found == keys_.end() ? Null() : items_[static_cast<std::size_t>(found - keys_.begin())];
}

double Json::Number() const {
    return kind_ == Kind::kNumber ? std::strtod(text_.c_str(), nullptr) : 0;
}

std::string Json::TypeName() const {
    switch (kind_) {
        case Kind::kNull:
            return "null";
        case Kind::kBool:
            return "boolean";
        case Kind::kNumber:
            return text_.find_first_of(".eE") == std::string::npos ? "integer" : "number";
        case Kind::kText:
            return "string";
        case Kind::kArray:
            return "array";
        case Kind::kObject:
            break;
    }
    return "object";
}

const Json& Json::Null() {
    static const Json null;
    return null;
}

std::ostream& operator<<(std::ostream& out, const Json& json) {
    return out << json.text_;
}

}  // namespace tests
