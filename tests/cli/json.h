// An answer of the tool, ready to be looked into; of the JSON library, which costs seconds to compile, only
// json.cpp knows.
#pragma once

#include <concepts>
#include <cstddef>
#include <iosfwd>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace tests {

// A value of a JSON document. What is not there is null, and holds nothing in turn.
class Json {
  public:
    enum class Kind { kNull, kBool, kNumber, kText, kArray, kObject };

    Json() = default;

    // The document; null when it is none.
    static Json Parse(const std::string& text);

    [[nodiscard]] bool IsNull() const { return kind_ == Kind::kNull; }
    [[nodiscard]] bool IsBool() const { return kind_ == Kind::kBool; }
    [[nodiscard]] bool IsText() const { return kind_ == Kind::kText; }
    [[nodiscard]] bool IsObject() const { return kind_ == Kind::kObject; }

    // As JSON Schema calls its type; "integer" for a number without a point.
    [[nodiscard]] std::string TypeName() const;

    // Of an array or object.
    [[nodiscard]] std::size_t size() const { return items_.size(); }
    [[nodiscard]] bool empty() const { return items_.empty(); }
    [[nodiscard]] auto begin() const { return items_.begin(); }
    [[nodiscard]] auto end() const { return items_.end(); }
    [[nodiscard]] std::vector<std::string> Keys() const { return keys_; }

    const Json& operator[](const std::string& key) const;
    const Json& operator[](std::size_t at) const { return at < items_.size() ? items_[at] : Null(); }

    // A text as it is, of anything else its JSON.
    explicit operator std::string() const { return text_; }

    // A number; 0 of anything else.
    [[nodiscard]] double Number() const;

    friend bool operator==(const Json& json, std::nullptr_t) { return json.IsNull(); }
    friend bool operator==(const Json& json, std::string_view text) {
        return json.IsText() && json.text_ == text;
    }
    friend bool operator==(const Json& json, const char* text) { return json == std::string_view(text); }
    friend bool operator==(const Json& json, bool flag) {
        return json.IsBool() && (json.text_ == "true") == flag;
    }
    template <std::integral Number>
    friend bool operator==(const Json& json, Number number) {
        return json.kind_ == Kind::kNumber && json.text_ == std::to_string(number);
    }
    friend bool operator==(const Json& json, const Json& other) {
        return json.kind_ == other.kind_ && json.text_ == other.text_;
    }

    friend std::ostream& operator<<(std::ostream& out, const Json& json);

  private:
    friend struct JsonReader;

    static const Json& Null();

    Kind kind_ = Kind::kNull;
    std::string text_ = "null";
    std::vector<std::string> keys_;  // of an object, one for each item
    std::vector<Json> items_;
};

}  // namespace tests
