// States that another kernel told of.
#include <functional>

#include "simulation/common/count.h"
#include "simulation/kernel/cache.h"

namespace simulation {

namespace {

// Calls `take` for each "name=number" of a text; whether `needed` was among them.
bool ForEachCount(std::string_view text, std::string_view needed,
                  const std::function<void(std::string_view name, uint64_t value)>& take) {
    constexpr std::string_view kBlank = " \t\n";
    bool isThere = false;
    while (!text.empty()) {
        const std::string_view word = text.substr(0, text.find_first_of(kBlank));
        const size_t equals = word.find('=');
        const auto value =
            equals == std::string_view::npos ? std::nullopt : ParseCount(word.substr(equals + 1));
        if (value) {
            isThere = isThere || word.substr(0, equals) == needed;
            take(word.substr(0, equals), *value);
        }
        text.remove_prefix(std::min(word.size() + 1, text.size()));
    }
    return isThere;
}

}  // namespace

// Beginning a sync would write back what is to stay dirty.
bool Cache::SeedKnob(Knob knob, std::string_view text) {
    const auto value = ParseKnobValue(knob, text);
    if (!value) {
        return false;
    }
    model_.SetKnob(knob, *value);
    if (knob == Knob::kDoSync) {
        syncing_ = *value != 0 && map_.Dirty() > 0;
    }
    return true;
}

bool Cache::SeedStats(std::string_view text) {
    return ForEachCount(text, "reads",
                        [&](std::string_view name, uint64_t value) { model_.Counts().Set(name, value); });
}

bool Cache::SeedErrors(std::string_view text) {
    Counters& counts = model_.Counts();
    constexpr std::pair<std::string_view, Counter> kErrors[] = {
        {"disk_read_errors", Counter::kDiskReadErrors},
        {"disk_write_errors", Counter::kDiskWriteErrors},
        {"ssd_read_errors", Counter::kSsdReadErrors},
        {"ssd_write_errors", Counter::kSsdWriteErrors}};
    return ForEachCount(text, "write_disk_sync_errors", [&](std::string_view name, uint64_t value) {
        if (name == "write_disk_sync_errors") {
            syncErrors_ = value;
        }
        for (const auto& [known, counter] : kErrors) {
            if (name == known) {
                counts.Add(counter, value - counts[counter]);
            }
        }
    });
}

bool Cache::SeedProgress(std::string_view text) {
    return ForEachCount(text, "remaining_num_of_dirty", [&](std::string_view name, uint64_t value) {
        if (name == "initial_num_of_dirty") {
            initialDirty_ = static_cast<int64_t>(value);
        }
    });
}

}  // namespace simulation
