#include "stats/view.h"

#include <algorithm>

namespace cli {
namespace {

constexpr std::size_t kCourseColumns = 16;
constexpr std::size_t kShortCourse = 8;  // on a terminal of the usual 80 columns
constexpr std::size_t kRoomForLong = 96;

std::optional<double> NumberIn(const Record& record, std::string_view key) {
    const auto field = std::find_if(record.fields.begin(), record.fields.end(),
                                    [&](const Field& one) { return one.key == key; });
    const auto* number = field == record.fields.end() ? nullptr : std::get_if<double>(&field->value);
    return number == nullptr ? std::nullopt : std::optional(*number);
}

std::optional<double> Sum(std::optional<double> a, std::optional<double> b) {
    return a && b ? std::optional(*a + *b) : std::nullopt;
}

Answer EmptyAnswer() {
    return {"caches", Layout::kTable, {}, "", "There are no caches."};
}

}  // namespace

void Courses::Add(const Round& round) {
    for (const auto& cache : round.caches) {
        const Record record = Interval(cache.ToSpan());
        auto& courses = courses_[cache.now.name];
        cli::Add(courses.requests,
                 Sum(NumberIn(record, "reads_per_second"), NumberIn(record, "writes_per_second")),
                 kCourseColumns);
        cli::Add(courses.hits, NumberIn(record, "interval_read_hit_percent"), kCourseColumns);
    }
}

Answer Courses::TableOf(const Round& round, bool hasBlocks, std::size_t columns) const {
    const std::size_t length = columns >= kRoomForLong ? kCourseColumns : kShortCourse;
    Answer answer = EmptyAnswer();
    for (const auto& cache : round.caches) {
        Record record = Interval(cache.ToSpan());
        const auto& courses = courses_.at(cache.now.name);
        for (auto& field : record.fields) {
            field.hiddenIfUnknown = field.key == "event";
        }
        record.fields.push_back(
            {"course", "Requests", Sparkline(Newest(courses.requests, length), std::nullopt, hasBlocks)});
        record.fields.push_back(
            {"hit_course", "Hits, course", Sparkline(Newest(courses.hits, length), 100, hasBlocks)});
        MayGiveWay(record, {"time",
                            "interval_seconds",
                            "uncached_reads_per_second",
                            "uncached_writes_per_second",
                            "uncached_sequential_reads_per_second",
                            "uncached_sequential_writes_per_second",
                            "metadata_writes_per_second",
                            "replaced_blocks_per_second",
                            "write_errors",
                            "dirty_percent",
                            "hit_course",
                            "interval_write_hit_percent",
                            "state",
                            "write_back_bytes_per_second",
                            "course",
                            "seconds_to_clean",
                            "event",
                            "dirty_bytes",
                            "writes_per_second",
                            "interval_read_hit_percent",
                            "reads_per_second"});
        answer.records.push_back(std::move(record));
    }
    answer.remark = round.remark;
    return answer;
}

Answer RecordsOf(const Round& round) {
    Answer answer = EmptyAnswer();
    for (const auto& cache : round.caches) {
        answer.records.push_back(Interval(cache.ToSpan()));
    }
    answer.remark = round.remark;
    return answer;
}

}  // namespace cli
