#include "stats/fields.h"

#include <algorithm>
#include <stdexcept>

#include "stats/derived.h"

namespace cli {
namespace {

Format FormatOf(Unit unit) {
    switch (unit) {
        case Unit::kBytes:
        case Unit::kBytesPerSecond:
            return Format::kBytes;
        case Unit::kPercent:
            return Format::kPercent;
        case Unit::kSeconds:
            return Format::kSeconds;
        case Unit::kRequests:
        case Unit::kBlocks:
        case Unit::kErrors:
        case Unit::kPerSecond:
            return Format::kNumber;
        case Unit::kNone:
            break;
    }
    return Format::kPlain;
}

Record RecordOf(View view, const Span& span) {
    Record record;
    for (const auto& field : StatFields()) {
        if (field.view == view || field.view == View::kBoth) {
            // Text leaves out what this kernel does not count in the cache's mode.
            const bool isHidden = view == View::kSinceLoad && field.counter != nullptr;
            record.fields.push_back({field.key, field.heading, ValueOf(field, span), FormatOf(field.unit),
                                     view == View::kSinceLoad && field.opensGroup, isHidden});
        }
    }
    return record;
}

}  // namespace

const char* KindText(Kind kind) {
    switch (kind) {
        case Kind::kState:
            return "state";
        case Kind::kCounter:
            return "counter";
        case Kind::kGauge:
            break;
    }
    return "gauge";
}

const char* UnitText(Unit unit) {
    switch (unit) {
        case Unit::kNone:
            return "";
        case Unit::kRequests:
            return "requests";
        case Unit::kBlocks:
            return "blocks";
        case Unit::kBytes:
            return "bytes";
        case Unit::kPercent:
            return "percent";
        case Unit::kSeconds:
            return "seconds";
        case Unit::kErrors:
            return "errors";
        case Unit::kPerSecond:
            return "per second";
        case Unit::kBytesPerSecond:
            break;
    }
    return "bytes per second";
}

const char* ViewText(View view) {
    switch (view) {
        case View::kSinceLoad:
            return "since load";
        case View::kInterval:
            return "--watch";
        case View::kBoth:
            break;
    }
    return "both";
}

Value ValueOf(const StatField& field, const Span& span) {
    if (field.take != nullptr) {
        return field.take(span);
    }
    if (field.unit == Unit::kPerSecond) {
        return RateOf(span, field.counter);
    }
    const auto& numbers = field.unit == Unit::kErrors ? span.now.errors : span.now.counters;
    const auto number = NumberOf(numbers, field.counter);
    return number ? Value(*number) : Value();
}

Field DescribedField(std::string_view key, Value value) {
    const auto& fields = StatFields();
    const auto found =
        std::find_if(fields.begin(), fields.end(), [&](const StatField& field) { return field.key == key; });
    if (found == fields.end()) {
        throw std::logic_error("no field of the statistics: " + std::string(key));
    }
    return {found->key, found->heading, std::move(value), FormatOf(found->unit)};
}

Record SinceLoad(const Reading& reading) {
    return RecordOf(View::kSinceLoad, {reading, nullptr, {}});
}

Record Interval(const Span& span) {
    return RecordOf(View::kInterval, span);
}

}  // namespace cli
