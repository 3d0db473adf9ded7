#include "cli/schema.h"

#include <algorithm>
#include <set>

namespace tests {
namespace {

class Validator {
  public:
    explicit Validator(const Json& root) : root_(root) {}

    void Check(const Json& schema, const Json& value, const std::string& place) {
        static const std::set<std::string> kKnown = {
            "$schema", "$defs", "$ref",    "title",   "description", "type",     "const",
            "enum",    "items", "minimum", "maximum", "properties",  "required", "additionalProperties"};
        for (const auto& key : schema.Keys()) {
            Require(kKnown.contains(key), place, "its schema has the unknown keyword " + key);
        }
        if (const Json& reference = schema["$ref"]; reference.IsText()) {
            Check(Referred(std::string(reference), place), value, place);
        }
        CheckValue(schema, value, place);
        CheckObject(schema, value, place);
        if (const Json& items = schema["items"]; !items.IsNull() && value.TypeName() == "array") {
            for (std::size_t i = 0; i < value.size(); ++i) {
                Check(items, value[i], place + "/" + std::to_string(i));
            }
        }
    }

    std::vector<std::string> wrong;

  private:
    void Require(bool isSo, const std::string& place, const std::string& why) {
        if (!isSo) {
            wrong.push_back(place + ": " + why);
        }
    }

    const Json& Referred(const std::string& reference, const std::string& place) {
        const std::string start = "#/$defs/";
        const Json& schema =
            root_["$defs"][reference.starts_with(start) ? reference.substr(start.size()) : ""];
        Require(schema.IsObject(), place, "its schema refers to nothing: " + reference);
        return schema;
    }

    static bool IsOfType(const Json& value, const std::string& type) {
        return value.TypeName() == type || (type == "number" && value.TypeName() == "integer");
    }

    void CheckValue(const Json& schema, const Json& value, const std::string& place) {
        const std::string text(value);
        const Json& type = schema["type"];
        if (type.IsText()) {
            Require(IsOfType(value, std::string(type)), place, text + " is no " + std::string(type));
        } else if (!type.IsNull()) {
            Require(std::any_of(type.begin(), type.end(),
                                [&](const Json& one) { return IsOfType(value, std::string(one)); }),
                    place, text + " is of no type of " + std::string(type));
        }
        if (const Json& values = schema["enum"]; !values.IsNull()) {
            Require(std::find(values.begin(), values.end(), value) != values.end(), place,
                    text + " is none of " + std::string(values));
        }
        const Json& only = schema["const"];
        Require(only.IsNull() || only == value, place, text + " is not " + std::string(only));
        if (IsOfType(value, "number")) {
            const Json& least = schema["minimum"];
            const Json& most = schema["maximum"];
            Require(least.IsNull() || value.Number() >= least.Number(), place, text + " is too little");
            Require(most.IsNull() || value.Number() <= most.Number(), place, text + " is too much");
        }
    }

    void CheckObject(const Json& schema, const Json& value, const std::string& place) {
        if (!value.IsObject()) {
            return;
        }
        const auto has = [](const Json& object, const std::string& key) {
            const auto keys = object.Keys();
            return std::find(keys.begin(), keys.end(), key) != keys.end();
        };
        const Json& properties = schema["properties"];
        for (const auto& key : value.Keys()) {
            if (has(properties, key)) {
                Check(properties[key], value[key], place + "/" + key);
            } else {
                Require(!(schema["additionalProperties"] == false), place, "has " + key + " in excess");
            }
        }
        for (const Json& key : schema["required"]) {
            Require(has(value, std::string(key)), place, "has no " + std::string(key));
        }
    }

    const Json& root_;
};

}  // namespace

std::vector<std::string> WrongBy(const Json& schema, const Json& document) {
    Validator validator(schema);
    validator.Check(schema, document, "");
    return validator.wrong;
}

}  // namespace tests
