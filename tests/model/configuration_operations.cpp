#include <algorithm>
#include <filesystem>

#include "common/handle.h"
#include "flush/flush.h"
#include "model/operations.h"
#include "support/appliance.h"

namespace model {

namespace {

constexpr const char* kSections[] = {"md3+volume_1", "md4+volume_2", "two words", "caf\xc3\xa9"};
constexpr const char* kTexts[] = {"", "uuid", "a=b", "two words; # no comment", "[not a section]"};
constexpr const char* kDisks[] = {"/dev/md3", "/dev/md4", "/dev/md9"};
constexpr const char* kSpaces[] = {"/dev/vg1/volume_1", "/dev/vg1/volume_2"};
constexpr const char* kFlushStates[] = {"", "normal", "flushing", "flush_done"};
constexpr const char* kSerials[] = {"S1", "S1,S2", "S3,S1,S2"};
constexpr int kModes[] = {FLASHCACHE_WRITE_BACK, FLASHCACHE_WRITE_BACK, FLASHCACHE_WRITE_AROUND,
                          FLASHCACHE_WRITE_BACK_CRASH};

Entry SomeEntry(Choice& choice) {
    Entry entry;
    entry.section = choice.Of(kSections);
    entry.uuid = choice.Of(kTexts);
    entry.ssd = choice.Of(kDisks);
    entry.space = choice.Of(kSpaces);
    entry.reference = choice.Of(kTexts);
    entry.flush = choice.Of(kFlushStates);
    entry.mode = choice.Of(kModes);
    entry.reclaim = static_cast<int>(choice.Below(2));
    entry.delay = static_cast<int>(choice.Below(3)) * 1000;
    entry.dirtyThresh = static_cast<int>(choice.Below(3)) * 45;
    entry.skip = static_cast<int>(choice.Below(2));
    entry.version = static_cast<int>(choice.Below(3)) - 1;
    entry.size = choice.Below(2) == 0 ? UINT64_MAX : 16777216;
    return entry;
}

// A search with the field of an entry that it compares with.
struct Search {
    explicit Search(Choice& choice) : entry(SomeEntry(choice)) {
        record.type = static_cast<int>(choice.Below(5)) + 1;
        record.SSDUUID = entry.uuid.c_str();
        record.SectionName = entry.section.c_str();
        record.SSDDevPath = entry.ssd.c_str();
        record.SpacePath = entry.space.c_str();
        record.ReferencePath = entry.reference.c_str();
    }
    Search(const Search&) = delete;
    Search& operator=(const Search&) = delete;
    ~Search() = default;

    [[nodiscard]] bool Matches(const Entry& other) const {
        static constexpr std::string Entry::* kFields[] = {&Entry::uuid, &Entry::section, &Entry::ssd,
                                                           &Entry::space, &Entry::reference};
        const auto field = kFields[record.type - 1];
        return entry.*field == other.*field;
    }

    Entry entry;
    FLASHCACHE_CONFIG_SEARCH record{};
};

// ---- Configuration ----

std::string ExpectSet(State& state, Choice choice) {
    SetEntry(state, SomeEntry(choice));
    return "0";
}

std::string Set(const State& /*before*/, Choice choice) {
    const Entry entry = SomeEntry(choice);
    const FLASHCACHE_CONFIG record = ToRecord(entry);
    return std::to_string(Ask(VEMOFlashCacheConfigSet, &record));
}

std::string ExpectRefresh(State& state, Choice /*choice*/) {
    if (!state.file) {
        return "-1";
    }
    state.copy = state.file;
    return "0";
}

std::string Refresh(const State& /*before*/, Choice /*choice*/) {
    return std::to_string(Ask(VEMOFlashCacheConfigTmpUpdate));
}

std::string ExpectDelete(State& state, Choice choice) {
    const Search search(choice);
    const Entry* found = FindEntry(state.file, [&](const Entry& entry) { return search.Matches(entry); });
    if (found != nullptr) {
        state.file->erase(state.file->begin() + (found - state.file->data()));
    }
    return ExpectRefresh(state, choice);
}

std::string Delete(const State& /*before*/, Choice choice) {
    const Search search(choice);
    return std::to_string(Ask(VEMOFlashCacheConfigDelete, &search.record));
}

std::string ExpectDeleteAll(State& state, Choice /*choice*/) {
    state.file = std::nullopt;
    return "0";
}

std::string DeleteAll(const State& /*before*/, Choice /*choice*/) {
    return std::to_string(Ask(VEMOFlashCacheConfigDelete, nullptr));
}

std::string ExpectFind(const std::optional<Entries>& entries, Choice choice) {
    const Search search(choice);
    const Entry* found = FindEntry(entries, [&](const Entry& entry) { return search.Matches(entry); });
    return found == nullptr ? "0" : "1 " + ToText(*found);
}

std::string Find(decltype(VEMOFlashCacheConfigGet)* get, Choice choice) {
    const Search search(choice);
    FLASHCACHE_CONFIG* found = nullptr;
    std::string answer = std::to_string(Ask(get, &search.record, &found));
    if (found != nullptr) {
        answer += " " + ToText(FromRecord(*found));
    }
    VEMOFlashCacheConfigFree(found);
    return answer;
}

std::string ExpectGet(State& state, Choice choice) {
    return ExpectFind(state.file, choice);
}

std::string Get(const State& /*before*/, Choice choice) {
    return Find(VEMOFlashCacheConfigGet, choice);
}

std::string ExpectGetCopy(State& state, Choice choice) {
    return ExpectFind(state.copy, choice);
}

std::string GetCopy(const State& /*before*/, Choice choice) {
    return Find(VEMOFlashCacheConfigTmpGet, choice);
}

std::string ExpectIsInFlushState(State& state, Choice choice) {
    const std::string ssd = choice.Of(kDisks);
    const std::size_t wanted = choice.Below(3);
    const Entry* found = FindEntry(state.copy, [&](const Entry& entry) { return entry.ssd == ssd; });
    return found != nullptr && found->flush == kFlushStates[wanted + 1] ? "1" : "0";
}

std::string IsInFlushState(const State& /*before*/, Choice choice) {
    const char* ssd = choice.Of(kDisks);
    return std::to_string(
        Ask(VEMOFlashCacheIsRemoveInFlushState, ssd, static_cast<FLASHCACHE_FLUSH_STATE>(choice.Below(3))));
}

// ---- Serial numbers ----

std::string ExpectSetSerials(State& state, Choice choice) {
    const char* section = choice.Of(kSections);
    if (!state.serials) {
        state.serials.emplace();
    }
    (*state.serials)[section] = choice.Of(kSerials);
    return "0";
}

std::string SetSerials(const State& /*before*/, Choice choice) {
    const char* section = choice.Of(kSections);
    return std::to_string(Ask(VEMOFlashcacheConfigSerialListSet, section, choice.Of(kSerials)));
}

std::string ExpectGetSerials(State& state, Choice choice) {
    const char* section = choice.Of(kSections);
    return state.serials && state.serials->contains(section) ? "1 " + state.serials->at(section) : "0";
}

std::string GetSerials(const State& /*before*/, Choice choice) {
    flashcache::StringList list;
    std::string answer =
        std::to_string(Ask(VEMOFlashcacheConfigSerialListGet, choice.Of(kSections), list.address()));
    for (int i = 0; const char* serial = list ? VLIBCSzListGet(list.get(), i) : nullptr; ++i) {
        answer += (i == 0 ? " " : ",") + std::string(serial);
    }
    return answer;
}

std::string ExpectRemoveSerials(State& state, Choice choice) {
    if (!state.serials) {
        return "-1";
    }
    state.serials->erase(choice.Of(kSections));
    return "0";
}

std::string RemoveSerials(const State& /*before*/, Choice choice) {
    return std::to_string(Ask(VEMOFlashcacheConfigSerialListDelete, choice.Of(kSections)));
}

// ---- The power management's record ----

std::string ExpectRecordFlush(State& state, Choice choice) {
    const char* key = choice.Of(kSections);
    const bool done = choice.Below(3) != 0;
    state.apmFolder = true;
    for (auto* keys : {&state.apmKept, &state.apmNow}) {
        if (done && !*keys) {
            keys->emplace();
        }
        if (done) {
            (*keys)->insert(key);
        } else if (*keys) {
            (*keys)->erase(key);
        }
    }
    return "0";
}

std::string RecordFlush(const State& /*before*/, Choice choice) {
    const char* key = choice.Of(kSections);
    return std::to_string(Ask(VEMOFlashCacheApmFlushStatusSet, key, choice.Below(3) != 0 ? 1U : 0U));
}

std::string ExpectIsFlushRecorded(State& state, Choice choice) {
    if (!state.apmNow && state.apmKept) {
        state.apmFolder = true;
        state.apmNow = state.apmKept;
    } else if (!state.apmNow) {
        state.apmKept.emplace();
        if (!state.apmFolder) {
            return "0";
        }
        state.apmNow.emplace();
    }
    return state.apmNow->contains(choice.Of(kSections)) ? "1" : "0";
}

std::string IsFlushRecorded(const State& /*before*/, Choice choice) {
    return std::to_string(Ask(VEMOFlashCacheIsApmFlushDone, choice.Of(kSections)));
}

// ---- What a restart takes away ----

std::string ExpectRestart(State& state, Choice /*choice*/) {
    state.copy = std::nullopt;
    state.apmNow = std::nullopt;
    state.apmFolder = false;
    return "";
}

std::string Restart(const State& /*before*/, Choice /*choice*/) {
    std::filesystem::remove(appliance::kConfigCopy);
    std::filesystem::remove_all(flashcache::kApmRuntimeDir);
    return "";
}

}  // namespace

const Entry* FindEntry(const std::optional<Entries>& entries,
                       const std::function<bool(const Entry&)>& matches) {
    if (!entries) {
        return nullptr;
    }
    const auto found = std::find_if(entries->begin(), entries->end(), matches);
    return found == entries->end() ? nullptr : &*found;
}

void SetEntry(State& state, const Entry& entry) {
    if (!state.file) {
        state.file.emplace();
    }
    const Entry* there =
        FindEntry(state.file, [&](const Entry& other) { return other.section == entry.section; });
    if (there == nullptr) {
        state.file->push_back(entry);
    } else {
        (*state.file)[static_cast<std::size_t>(there - state.file->data())] = entry;
    }
    state.copy = state.file;
}

bool SetFlushState(State& state, const char* ssd, const char* text) {
    const Entry* found = FindEntry(state.copy, [&](const Entry& entry) { return entry.ssd == ssd; });
    if (found == nullptr) {
        return false;
    }
    Entry changed = *found;
    changed.flush = text;
    SetEntry(state, changed);
    return true;
}

std::vector<Operation> ConfigurationOperations() {
    return {{"write an entry", 8, "-1", kNothing, ExpectSet, Set},
            {"refresh the copy", 2, "-1", kNothing, ExpectRefresh, Refresh},
            {"remove an entry", 4, "-1", kNothing, ExpectDelete, Delete},
            {"remove the configuration", 1, "0", kNothing, ExpectDeleteAll, DeleteAll},
            {"read an entry", 14, "-1", kNothing, ExpectGet, Get},
            {"read the copy of an entry", 14, "-1", kNothing, ExpectGetCopy, GetCopy},
            {"ask for a flush state", 12, "0", kNothing, ExpectIsInFlushState, IsInFlushState},
            {"store serial numbers", 12, "-1", kNothing, ExpectSetSerials, SetSerials},
            {"read serial numbers", 12, "-1", kNothing, ExpectGetSerials, GetSerials},
            {"remove serial numbers", 6, "-1", kNothing, ExpectRemoveSerials, RemoveSerials},
            {"record a flush", 12, "-1", kNothing, ExpectRecordFlush, RecordFlush},
            {"ask for a recorded flush", 12, "0", kNothing, ExpectIsFlushRecorded, IsFlushRecorded},
            {"restart", 3, "", kNothing, ExpectRestart, Restart}};
}

const std::vector<Operation>& AllOperations() {
    static const std::vector<Operation> kAll = [] {
        std::vector<Operation> all = ConfigurationOperations();
        for (const Operation& operation : CacheOperations()) {
            all.push_back(operation);
        }
        return all;
    }();
    return kAll;
}

}  // namespace model
