// The one description of what is told about a cache's statistics, from which tables, lines and documents are
// formed.
#pragma once

#include <optional>
#include <string_view>
#include <vector>

#include "output/record.h"
#include "stats/reading.h"

namespace cli {

// How a field moves: a counter only grows, until it begins anew; a gauge goes up and down; a state is a word.
enum class Kind { kState, kCounter, kGauge };

enum class Unit {
    kNone,
    kRequests,
    kBlocks,
    kBytes,
    kPercent,
    kSeconds,
    kErrors,
    kPerSecond,
    kBytesPerSecond
};

// Where a field is told: of all since the counters began, of the time between two readings, or both.
enum class View { kSinceLoad, kInterval, kBoth };

// One reading and the one before; nothing where the two have nothing in common: the first of all, and the
// first after the counters began anew.
struct Span {
    const Reading& now;
    const Reading* before = nullptr;
    std::string_view event;  // empty: none
};

struct StatField {
    const char* key;  // in JSON, in CSV and for -o; never renamed
    const char* heading;
    Unit unit;
    Kind kind;
    View view;
    bool opensGroup;
    const char* meaning;  // a sentence without its point
    const char* counter;  // the kernel's name of it; nullptr: `take` tells
    Value (*take)(const Span& span);
};

// All of them, in the order of the answers.
const std::vector<StatField>& StatFields();

const char* KindText(Kind kind);
const char* UnitText(Unit unit);
const char* ViewText(View view);

// The value of a field; nothing where the kernel does not tell what it takes.
Value ValueOf(const StatField& field, const Span& span);

// A field of an answer with the description's key and heading, of a number that comes from elsewhere.
Field DescribedField(std::string_view key, Value value);

// The answers' records.
Record SinceLoad(const Reading& reading);
Record Interval(const Span& span);

}  // namespace cli
