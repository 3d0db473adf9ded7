#include "report/document.h"

#include <fmt/format.h>

#include <ctime>
#include <nlohmann/json.hpp>

#include "caches/describe_entry.h"
#include "caches/kernel_state.h"
#include "doctor/describe_finding.h"
#include "output/answer.h"
#include "output/json.h"

namespace cli {
namespace {

using Json = nlohmann::ordered_json;

template <typename Type>
Json Known(const std::optional<Type>& value) {
    return value ? Json(*value) : Json();
}

Json Known(const std::string& text) {
    return text.empty() ? Json() : Json(text);
}

Json TextOrNull(const Value& value) {
    const auto* text = std::get_if<std::string>(&value);
    return text == nullptr ? Json() : Json(*text);
}

// What an answer of the tool's has under its key.
Json Told(const Answer& answer) {
    return Json::parse(JsonOf(answer))[answer.key];
}

Json FindingsOf(const Collected& all) {
    Answer answer{"findings", Layout::kTable, {}, "", ""};
    for (const auto& finding : all.findings) {
        answer.records.push_back(DescribeFinding(finding, Form{}));
    }
    return Told(answer);
}

Json MutesOf(const Collected& all) {
    Json mutes = Json::array();
    for (const auto& mute : all.mutes) {
        mutes.push_back({{"code", mute.code},
                         {"cache", Known(mute.cache)},
                         {"until", mute.until},
                         {"severity", SeverityText(mute.severity)},
                         {"count", mute.count}});
    }
    return mutes;
}

Json EntryOf(const CacheFacts& cache) {
    if (!cache.entry) {
        return {};
    }
    const auto& entry = *cache.entry;
    return {{"write_mode", TextOrNull(WriteModeText(entry.policy.WriteMode))},
            {"format", TextOrNull(VersionText(entry.format))},
            {"bytes", entry.bytes},
            {"mount_path", Known(entry.mountPath)},
            {"flush_state", entry.flushState},
            {"loaded", entry.isLoaded},
            {"unfinished", entry.isUnfinished},
            {"ssd_marked_missing", entry.ssdMarkedMissing},
            {"volume_marked_missing", entry.volumeMarkedMissing}};
}

Json KernelOf(const CacheFacts& cache) {
    if (!cache.kernel) {
        return {};
    }
    const auto& kernel = *cache.kernel;
    return {
        {"write_mode", kernel.mode ? TextOrNull(WriteModeText(*kernel.mode)) : Json()},
        {"block_size", kernel.blockSize},
        {"blocks", Known(kernel.blocks)},
        {"cached_blocks", Known(kernel.cachedBlocks)},
        {"dirty_blocks", Known(kernel.dirtyBlocks)},
        {"bytes", Known(kernel.bytes)},
        {"attribute", kernel.attribute ? TextOrNull(AttributeText(*kernel.attribute)) : Json()},
        {"handle_state", kernel.knobs ? TextOrNull(HandleStateText(HandleStateIn(*kernel.knobs))) : Json()},
        {"knobs", kernel.knobs ? Json(*kernel.knobs) : Json()},
        {"errors", kernel.errors ? Json(*kernel.errors) : Json()},
        {"counters", kernel.counters ? Json(*kernel.counters) : Json()}};
}

Json SuperblockOf(const SsdContent& content) {
    return {{"ssd", content.ssd},
            {"volume", content.volume},
            {"write_mode", TextOrNull(WriteModeText(content.mode))},
            {"format", TextOrNull(VersionText(content.format))},
            {"block_size", content.blockSize},
            {"blocks", content.blocks},
            {"in_order", content.inOrder},
            {"dirty_blocks", Known(content.dirtyBlocks)}};
}

Json SsdOf(const Collected& all, const CacheFacts& cache) {
    const auto& ssd = cache.ssdSide;
    const auto bytes = all.ssdBytes.find(cache.ssd);
    Json disks = Json::array();
    for (const auto& disk : ssd.disks) {
        disks.push_back({{"model", disk.model}, {"bytes", disk.bytes}});
    }
    return {{"path", Known(cache.ssd)},
            {"exists", ssd.isThere},
            {"bytes", bytes == all.ssdBytes.end() ? Json() : Json(bytes->second)},
            {"superblock", ssd.content ? SuperblockOf(*ssd.content) : Json()},
            {"unknown_layout", ssd.isOfUnknownLayout},
            {"other_volume", ssd.isOfOtherVolume},
            {"disks", disks},
            {"unsupported", ssd.unsupported}};
}

Json VolumeOf(const CacheFacts& cache) {
    const auto& volume = cache.volumeSide;
    const auto since = volume.since.volume;
    return {{"path", Known(cache.volume)},
            {"exists", volume.isThere},
            {"bytes", Known(volume.bytes)},
            {"mounts", volume.mounts},
            {"since_unload", since == SinceUnload::Volume::kWritten ? Json("written")
                             : since == SinceUnload::Volume::kSame  ? Json("same")
                                                                    : Json()},
            {"unloaded_at", Known(volume.since.when)}};
}

Json CachesOf(const Collected& all) {
    Json caches = Json::array();
    for (const auto& cache : all.facts.caches) {
        caches.push_back({{"name", cache.name},
                          {"state", cache.IsUp()    ? "running"
                                    : cache.mayBeUp ? "unknown"
                                                    : "unloaded"},
                          {"device", Known(cache.device)},
                          {"entry", EntryOf(cache)},
                          {"entry_unknown", cache.entryIsUnknown},
                          {"kernel", KernelOf(cache)},
                          {"ssd", SsdOf(all, cache)},
                          {"volume", VolumeOf(cache)},
                          {"flush",
                           {{"running", cache.flush.runs},
                            {"seconds_without_progress", Known(cache.flush.secondsWithoutProgress)}}}});
    }
    return caches;
}

Json ConfigurationOf(const ConfigFacts& config) {
    Json damage;
    if (config.damage) {
        damage = {{"line", Known(config.damage->line)}, {"why", config.damage->why}};
    }
    return {{"damage", damage},
            {"has_copy", config.hasCopy},
            {"copy_is_foreign", config.copyIsForeign},
            {"copy_differs", config.copyDiffers}};
}

const char* SourceText(Source source) {
    constexpr std::array kTexts = {"configuration", "table",    "knobs",     "dirty_blocks",
                                   "errors",        "counters", "attribute", "superblock",
                                   "block_list",    "database", "memory",    "locks"};
    return kTexts.at(static_cast<std::size_t>(source));
}

Json ApplianceOf(const Collected& all) {
    const Facts& facts = all.facts;
    Json mounts = Json::array();
    for (const auto& [folder, device] : all.mounts) {
        mounts.push_back({{"device", device}, {"folder", folder}});
    }
    Json locks = Json::array();
    for (const auto& lock : facts.locks) {
        locks.push_back({{"path", lock.path},
                         {"foreign", lock.isForeign},
                         {"holders", lock.holders},
                         {"signature", Known(lock.signature)},
                         {"signer_is_gone", lock.signerIsGone}});
    }
    Json unread = Json::array();
    for (const auto& one : facts.unread) {
        unread.push_back({{"source", SourceText(one.source)}, {"cache", Known(one.cache)}, {"why", one.why}});
    }
    return {{"memory_bytes", Known(facts.memory.total)},
            {"memory_available_bytes", Known(facts.memory.available)},
            {"mounts", mounts},
            {"locks", locks},
            {"stray_pins", facts.strayPins},
            {"overrides", facts.overrides},
            {"dead_file_run", Known(facts.deadFileRun)},
            {"unread", unread}};
}

Json ItemsOf(const Collected& all) {
    Json items = Json::array();
    for (const auto& item : all.items) {
        items.push_back({{"kind", item.isCommand ? "command" : "file"},
                         {"name", item.name},
                         {"exists", item.isThere},
                         {"error", Known(item.error)},
                         {"exit_code", Known(item.code)},
                         {"milliseconds", item.milliseconds},
                         {"user", item.user ? Json(*item.user) : Json()},
                         {"cut", item.isCut},
                         {"text", item.text}});
    }
    return items;
}

Json SamplesOf(const Collected& all) {
    Json samples = Json::array();
    for (const auto& sample : all.samples) {
        Answer answer{"caches", Layout::kTable, {}, "", ""};
        for (const auto& cache : sample.round.caches) {
            answer.records.push_back(Interval(cache.ToSpan()));
            for (const auto& field : SinceLoad(cache.now).fields) {
                if (field.key == "read_hit_percent" || field.key == "write_hit_percent" ||
                    field.key == "cached_percent") {
                    answer.records.back().fields.push_back(field);
                }
            }
        }
        samples.push_back({{"seconds", sample.seconds}, {"caches", Told(answer)}});
    }
    return samples;
}

// All texts of it, those of keys aside, which are ours.
void ReplaceIn(Json& json, StandIns& standIns) {
    if (json.is_string()) {
        json = standIns.Replace(json.get_ref<const std::string&>());
    } else if (json.is_structured()) {
        for (auto& item : json) {
            ReplaceIn(item, standIns);
        }
    }
}

std::string IsoUtc(std::int64_t time) {
    const std::time_t seconds = time;
    std::tm parts{};
    gmtime_r(&seconds, &parts);
    std::array<char, 32> text{};
    const auto size = std::strftime(text.data(), text.size(), "%Y-%m-%dT%H:%M:%SZ", &parts);
    return {text.data(), size};
}

}  // namespace

std::string DocumentOf(const Collected& all, StandIns* standIns) {
    const Totals totals = TotalsOf(all.findings);
    Json document = {{"format_version", kReportVersion},
                     {"made_at", IsoUtc(all.time)},
                     {"names_replaced", standIns != nullptr},
                     {"seconds", all.seconds},
                     {"versions",
                      {{"tool", "vemocachectl " VEMO_VERSION},
                       {"library", Known(all.library)},
                       {"kernel", all.kernel},
                       {"machine", all.machine}}},
                     {"host", all.host},
                     {"findings", FindingsOf(all)},
                     {"total", Told(One("total", totals.Fields(all.facts.caches.size())))},
                     {"mutes", MutesOf(all)},
                     {"configuration", ConfigurationOf(all.facts.config)},
                     {"caches", CachesOf(all)},
                     {"appliance", ApplianceOf(all)},
                     {"unmade", all.unmade},
                     {"samples", SamplesOf(all)},
                     {"log", all.log},
                     {"items", ItemsOf(all)}};
    if (standIns != nullptr) {
        ReplaceIn(document, *standIns);
    }
    return document.dump(1, ' ', false, Json::error_handler_t::replace) + "\n";
}

}  // namespace cli
