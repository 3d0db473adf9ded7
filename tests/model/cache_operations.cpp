#include <algorithm>

#include "flush/flush.h"
#include "model/knobs.h"
#include "model/operations.h"
#include "support/appliance.h"

namespace model {

namespace {

constexpr int kVersions[] = {FLASHCACHE_VERSION_ORIGINAL, FLASHCACHE_VERSION_NEW};
constexpr int kModes[] = {FLASHCACHE_WRITE_BACK, FLASHCACHE_WRITE_BACK, FLASHCACHE_WRITE_AROUND};
constexpr uint64_t kSizeKb = 8192;

// The pair that a step is about, and its names.
std::size_t IndexOf(Choice& choice) {
    return choice.Below(kPairs.size());
}

std::string DeviceOf(const State& state, std::size_t index) {
    const std::string& device = state.pairs.at(index).device;
    return device.empty() ? "/dev/mapper/cachedev_7" : device;
}

std::string FreeDevice(const State& state) {
    for (int number = 0;; ++number) {
        const std::string path = "/dev/mapper/cachedev_" + std::to_string(number);
        if (std::none_of(state.pairs.begin(), state.pairs.end(),
                         [&](const Pair& pair) { return pair.device == path; })) {
            return path;
        }
    }
}

void GiveUp(Pair& pair) {
    for (const int block : pair.unsure) {
        pair.content.at(static_cast<std::size_t>(block)) = '*';
    }
    pair.unsure.clear();
}

void TakeDown(Pair& pair) {
    pair.device.clear();
    pair.forced = false;
    pair.knobs = {};
}

FLASHCACHE_POLICY PolicyOf(Choice& choice) {
    return {choice.Of(kModes), static_cast<int>(choice.Below(2)), static_cast<int>(choice.Below(3)) * 500,
            static_cast<int>(choice.Below(3)) * 40, static_cast<int>(choice.Below(2))};
}

// ---- Lifecycle ----

std::string ExpectCreate(State& state, Choice choice) {
    Pair& pair = state.pairs.at(IndexOf(choice));
    if (!pair.device.empty()) {
        return "-1 ";
    }
    const FLASHCACHE_POLICY policy = PolicyOf(choice);
    GiveUp(pair);
    pair.device = FreeDevice(state);
    pair.version = choice.Of(kVersions);
    pair.mode = policy.WriteMode;
    pair.forced = false;
    pair.knobs = NewKnobs();
    Tune(pair.knobs, policy);
    return "0 " + pair.device;
}

std::string Create(const State& /*before*/, Choice choice) {
    const DiskNames& names = kPairs.at(IndexOf(choice));
    FLASHCACHE_CREATE_PARAM param{};
    param.SSDDevPath = names.ssd;
    param.SpacePath = names.space;
    param.CacheSizeKB = kSizeKb;
    param.Policy = PolicyOf(choice);
    param.CacheVersion = choice.Of(kVersions);
    char path[64] = "";
    const int result = Ask(VEMOFlashCacheCreate, &param, path, int{sizeof path});
    return std::to_string(result) + " " + path;
}

std::string ExpectLoad(State& state, Choice choice) {
    const std::size_t index = IndexOf(choice);
    Pair& pair = state.pairs.at(index);
    const Entry* entry =
        FindEntry(state.file, [&](const Entry& other) { return other.ssd == kPairs.at(index).ssd; });
    if (entry == nullptr || !pair.device.empty() || pair.version == -1) {
        return "-1 ";
    }
    pair.device = FreeDevice(state);
    pair.forced = false;
    pair.knobs = NewKnobs();
    Tune(pair.knobs, ToRecord(*entry).Policy);
    return "0 " + pair.device;
}

std::string Load(const State& /*before*/, Choice choice) {
    const DiskNames& names = kPairs.at(IndexOf(choice));
    char path[64] = "";
    const int result = Ask(VEMOFlashCacheLoad, names.ssd, names.space, path, int{sizeof path});
    return std::to_string(result) + " " + path;
}

std::string ExpectUnload(State& state, Choice choice) {
    Pair& pair = state.pairs.at(IndexOf(choice));
    if (!pair.device.empty() && At(pair.knobs, FLASHCACHE_SYSCTL_FAST_REMOVE) == 0) {
        pair.unsure.clear();
    }
    const bool there = !pair.device.empty();
    TakeDown(pair);
    return there ? "0" : "-1";
}

std::string Unload(const State& before, Choice choice) {
    return std::to_string(Ask(VEMOFlashCacheUnload, DeviceOf(before, IndexOf(choice)).c_str()));
}

// The flush of a live cache: whether it came to its end.
bool Flushed(State& state, std::size_t index) {
    Pair& pair = state.pairs.at(index);
    if (pair.mode != FLASHCACHE_WRITE_BACK) {
        return true;
    }
    if (!SetFlushState(state, kPairs.at(index).ssd, "flush_done")) {
        return false;
    }
    Enter(pair.knobs, kRegimes[0]);
    pair.unsure.clear();
    return true;
}

std::string ExpectFlush(State& state, Choice choice) {
    const std::size_t index = IndexOf(choice);
    return !state.pairs.at(index).device.empty() && Flushed(state, index) ? "1" : "-1";
}

std::string Flush(const State& before, Choice choice) {
    return std::to_string(Ask(VEMOFlashCacheFlush, DeviceOf(before, IndexOf(choice)).c_str()));
}

std::string ExpectDelete(State& state, Choice choice) {
    const std::size_t index = IndexOf(choice);
    const bool fast = choice.Below(3) == 0;
    Pair& pair = state.pairs.at(index);
    if (pair.device.empty()) {
        return "-1";
    }
    if (pair.mode == FLASHCACHE_WRITE_BACK) {
        Write(pair.knobs, FLASHCACHE_SYSCTL_FAST_REMOVE, fast ? 1 : 0);
        if (!fast && !Flushed(state, index)) {
            return "-1";
        }
        GiveUp(pair);
        pair.version = -1;
    }
    TakeDown(pair);
    return "0";
}

std::string Delete(const State& before, Choice choice) {
    const std::string device = DeviceOf(before, IndexOf(choice));
    return std::to_string(Ask(VEMOFlashCacheDelete, device.c_str(), nullptr, choice.Below(3) == 0 ? 1 : 0));
}

std::string ExpectDestroy(State& state, Choice choice) {
    Pair& pair = state.pairs.at(IndexOf(choice));
    if (pair.device.empty()) {
        GiveUp(pair);
        pair.version = -1;
    }
    return "0";
}

std::string Destroy(const State& /*before*/, Choice choice) {
    return std::to_string(Ask(VEMOFlashCacheDestroy, kPairs.at(IndexOf(choice)).ssd));
}

// ---- Knobs, states, attribute ----

std::string ExpectSetKnob(State& state, Choice choice) {
    Pair& pair = state.pairs.at(IndexOf(choice));
    const int knob = static_cast<int>(choice.Below(17));
    const int value = static_cast<int>(choice.Below(4)) - 1;
    const bool done = knob != 0 && !pair.device.empty() && Write(pair.knobs, knob, value);
    return done ? "0" : "-1";
}

std::string SetKnob(const State& /*before*/, Choice choice) {
    const DiskNames& names = kPairs.at(IndexOf(choice));
    const int knob = static_cast<int>(choice.Below(17));
    const int value = static_cast<int>(choice.Below(4)) - 1;
    return std::to_string(Ask(VEMOFlashCacheDoSysctlSet, knob, value, names.ssd, names.space));
}

std::string ExpectGetKnob(State& state, Choice choice) {
    Pair& pair = state.pairs.at(IndexOf(choice));
    const int knob = static_cast<int>(choice.Below(16)) + 1;
    return pair.device.empty() ? "-1 -7" : "0 " + std::to_string(At(pair.knobs, knob));
}

std::string GetKnob(const State& /*before*/, Choice choice) {
    const DiskNames& names = kPairs.at(IndexOf(choice));
    int value = -7;
    const int knob = static_cast<int>(choice.Below(16)) + 1;
    const int result = Ask(VEMOFlashCacheSysctlGet, knob, names.ssd, names.space, &value);
    return std::to_string(result) + " " + std::to_string(value);
}

std::string ExpectSetState(State& state, Choice choice) {
    Pair& pair = state.pairs.at(IndexOf(choice));
    if (pair.device.empty()) {
        return "-1";
    }
    Enter(pair.knobs, choice.Of(kRegimes));
    return "0";
}

std::string SetState(const State& /*before*/, Choice choice) {
    const DiskNames& names = kPairs.at(IndexOf(choice));
    return std::to_string(
        Ask(VEMOFlashCacheHandleStateSet, names.ssd, names.space, choice.Of(kRegimes).state));
}

std::string ExpectGetState(State& state, Choice choice) {
    const Pair& pair = state.pairs.at(IndexOf(choice));
    return std::to_string(pair.device.empty() ? FLASHCACHE_HANDLE_STATE_UNKNOWN : StateOf(pair.knobs));
}

std::string GetState(const State& /*before*/, Choice choice) {
    const DiskNames& names = kPairs.at(IndexOf(choice));
    return std::to_string(Ask(VEMOFlashCacheHandleStateGet, names.ssd, names.space));
}

std::string ExpectSetAttribute(State& state, Choice choice) {
    Pair& pair = state.pairs.at(IndexOf(choice));
    const bool forced = choice.Below(2) == 1;
    pair.forced = pair.device.empty() ? pair.forced : forced;
    return pair.device.empty() ? "-1" : "0";
}

std::string SetAttribute(const State& /*before*/, Choice choice) {
    const DiskNames& names = kPairs.at(IndexOf(choice));
    return std::to_string(
        Ask(VEMOFlashCacheAttributeSet, names.ssd, names.space, static_cast<int>(choice.Below(2))));
}

std::string ExpectGetAttribute(State& state, Choice choice) {
    const Pair& pair = state.pairs.at(IndexOf(choice));
    return pair.device.empty() ? "-1" : pair.forced ? "1" : "0";
}

std::string GetAttribute(const State& /*before*/, Choice choice) {
    const DiskNames& names = kPairs.at(IndexOf(choice));
    return std::to_string(Ask(VEMOFlashCacheAttributeGet, names.ssd, names.space));
}

// ---- Status, flush states, content ----

std::string ExpectStatus(State& state, Choice /*choice*/) {
    std::map<std::string, std::string> caches;  // by their device
    for (std::size_t i = 0; i < kPairs.size(); ++i) {
        Pair& pair = state.pairs.at(i);
        const bool back = pair.mode == FLASHCACHE_WRITE_BACK;
        if (!pair.device.empty()) {
            caches[pair.device] = std::string(" ") + kPairs.at(i).ssd + " " + std::to_string(pair.mode) +
                                  " " +
                                  std::to_string(back ? At(pair.knobs, FLASHCACHE_SYSCTL_FALLOW_DELAY) : 0) +
                                  " " + std::to_string(pair.version == 0 ? kSizeKb / 4 : kSizeKb / 64);
        }
    }
    std::string answer = std::to_string(caches.size());
    for (const auto& [device, text] : caches) {
        answer += text;
    }
    return answer;
}

std::string Status(const State& /*before*/, Choice /*choice*/) {
    FLASHCACHE_STAT* list = nullptr;
    std::string answer = std::to_string(Ask(VEMOFlashCacheStatGet, nullptr, &list));
    for (const FLASHCACHE_STAT* cache = list; cache != nullptr; cache = cache->Next) {
        answer += std::string(" ") + cache->SSDDevPath + " " + std::to_string(cache->WriteMode) + " " +
                  std::to_string(cache->FallowDelay) + " " + std::to_string(cache->TotalBlocks);
    }
    VEMOFlashCacheStatFree(&list);
    return answer;
}

std::string ExpectPath(State& state, Choice choice) {
    const std::size_t index = IndexOf(choice);
    const bool any = std::any_of(state.pairs.begin(), state.pairs.end(),
                                 [](const Pair& pair) { return !pair.device.empty(); });
    const std::string& device = state.pairs.at(index).device;
    return device.empty() ? (any ? "0 " : "-1 ") : "1 " + device;
}

std::string Path(const State& /*before*/, Choice choice) {
    const DiskNames& names = kPairs.at(IndexOf(choice));
    char path[64] = "";
    const int result = Ask(VEMOFlashcacheGetCachePath, choice.Below(2) == 0 ? names.ssd : names.space, path,
                           int{sizeof path});
    return std::to_string(result) + " " + path;
}

std::string ExpectHasMetadata(State& state, Choice choice) {
    return state.pairs.at(IndexOf(choice)).version == -1 ? "0" : "1";
}

std::string HasMetadata(const State& /*before*/, Choice choice) {
    return std::to_string(Ask(VEMOFlashCacheCheckMetadataExist, kPairs.at(IndexOf(choice)).ssd));
}

std::string ExpectCancel(State& state, Choice choice) {
    const std::size_t index = IndexOf(choice);
    const Pair& pair = state.pairs.at(index);
    const char* ssd = kPairs.at(index).ssd;
    const Entry* entry = FindEntry(state.copy, [&](const Entry& other) { return other.ssd == ssd; });
    if (pair.device.empty() || pair.mode != FLASHCACHE_WRITE_BACK || entry == nullptr) {
        return "-1";
    }
    const std::string was = entry->flush;
    if (was == "flushing") {
        SetFlushState(state, ssd, "normal");
    }
    return was == "flushing" ? "1" : was == "flush_done" ? "0" : "-1";
}

std::string Cancel(const State& before, Choice choice) {
    return std::to_string(Ask(VEMOFlashCacheFlushCancel, DeviceOf(before, IndexOf(choice)).c_str()));
}

std::string ExpectWriteBlock(State& state, Choice choice) {
    Pair& pair = state.pairs.at(IndexOf(choice));
    const std::size_t block = choice.Below(kBlocks);
    if (pair.device.empty()) {
        return "0";
    }
    pair.content.at(block) = static_cast<char>('a' + choice.Below(26));
    if (pair.mode == FLASHCACHE_WRITE_BACK) {
        pair.unsure.insert(static_cast<int>(block));
    }
    return "1";
}

std::string WriteBlock(const State& before, Choice choice) {
    const std::size_t index = IndexOf(choice);
    const int block = static_cast<int>(choice.Below(kBlocks));
    const std::string& device = before.pairs.at(index).device;
    const auto letter = static_cast<char>('a' + choice.Below(26));
    return !device.empty() && WriteContent(device, block, letter) ? "1" : "0";
}

}  // namespace

std::vector<Operation> CacheOperations() {
    return {{"create", 2, "-1 ", kKnobs, ExpectCreate, Create},
            {"load", 3, "-1 ", kKnobs, ExpectLoad, Load},
            {"unload", 1, "-1", kNothing, ExpectUnload, Unload},
            {"flush", 1, "-1", kFlushState | kKnobs, ExpectFlush, Flush},
            {"delete", 1, "-1", kFlushState | kKnobs, ExpectDelete, Delete},
            {"wipe an SSD", 1, "0", kNothing, ExpectDestroy, Destroy},
            {"set a knob", 4, "-1", kNothing, ExpectSetKnob, SetKnob},
            {"read a knob", 4, "-1 -7", kNothing, ExpectGetKnob, GetKnob},
            {"enter a handle state", 1, "-1", kKnobs, ExpectSetState, SetState},
            {"read the handle state", 2, "-1", kNothing, ExpectGetState, GetState},
            {"set the attribute", 8, "-1", kNothing, ExpectSetAttribute, SetAttribute},
            {"read the attribute", 8, "-1", kNothing, ExpectGetAttribute, GetAttribute},
            {"list caches", 2, "-1", kAnswer, ExpectStatus, Status},
            {"look for a cache", 2, "-1 ", kNothing, ExpectPath, Path},
            {"look for metadata", 2, "0", kNothing, ExpectHasMetadata, HasMetadata},
            {"cancel a flush", 2, "-1", kNothing, ExpectCancel, Cancel},
            {"write a block", 24, "0", kNothing, ExpectWriteBlock, WriteBlock}};
}

}  // namespace model
