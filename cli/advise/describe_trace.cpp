#include "advise/describe_trace.h"

#include <fmt/format.h>

#include <algorithm>
#include <cmath>

#include "caches/memory_need.h"

namespace cli {
namespace {

using sizing::Advice;
using sizing::CacheOutlook;
using sizing::Kind;
using sizing::Verdict;

// Rounded down to tenths, as the kernel's counts are.
double Percent(double share) {
    return std::floor(share * 1000 + 1e-9) / 10;
}

std::uint64_t Whole(double number) {
    return static_cast<std::uint64_t>(std::llround(std::max(number, 0.0)));
}

double LruHits(const Advice& advice, std::uint64_t bytes) {
    return 1 - advice.curve.MissRatio(bytes);
}

Value PerDay(const Advice& advice, const CacheOutlook& outlook) {
    const double days = advice.Days();
    const double bytes = outlook.SsdBytes(advice.BytesOfWrite(), advice.curve.Blocks().Bytes());
    return days > 0 ? Value(Whole(bytes / days)) : Value();
}

Value DirtySeconds(const Advice& advice, const CacheOutlook& outlook) {
    return advice.Days() > 0 && outlook.mode == sizing::WriteMode::kBack
               ? Value(std::round(outlook.simulated.meanDirtySeconds * 10) / 10)
               : Value();
}

Record RowOf(const Advice& advice, const CacheOutlook& outlook) {
    const bool isChosen = advice.verdict == Verdict::kHelps && outlook.bytes == advice.chosen.bytes;
    Record record{
        {{"size_bytes", "Size", outlook.bytes, Format::kBytes},
         {"read_hit_percent", "Read hits", Percent(outlook.ReadHits()), Format::kPercent},
         {"write_hit_percent", "Write hits", Percent(outlook.WriteHits()), Format::kPercent},
         {"spared_percent", "Spared", Percent(outlook.Spared()), Format::kPercent},
         {"absorbed_write_percent", "Absorbed", Percent(outlook.Absorbed()), Format::kPercent},
         {"dirty_seconds", "Dirty for", DirtySeconds(advice, outlook), Format::kSeconds},
         {"ssd_bytes_per_day", "SSD a day", PerDay(advice, outlook), Format::kBytes},
         {"memory_bytes", "Memory", MemoryOfCache(FLASHCACHE_VERSION_NEW, outlook.bytes), Format::kBytes},
         {"memory_original_bytes", "Original", MemoryOfCache(FLASHCACHE_VERSION_ORIGINAL, outlook.bytes),
          Format::kBytes},
         {"lru_hit_percent", "One set", Percent(LruHits(advice, outlook.bytes)), Format::kPercent},
         {"chosen", "Chosen", isChosen}}};
    MayGiveWay(record, {"lru_hit_percent", "memory_original_bytes", "absorbed_write_percent", "dirty_seconds",
                        "memory_bytes"});
    return record;
}

std::string ModeText(sizing::WriteMode mode) {
    switch (mode) {
        case sizing::WriteMode::kBack:
            return "write-back";
        case sizing::WriteMode::kThru:
            return "write-through";
        case sizing::WriteMode::kAround:
            break;
    }
    return "write-around";
}

// Why this mode and not the others that were tried; empty where none was.
std::string ModeReason(const Advice& advice) {
    if (advice.others.empty()) {
        return "";
    }
    const auto best = std::max_element(
        advice.others.begin(), advice.others.end(),
        [](const CacheOutlook& one, const CacheOutlook& other) { return one.Spared() < other.Spared(); });
    if (advice.chosen.mode == sizing::WriteMode::kBack) {
        return fmt::format(" In the mode {}, which keeps nothing on the SSD alone, it would be {:.1f}%.",
                           ModeText(best->mode), Percent(best->Spared()));
    }
    const auto back =
        std::find_if(advice.others.begin(), advice.others.end(),
                     [](const CacheOutlook& outlook) { return outlook.mode == sizing::WriteMode::kBack; });
    return back == advice.others.end()
               ? ""
               : fmt::format(
                     " Write-back would spare {:.1f}%: not enough to keep data on the SSD alone for it.",
                     Percent(back->Spared()));
}

std::string Sentence(const Advice& advice) {
    const double again = advice.curve.Touched().touched > 0
                             ? advice.curve.Touched().touchedTwice / advice.curve.Touched().touched
                             : 0;
    switch (advice.verdict) {
        case Verdict::kNoRequests:
            return "The trace has no reads and writes: it tells nothing of a cache.";
        case Verdict::kNothingReused:
            return fmt::format(
                "A cache does not help this traffic: {:.1f}% of the blocks are touched a second time, and "
                "however large it was, {:.1f}% of the accesses would hit.",
                Percent(again), Percent(LruHits(advice, UINT64_MAX >> 1U)));
        case Verdict::kTooLittle:
            return fmt::format(
                "A cache does not help this traffic: one of {} in the mode {} would spare the volume {:.1f}% "
                "of the block accesses, which its SSD is not worth.",
                HumanSize(advice.chosen.bytes), ModeText(advice.chosen.mode),
                Percent(advice.chosen.Spared()));
        case Verdict::kHelps:
            break;
    }
    double most = 0;
    for (const CacheOutlook& outlook : advice.ladder) {
        most = std::max(most, outlook.Spared());
    }
    return fmt::format(
        "A cache of {} in the mode {}: it spares the volume {:.1f}% of the block accesses, and no size "
        "spares "
        "it more than {:.1f}%.{}",
        HumanSize(advice.chosen.bytes), ModeText(advice.chosen.mode), Percent(advice.chosen.Spared()),
        Percent(std::max(most, advice.chosen.Spared())), ModeReason(advice));
}

std::string VerdictName(Verdict verdict) {
    switch (verdict) {
        case Verdict::kHelps:
            return "helps";
        case Verdict::kNothingReused:
            return "nothing_reused";
        case Verdict::kTooLittle:
            return "too_little";
        case Verdict::kNoRequests:
            break;
    }
    return "no_requests";
}

std::vector<Field> TraceFields(const Advice& advice) {
    const auto& reads = advice.totals.Of(Kind::kRead);
    const auto& writes = advice.totals.Of(Kind::kWrite);
    const double seconds = advice.Days() * 86400;
    return {
        {"advice", "Advice", Sentence(advice), Format::kSentence},
        {"verdict", "Verdict", VerdictName(advice.verdict)},
        {"read_requests", "Reads", reads.requests, Format::kNumber, true},
        {"read_percent", "Share of reads", PercentValue(reads.requests, reads.requests + writes.requests),
         Format::kPercent},
        {"write_requests", "Writes", writes.requests, Format::kNumber},
        {"discard_requests", "Discards", advice.totals.Of(Kind::kDiscard).requests, Format::kNumber},
        {"flush_requests", "Flushes", advice.totals.Of(Kind::kFlush).requests, Format::kNumber},
        {"read_bytes", "Read", reads.bytes, Format::kBytes},
        {"write_bytes", "Written", writes.bytes, Format::kBytes},
        {"seconds", "Time", seconds > 0 ? Value(std::round(seconds * 10) / 10) : Value(), Format::kSeconds},
        {"volumes", "Volumes", std::uint64_t{advice.volumes}, Format::kNumber},
        {"working_set_bytes", "Working set", Whole(advice.curve.Touched().touched), Format::kBytes, true},
        {"touched_twice_bytes", "Touched twice", Whole(advice.curve.Touched().touchedTwice), Format::kBytes},
        {"knee_bytes", "Knee", advice.knee == 0 ? Value() : Value(advice.knee), Format::kBytes}};
}

// The device's own counters, as far as a trace brings them about.
std::vector<Field> CounterFields(const sizing::Counters& counters) {
    using sizing::Counter;
    constexpr Counter kTold[] = {Counter::kReads,
                                 Counter::kWrites,
                                 Counter::kReadHits,
                                 Counter::kWriteHits,
                                 Counter::kDirtyWriteHits,
                                 Counter::kWriteMissSsd,
                                 Counter::kReplacement,
                                 Counter::kNoRoom,
                                 Counter::kCleanings,
                                 Counter::kFallowCleanings,
                                 Counter::kDiskReads,
                                 Counter::kDiskWrites,
                                 Counter::kSsdReads,
                                 Counter::kSsdWrites,
                                 Counter::kUncachedReads,
                                 Counter::kUncachedWrites,
                                 Counter::kUncachedSequentialReads,
                                 Counter::kUncachedSequentialWrites};
    std::vector<Field> fields;
    for (const Counter counter : kTold) {
        const std::string name(sizing::NameOf(counter));
        fields.push_back({name, name, counters[counter], Format::kNumber});
    }
    return fields;
}

// What the sets take from the hits of one that held all blocks; not known where that is not the only thing
// that does.
Value LostToSets(const Advice& advice) {
    const CacheOutlook& chosen = advice.chosen;
    if (!advice.isLru || chosen.mode != sizing::WriteMode::kBack) {
        return {};
    }
    const double hits = static_cast<double>(chosen.simulated.counters[sizing::Counter::kReadHits] +
                                            chosen.simulated.counters[sizing::Counter::kWriteHits]) /
                        static_cast<double>(std::max<std::uint64_t>(chosen.References(), 1));
    return Percent(LruHits(advice, chosen.bytes) - hits);
}

Record TotalOf(const Advice& advice, bool withCounters) {
    const bool isKnown = advice.verdict != Verdict::kNoRequests;
    const CacheOutlook& chosen = advice.chosen;
    Record total{TraceFields(advice)};
    const auto add = [&](Field field) { total.fields.push_back(std::move(field)); };
    add({"size_bytes", "Size", isKnown ? Value(chosen.bytes) : Value(), Format::kBytes, true});
    add({"mode", "Mode", isKnown ? Value(ModeName(chosen.mode)) : Value()});
    add({"block_bytes", "Blocks of", advice.curve.Blocks().Bytes(), Format::kBytes});
    add({"simulated_percent", "Of it, simulated", Percent(chosen.simulated.simulatedShare),
         Format::kPercent});
    add({"lost_to_sets_percent", "Hits lost to sets", isKnown ? LostToSets(advice) : Value(),
         Format::kPercent});
    if (withCounters) {
        Field counters{"counters", "It would count", {}, Format::kParts};
        counters.parts = CounterFields(chosen.simulated.counters);
        add(std::move(counters));
    }
    return total;
}

// What keeps the numbers from being the whole truth.
std::string RemarkOn(const Advice& advice) {
    std::string remark;
    const auto add = [&](const std::string& text) { remark += (remark.empty() ? "" : "; ") + text; };
    const auto& report = advice.report;
    if (report.bad > 0) {
        add(fmt::format("{} of {} records do not parse", report.bad, report.records));
        for (const auto& bad : report.firstBad) {
            add(fmt::format("{} record {}: {}", bad.file, bad.number, bad.why));
        }
    }
    for (const auto& cut : report.cutShort) {
        add(fmt::format("{} ends early: {}", cut.file, cut.note));
    }
    if (report.timesBackwards > 0) {
        add(fmt::format("{} requests are older than the one before them", report.timesBackwards));
    }
    if (advice.volumes > 1) {
        add(fmt::format("its {} volumes are taken for one", advice.volumes));
    }
    if (advice.verdict != Verdict::kNoRequests && advice.Days() == 0) {
        add("it tells no times: nothing ages, and nothing is known by the day");
    } else if (advice.verdict != Verdict::kNoRequests && advice.Days() < 1.0 / 24) {
        add("it is shorter than an hour: what is told by the day is reckoned from little");
    }
    return remark;
}

}  // namespace

std::string ModeName(sizing::WriteMode mode) {
    return mode == sizing::WriteMode::kBack ? "back" : mode == sizing::WriteMode::kThru ? "thru" : "around";
}

Answer DescribeAdvice(const Advice& advice, bool withCounters) {
    Answer answer{"sizes", Layout::kTable, {}, "", "The trace has no reads and writes."};
    if (advice.verdict != Verdict::kNoRequests) {
        for (const CacheOutlook& outlook : advice.ladder) {
            answer.records.push_back(RowOf(advice, outlook));
        }
    }
    answer.total = TotalOf(advice, withCounters);
    answer.remark = RemarkOn(advice);
    return answer;
}

CurvePicture PictureOf(const Advice& advice) {
    constexpr int kPoints = 400;
    CurvePicture picture{"Hit rate by the size of the cache", {}, {}};
    if (advice.verdict == Verdict::kNoRequests || advice.ladder.empty()) {
        return picture;
    }
    const double from = static_cast<double>(advice.ladder.front().bytes) / 4;
    const double to = std::max(static_cast<double>(advice.ladder.back().bytes), from * 16);
    const auto lineOf = [&](const std::string& label, auto missRatio) {
        CurveLine line{label, {}};
        for (int i = 0; i <= kPoints; ++i) {
            const double bytes = from * std::pow(to / from, static_cast<double>(i) / kPoints);
            line.points.push_back({bytes, 1 - missRatio(static_cast<std::uint64_t>(bytes))});
        }
        return line;
    };
    picture.lines = {lineOf("reads and writes", [&](auto size) { return advice.curve.MissRatio(size); })};
    if (advice.curve.Referred().reads > 0 && advice.curve.Referred().writes > 0) {
        picture.lines.push_back(
            lineOf("reads", [&](auto size) { return advice.curve.MissRatio(size, Kind::kRead); }));
        picture.lines.push_back(
            lineOf("writes", [&](auto size) { return advice.curve.MissRatio(size, Kind::kWrite); }));
    }
    if (advice.knee > 0) {
        picture.marks.push_back({"knee", advice.knee});
    }
    if (advice.verdict == Verdict::kHelps) {
        picture.marks.push_back({"chosen", advice.chosen.bytes});
    }
    return picture;
}

}  // namespace cli
