// Each check by facts that are made up: what raises it, alone, and what comes close and does not.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <functional>
#include <set>

#include "doctor/doctor.h"

namespace cli {
namespace {

using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::IsEmpty;
using ::testing::Not;

constexpr std::uint64_t kBlock = 65536;
constexpr std::uint64_t kBlocks = 1024;
constexpr std::uint64_t kGiB = std::uint64_t{1} << 30U;

// A write-back cache that is up and well, and one that was unloaded in order.
CacheFacts RunningFacts() {
    CacheFacts cache;
    cache.name = "up";
    cache.device = "/dev/mapper/cachedev_0";
    cache.ssd = "/dev/md3";
    cache.volume = "/dev/vg1/a";
    cache.entry = EntryFacts{};
    cache.entry->policy = {FLASHCACHE_WRITE_BACK, FLASHCACHE_RECLAIM_LRU, 900, 20, 0};
    cache.entry->format = FLASHCACHE_VERSION_NEW;
    cache.entry->bytes = kBlocks * kBlock;
    cache.entry->mountPath = "/volume1";
    cache.entry->isLoaded = true;
    cache.kernel = KernelFacts{FLASHCACHE_WRITE_BACK, kBlock, kBlocks, 100, 20, kGiB, {}, {}, {}, {}};
    cache.kernel->knobs = CountsOf(
        "cache_all=1 do_sync=0 stop_sync=1 max_clean_ios_total=4 max_clean_ios_set=2 fallow_delay=900 "
        "fast_remove=1 dirty_thresh_pct=20 reclaim_policy=1 skip_seq_thresh_kb=0");
    cache.kernel->errors = CountsOf(
        "disk_read_errors=0 disk_write_errors=0 ssd_read_errors=0 "
        "ssd_write_errors=0\nwrite_disk_sync_errors=0");
    cache.kernel->counters = CountsOf("reads=9000 writes=10\nread_hits=8000 replacement=0 no_room=0");
    cache.kernel->attribute = FLASHCACHE_ATTRIBUTE_NONE;
    cache.ssdSide.isThere = true;
    cache.ssdSide.content = SsdContent{
        "/dev/md3", "/dev/vg1/a", FLASHCACHE_WRITE_BACK, FLASHCACHE_VERSION_NEW, kBlock, kBlocks, false, {}};
    cache.volumeSide.isThere = true;
    cache.volumeSide.bytes = kGiB;
    return cache;
}

CacheFacts UnloadedFacts() {
    CacheFacts cache = RunningFacts();
    cache.name = "down";
    cache.device.clear();
    cache.ssd = "/dev/md4";
    cache.volume = "/dev/vg1/b";
    cache.kernel.reset();
    cache.entry->isLoaded = false;
    cache.ssdSide.content->volume = cache.volume;
    cache.ssdSide.content->inOrder = true;
    cache.ssdSide.content->dirtyBlocks = 0;
    cache.volumeSide.since = {SinceUnload::Volume::kSame, "2026-05-01 12:00:00"};
    return cache;
}

// Two caches, and nothing wrong.
Facts Healthy() {
    Facts facts;
    facts.caches = {RunningFacts(), UnloadedFacts()};
    facts.config.hasCopy = true;
    facts.memory = {8 * kGiB, 4 * kGiB};
    return facts;
}

CacheFacts& Up(Facts& facts) {
    return facts.caches[0];
}

CacheFacts& Down(Facts& facts) {
    return facts.caches[1];
}

void SetKnob(Facts& facts, const char* knob, std::int64_t value) {
    (*Up(facts).kernel->knobs)[knob] = value;
}

void SetError(Facts& facts, const char* error, std::int64_t value) {
    (*Up(facts).kernel->errors)[error] = value;
}

void SetDirty(Facts& facts, std::uint64_t dirty) {
    Up(facts).kernel->dirtyBlocks = dirty;
}

void SetOnSsd(Facts& facts, std::uint64_t dirty) {
    Down(facts).ssdSide.content->dirtyBlocks = dirty;
}

void Write(Facts& facts) {
    Down(facts).volumeSide.since.volume = SinceUnload::Volume::kWritten;
}

void Thrash(Facts& facts) {
    Up(facts).kernel->cachedBlocks = kBlocks;
    *Up(facts).kernel->counters = CountsOf("reads=9000 read_hits=1000 replacement=2000");
}

void Stall(Facts& facts, std::uint64_t seconds) {
    SetKnob(facts, "cache_all", 0);
    SetKnob(facts, "do_sync", 1);
    SetKnob(facts, "stop_sync", 0);
    Up(facts).entry->flushState = "flushing";
    Up(facts).flush = {true, seconds};
}

struct Case {
    const char* code;
    Severity severity;
    std::function<void(Facts&)> spoil;
};

const std::vector<Case>& Raising() {
    constexpr auto kInfo = Severity::kInfo;
    constexpr auto kWarning = Severity::kWarning;
    constexpr auto kCritical = Severity::kCritical;
    static const std::vector<Case> cases = {
        {"VFC-D001", kCritical, [](Facts& f) { f.config.damage = {7, "rubbish"}; }},
        {"VFC-D002", kWarning, [](Facts& f) { f.config.copyDiffers = true; }},
        {"VFC-D002", kWarning, [](Facts& f) { f.config.hasCopy = false; }},
        {"VFC-D003", kWarning, [](Facts& f) { f.config.copyIsForeign = true; }},
        {"VFC-D004", kCritical, [](Facts& f) { Down(f).ssd = Up(f).ssd; }},
        {"VFC-D004", kCritical, [](Facts& f) { Down(f).volume = Up(f).volume; }},
        {"VFC-D010", kWarning, [](Facts& f) { Down(f).entry->isLoaded = true; }},
        {"VFC-D011", kWarning, [](Facts& f) { SetOnSsd(f, 20); }},
        {"VFC-D012", kWarning, [](Facts& f) { Up(f).entry.reset(); }},
        {"VFC-D013", kWarning, [](Facts& f) { Up(f).entry->isUnfinished = true; }},
        {"VFC-D013", kWarning, [](Facts& f) { Down(f).entry->isUnfinished = true; }},
        {"VFC-D014", kInfo, [](Facts& f) { Up(f).entry->isLoaded = false; }},
        {"VFC-D020", kWarning, [](Facts& f) { Up(f).entry->policy.WriteMode = FLASHCACHE_WRITE_AROUND; }},
        {"VFC-D020", kWarning, [](Facts& f) { Down(f).entry->policy.WriteMode = FLASHCACHE_WRITE_THRU; }},
        {"VFC-D021", kWarning, [](Facts& f) { SetKnob(f, "fallow_delay", 10); }},
        {"VFC-D021", kWarning, [](Facts& f) { SetKnob(f, "fast_remove", 0); }},
        {"VFC-D022", kInfo, [](Facts& f) { Up(f).entry->bytes = kGiB; }},
        {"VFC-D022", kInfo, [](Facts& f) { Down(f).entry->bytes = kBlock; }},
        {"VFC-D030", kCritical, [](Facts& f) { Up(f).ssdSide.isThere = false; }},
        {"VFC-D031", kCritical, [](Facts& f) { Up(f).volumeSide.isThere = false; }},
        {"VFC-D032", kInfo, [](Facts& f) { Down(f).entry->ssdMarkedMissing = true; }},
        {"VFC-D032", kInfo, [](Facts& f) { Down(f).entry->volumeMarkedMissing = true; }},
        {"VFC-D033", kWarning, [](Facts& f) { Up(f).ssdSide.unsupported = {"ODD-1"}; }},
        {"VFC-D034", kWarning, [](Facts& f) { Up(f).volumeSide.bytes = kGiB + 512; }},
        {"VFC-D035", kCritical, [](Facts& f) { Up(f).volumeSide.bytes = kGiB - 512; }},
        {"VFC-D040", kCritical, [](Facts& f) { Down(f).ssdSide.isOfOtherVolume = true; }},
        {"VFC-D041", kCritical, [](Facts& f) { Up(f).ssdSide.content.reset(); }},
        {"VFC-D041", kCritical, [](Facts& f) { Down(f).ssdSide.content.reset(); }},
        {"VFC-D042", kWarning, [](Facts& f) { Up(f).entry->format = FLASHCACHE_VERSION_ORIGINAL; }},
        {"VFC-D043", kWarning, [](Facts& f) { Down(f).ssdSide.content->inOrder = false; }},
        {"VFC-D050", kCritical, [](Facts& f) { SetOnSsd(f, 1), Write(f); }},
        {"VFC-D051", kCritical, [](Facts& f) { SetOnSsd(f, 1), Down(f).volumeSide.mounts = {"/mnt"}; }},
        {"VFC-D052", kWarning, Write},
        {"VFC-D053", kCritical, [](Facts& f) { Up(f).volumeSide.mounts = {"/mnt"}; }},
        {"VFC-D060", kWarning, [](Facts& f) { Up(f).entry->flushState = "flushing"; }},
        {"VFC-D060", kWarning, [](Facts& f) { Down(f).entry->flushState = "flushing"; }},
        {"VFC-D061", kWarning, [](Facts& f) { Stall(f, 60); }},
        {"VFC-D062", kWarning, [](Facts& f) { SetKnob(f, "cache_all", 0); }},
        {"VFC-D062", kWarning, [](Facts& f) { SetKnob(f, "cache_all", 2); }},
        {"VFC-D062", kWarning,
         [](Facts& f) { SetKnob(f, "max_clean_ios_total", 0), SetKnob(f, "max_clean_ios_set", 0); }},
        {"VFC-D063", kCritical,
         [](Facts& f) { Up(f).kernel->attribute = FLASHCACHE_ATTRIBUTE_FORCE_REMOVE; }},
        {"VFC-D070", kInfo, [](Facts& f) { SetDirty(f, 205); }},
        {"VFC-D070", kWarning, [](Facts& f) { SetDirty(f, 308); }},
        {"VFC-D071", kCritical, [](Facts& f) { SetDirty(f, kBlocks); }},
        {"VFC-D072", kWarning, Thrash},
        {"VFC-D080", kCritical, [](Facts& f) { SetError(f, "write_disk_sync_errors", 3); }},
        {"VFC-D081", kCritical, [](Facts& f) { SetError(f, "ssd_read_errors", 1); }},
        {"VFC-D081", kCritical, [](Facts& f) { SetError(f, "ssd_write_errors", 1); }},
        {"VFC-D082", kWarning, [](Facts& f) { SetError(f, "disk_read_errors", 1); }},
        {"VFC-D090", kWarning, [](Facts& f) { f.deadFileRun = "process 12"; }},
        {"VFC-D091", kInfo, [](Facts& f) { f.locks = {{"/run/lock/l", false, {"x (12)"}, "", false}}; }},
        {"VFC-D091", kWarning, [](Facts& f) { f.locks = {{"/run/lock/l", false, {"x (12)"}, "y", true}}; }},
        {"VFC-D092", kWarning, [](Facts& f) { f.locks = {{"/run/lock/l", true, {}, "", false}}; }},
        {"VFC-D093", kWarning, [](Facts& f) { f.strayPins = {"/volume9"}; }},
        {"VFC-D094", kWarning, [](Facts& f) { f.memory.total = kGiB / 8 - 1; }},
        {"VFC-D094", kCritical, [](Facts& f) { f.memory.total = kGiB / 32; }},
        {"VFC-D094", kWarning, [](Facts& f) { f.memory.available = 26 * kBlocks - 1; }},
        {"VFC-D095", kWarning, [](Facts& f) { f.overrides = {"/tmp/flashcache_stats"}; }},
        {"VFC-D095", kInfo, [](Facts& f) { f.overrides = {"/tmp/cache-debug-remove"}; }},
        {"VFC-D101", Severity::kUnknown, [](Facts& f) { f.unread = {{Source::kConfiguration, "", "why"}}; }},
        {"VFC-D102", Severity::kUnknown, [](Facts& f) { f.unread = {{Source::kTable, "up", "why"}}; }},
        {"VFC-D103", Severity::kUnknown, [](Facts& f) { f.unread = {{Source::kKnobs, "up", "why"}}; }},
        {"VFC-D104", Severity::kUnknown, [](Facts& f) { f.unread = {{Source::kDirtyBlocks, "up", "why"}}; }},
        {"VFC-D105", Severity::kUnknown, [](Facts& f) { f.unread = {{Source::kErrors, "up", "why"}}; }},
        {"VFC-D106", Severity::kUnknown, [](Facts& f) { f.unread = {{Source::kCounters, "up", "why"}}; }},
        {"VFC-D107", Severity::kUnknown, [](Facts& f) { f.unread = {{Source::kAttribute, "up", "why"}}; }},
        {"VFC-D108", Severity::kUnknown, [](Facts& f) { f.unread = {{Source::kSuperblock, "up", "why"}}; }},
        {"VFC-D109", Severity::kUnknown, [](Facts& f) { f.unread = {{Source::kBlockList, "down", "why"}}; }},
        {"VFC-D110", Severity::kUnknown, [](Facts& f) { f.unread = {{Source::kDatabase, "up", "why"}}; }},
        {"VFC-D111", Severity::kUnknown, [](Facts& f) { f.unread = {{Source::kMemory, "", "why"}}; }},
        {"VFC-D112", Severity::kUnknown, [](Facts& f) { f.unread = {{Source::kLocks, "up", "why"}}; }},
    };
    return cases;
}

Facts Spoilt(const std::function<void(Facts&)>& spoil) {
    Facts facts = Healthy();
    spoil(facts);
    return facts;
}

std::vector<std::string> CodesIn(const std::vector<Finding>& findings) {
    std::vector<std::string> codes;
    for (const auto& finding : findings) {
        codes.push_back(finding.code);
    }
    return codes;
}

TEST(DoctorChecks, RaiseNothingOfTheHealthy) {
    EXPECT_THAT(CodesIn(Diagnose(Healthy())), IsEmpty());
    EXPECT_THAT(CodesIn(Diagnose(Facts())), IsEmpty());
}

TEST(DoctorChecks, AreEachRaisedByItsFactsAlone) {
    std::set<std::string> raised;
    for (const auto& [code, severity, spoil] : Raising()) {
        const auto findings = Diagnose(Spoilt(spoil));
        ASSERT_THAT(CodesIn(findings), ElementsAre(code));
        EXPECT_EQ(SeverityText(*findings[0].severity), SeverityText(severity)) << code;
        EXPECT_TRUE(findings[0].summary.ends_with(".")) << code << findings[0].summary;
        EXPECT_EQ(CodesIn(Diagnose(Spoilt(spoil), {code})), CodesIn(findings));
        raised.insert(code);
    }
    for (const auto& check : AllChecks()) {
        EXPECT_TRUE(raised.contains(check.code)) << check.code;
    }
}

TEST(DoctorChecks, AreNotRaisedByWhatComesClose) {
    const std::vector<std::pair<const char*, std::function<void(Facts&)>>> cases = {
        {"no cache is configured, so no copy is needed",
         [](Facts& f) { f.config.hasCopy = false, f.caches.clear(); }},
        {"whether it is configured is not known",
         [](Facts& f) { Up(f).entry.reset(), Up(f).entryIsUnknown = true; }},
        {"whether it is up is not known",
         [](Facts& f) { Down(f).mayBeUp = true, Down(f).entry->isLoaded = true, SetOnSsd(f, 9); }},
        {"a kind of write-back",
         [](Facts& f) { Up(f).entry->policy.WriteMode = FLASHCACHE_WRITE_BACK_BYPASS; }},
        {"the kernel's own delay and threshold",
         [](Facts& f) {
             Up(f).entry->policy.DelaySeconds = 0, Up(f).entry->policy.DirtyThreshPercent = 0;
             SetKnob(f, "fallow_delay", 60), SetKnob(f, "dirty_thresh_pct", 30);
         }},
        {"a little smaller, for its metadata",
         [](Facts& f) { Up(f).entry->bytes = kBlocks * kBlock + kBlock; }},
        {"sizes that are not known",
         [](Facts& f) { Up(f).volumeSide.bytes.reset(), Up(f).kernel->blocks.reset(); }},
        {"a layout that is not known",
         [](Facts& f) { Up(f).ssdSide.content.reset(), Up(f).ssdSide.isOfUnknownLayout = true; }},
        {"the SSD of a creation that did not finish is no other finding",
         [](Facts& f) { Down(f).volumeSide.since = {}; }},
        {"a volume of clean blocks, mounted by itself", [](Facts& f) { Down(f).volumeSide.mounts = {"/m"}; }},
        {"a flush that is done",
         [](Facts& f) {
             Up(f).entry->flushState = "flush_done";
             SetKnob(f, "cache_all", 0), SetKnob(f, "do_sync", 1);
         }},
        {"a flush that gets on", [](Facts& f) { Stall(f, 59); }},
        {"a flush with nothing left", [](Facts& f) { Stall(f, 600), SetDirty(f, 0); }},
        {"a flush that begins, its knobs half set",
         [](Facts& f) { Up(f).flush.runs = true, SetKnob(f, "cache_all", 0); }},
        {"just at the threshold", [](Facts& f) { SetDirty(f, 204); }},
        {"far above it, but being flushed", [](Facts& f) { Stall(f, 0), SetDirty(f, 900); }},
        {"full, but not yet replaced",
         [](Facts& f) { Thrash(f), (*Up(f).kernel->counters)["replacement"] = 9; }},
        {"full, but read again", [](Facts& f) { Thrash(f), (*Up(f).kernel->counters)["read_hits"] = 5000; }},
        {"full, and few reads but those that bypass it",
         [](Facts& f) { Thrash(f), (*Up(f).kernel->counters)["uncached_sequential_reads"] = 8500; }},
        {"force-remove of a cache that is never dirty",
         [](Facts& f) {
             Up(f).kernel->attribute = FLASHCACHE_ATTRIBUTE_FORCE_REMOVE;
             Up(f).kernel->mode = FLASHCACHE_WRITE_THRU;
             Up(f).entry->policy.WriteMode = FLASHCACHE_WRITE_THRU;
         }},
        {"memory enough", [](Facts& f) { f.memory = {kGiB / 2, 26 * kBlocks}; }},
    };
    for (const auto& [what, spoil] : cases) {
        EXPECT_THAT(CodesIn(Diagnose(Spoilt(spoil))), IsEmpty()) << what;
    }
}

TEST(DoctorChecks, TakeNoChangeThatIsUnderWayForAFault) {
    for (const auto& [code, severity, spoil] : Raising()) {
        const std::set<std::string> transient = {"VFC-D010", "VFC-D012", "VFC-D013", "VFC-D014",
                                                 "VFC-D021", "VFC-D041", "VFC-D043"};
        Facts facts = Spoilt(spoil);
        for (auto& cache : facts.caches) {
            cache.mayBeChanging = true;
        }
        EXPECT_EQ(Diagnose(facts).empty(), transient.contains(code)) << code;
    }
}

TEST(DoctorChecks, AdviseNoCommandThatDestroys) {
    for (const auto& [code, severity, spoil] : Raising()) {
        for (const auto& finding : Diagnose(Spoilt(spoil))) {
            for (const auto& command : finding.commands) {
                for (const char* harm : {"wipe", "delete", "config remove", "discard", "forget",
                                         "accept-stale", "rm ", "mkfs", "dd ", "ignore-write-errors", ">"}) {
                    EXPECT_THAT(command, Not(HasSubstr(harm))) << code;
                }
            }
            EXPECT_TRUE(!finding.advice.empty() || severity == Severity::kUnknown) << code;
        }
    }
}

TEST(DoctorChecks, AreDescribedOnceAndInOrder) {
    std::string last;
    for (const auto& check : AllChecks()) {
        const std::string code = check.code;
        EXPECT_LT(last, code);
        EXPECT_EQ(code.size(), 8U);
        EXPECT_THAT(code, ::testing::StartsWith("VFC-D"));
        EXPECT_LE(std::string(check.title).size(), 50U) << code;
        EXPECT_GE(std::string(check.explanation).size(), 50U) << code;
        EXPECT_TRUE(std::string(check.explanation).ends_with(".")) << code;
        const int forms = (check.ofCache != nullptr ? 1 : 0) + (check.ofAppliance != nullptr ? 1 : 0) +
                          (check.tellsUnread ? 1 : 0);
        EXPECT_EQ(forms, 1) << code;
        last = code;
    }
}

TEST(DoctorChecks, ThatCannotBeMadeAreNamed) {
    Facts facts = Healthy();
    facts.unread = {{Source::kKnobs, "up", "no such file"}};
    for (const std::set<std::string>& codes : {std::set<std::string>{}, {"VFC-D062"}}) {
        const auto findings = Diagnose(facts, codes);
        ASSERT_THAT(CodesIn(findings), ElementsAre("VFC-D103"));
        EXPECT_THAT(findings[0].caches, ElementsAre("up"));
        EXPECT_THAT(findings[0].summary, HasSubstr("no such file"));
        EXPECT_THAT(ToText(findings[0].details.at(0)), HasSubstr("VFC-D062"));
    }
    EXPECT_THAT(Diagnose(facts, {"VFC-D080"}), IsEmpty()) << "that one needs no knobs";
}

TEST(DoctorChecks, AreSortedByWhatIsWorst) {
    Facts facts = Healthy();
    facts.overrides = {"/tmp/cache-debug-remove"};
    facts.unread = {{Source::kMemory, "", "why"}};
    SetError(facts, "write_disk_sync_errors", 1);
    SetKnob(facts, "cache_all", 0);
    EXPECT_THAT(CodesIn(Diagnose(facts)), ElementsAre("VFC-D080", "VFC-D062", "VFC-D111", "VFC-D095"));
}

TEST(DoctorChecks, TellWhyAFlushStandsStill) {
    const std::pair<std::function<void(Facts&)>, const char*> cases[] = {
        {[](Facts& f) { SetError(f, "write_disk_sync_errors", 3); }, "3 write-backs failed"},
        {[](Facts& f) { SetKnob(f, "cache_all", 1); }, "handle state is normal"},
        {[](Facts& f) { SetKnob(f, "stop_sync", 1); }, "stop_sync is set"},
        {[](Facts& f) { SetKnob(f, "max_clean_ios_total", 0); }, "max_clean_ios_total is 0"},
        {[](Facts&) {}, "no progress for 90 seconds."},
    };
    for (const auto& [spoil, why] : cases) {
        Facts facts = Healthy();
        Stall(facts, 90);
        spoil(facts);
        const auto findings = Diagnose(facts, {"VFC-D061"});
        ASSERT_EQ(findings.size(), 1U) << why;
        EXPECT_THAT(findings[0].summary, HasSubstr(why));
    }
}

TEST(DoctorChecks, QuoteNamesInCommands) {
    Facts facts = Healthy();
    Up(facts).name = "a b; reboot";
    Up(facts).entry->isLoaded = false;
    EXPECT_THAT(Diagnose(facts).at(0).commands, ElementsAre("vemocachectl load 'a b; reboot'"));
}

}  // namespace
}  // namespace cli
