#include "stats/watch.h"

#include <fmt/format.h>

#include <algorithm>

namespace cli {
namespace {

constexpr const char* kReset = "reset";
constexpr const char* kVanished = "vanished";
constexpr const char* kReturned = "returned";

// Whether some counter fell. Those of errors do not count: a flush may begin them anew.
bool HasBegunAnew(const Reading& before, const Reading& now) {
    const auto& fields = StatFields();
    return std::any_of(fields.begin(), fields.end(), [&](const StatField& field) {
        if (field.kind != Kind::kCounter || field.unit == Unit::kErrors) {
            return false;
        }
        const auto then = NumberOf(before.counters, field.counter);
        const auto after = NumberOf(now.counters, field.counter);
        return then && after && *after < *then;
    });
}

void AddOnce(std::vector<std::string>& names, const std::string& name) {
    if (std::find(names.begin(), names.end(), name) == names.end()) {
        names.push_back(name);
    }
}

}  // namespace

Observed Compare(Reading now, const std::optional<Reading>& last) {
    Observed cache{std::move(now), std::nullopt, ""};
    if (!last) {
        return cache;
    }
    const bool wasThere = !last->counters.empty();
    const bool isThere = !cache.now.counters.empty();
    if (wasThere && !isThere) {
        cache.event = kVanished;
    } else if (!wasThere && isThere) {
        cache.event = kReturned;
    } else if (HasBegunAnew(*last, cache.now)) {
        cache.event = kReset;
    } else {
        cache.before = last;
    }
    return cache;
}

std::string EventText(const Observed& cache) {
    if (cache.event == kReset) {
        return fmt::format("the counters of {} began anew; its next rates are told from here on",
                           cache.now.name);
    }
    if (cache.event == kVanished) {
        return fmt::format("{} is not there any more ({}); the watch goes on", cache.now.name,
                           cache.now.state);
    }
    return cache.event == kReturned ? fmt::format("{} is there again", cache.now.name) : "";
}

Round Watch::Look() {
    Inventory inventory = TakeInventory();
    if (isFirst_) {
        for (const auto& name : wanted_) {
            AddOnce(order_, FindRunning(inventory, name).Name());
        }
        isFirst_ = false;
    }
    std::map<std::string, Reading> found;
    for (const auto& cache : inventory.caches) {
        const std::string name = cache.Name();
        if (wanted_.empty()) {
            AddOnce(order_, name);
        }
        if (std::find(order_.begin(), order_.end(), name) != order_.end()) {
            found.emplace(name, ReadingOf(cache));
        }
    }
    Round round{{}, ConfigRemark(inventory)};
    for (const auto& name : order_) {
        const auto last = last_.find(name);
        const auto before = last == last_.end() ? std::nullopt : std::optional(last->second);
        const auto now = found.find(name);
        round.caches.push_back(Compare(now != found.end() ? now->second : Gone(name), before));
        last_[name] = round.caches.back().now;
    }
    return round;
}

}  // namespace cli
