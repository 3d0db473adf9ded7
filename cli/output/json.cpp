#include "output/json.h"

#include <nlohmann/json.hpp>
#include <type_traits>

namespace cli {
namespace {

using Json = nlohmann::ordered_json;

Json ToJson(const Value& value) {
    return std::visit(
        [](const auto& known) -> Json {
            if constexpr (std::is_same_v<std::decay_t<decltype(known)>, std::monostate>) {
                return nullptr;
            } else {
                return known;
            }
        },
        value);
}

Json ToJson(const std::vector<Field>& fields) {
    Json object = Json::object();
    for (const auto& field : fields) {
        object[field.key] = field.format == Format::kParts ? ToJson(field.parts) : ToJson(field.value);
    }
    return object;
}

Json ToJson(const std::optional<ErrorSlot>& slot) {
    if (!slot || slot->code == 0) {
        return nullptr;
    }
    return {
        {"code", slot->code}, {"meaning", Meaning(slot->code)}, {"file", slot->file}, {"line", slot->line}};
}

std::string Dump(const Json& object) {
    // Bytes that are not UTF-8 may stand in a configuration file: they must not cost the whole answer.
    return object.dump(-1, ' ', false, Json::error_handler_t::replace) + "\n";
}

}  // namespace

std::string JsonOf(const Answer& answer) {
    Json object = {{"format_version", kFormatVersion}};
    if (answer.layout == Layout::kRecord) {
        object[answer.key] = answer.records.empty() ? Json() : ToJson(answer.records.front().fields);
    } else {
        object[answer.key] = Json::array();
        for (const auto& record : answer.records) {
            object[answer.key].push_back(ToJson(record.fields));
        }
    }
    if (answer.total) {
        object["total"] = ToJson(answer.total->fields);
    }
    if (!answer.remark.empty()) {
        object["remark"] = answer.remark;
    }
    return Dump(object);
}

std::string JsonOf(const Failure& failure) {
    const Json error = {{"kind", KindText(failure.kind)},
                        {"message", failure.what},
                        {"reason", ToJson(KnownText(failure.why))},
                        {"advice", ToJson(KnownText(failure.next))},
                        {"error_slot", ToJson(failure.slot)}};
    return Dump({{"format_version", kFormatVersion}, {"error", error}});
}

}  // namespace cli
