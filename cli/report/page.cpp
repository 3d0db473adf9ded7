#include "report/page.h"

#include <fmt/format.h>

#include <nlohmann/json.hpp>

#include "output/record.h"
#include "report/chart.h"
#include "report/page_style.h"

namespace cli {
namespace {

using Json = nlohmann::ordered_json;

constexpr std::size_t kShownLogLines = 300;

std::string TextOf(const Json& json) {
    if (json.is_null()) {
        return "not known";
    }
    if (json.is_boolean()) {
        return json.get<bool>() ? "yes" : "no";
    }
    if (json.is_array()) {
        std::string text;
        for (const auto& one : json) {
            text += (text.empty() ? "" : ", ") + TextOf(one);
        }
        return text.empty() ? "none" : text;
    }
    if (!json.is_string()) {
        return json.dump();
    }
    return json.get_ref<const std::string&>().empty() ? "none" : json.get<std::string>();
}

// A key as a label: "dirty_blocks" is "Dirty blocks".
std::string LabelOf(std::string key) {
    std::replace(key.begin(), key.end(), '_', ' ');
    for (auto at = key.find("ssd"); at != std::string::npos; at = key.find("ssd", at)) {
        key.replace(at, 3, "SSD");
    }
    if (!key.empty() && key[0] >= 'a' && key[0] <= 'z') {
        key[0] = static_cast<char>(key[0] - 'a' + 'A');
    }
    return key;
}

// A size is for people, too.
std::string ValueText(const std::string& key, const Json& value) {
    const bool isSize = value.is_number_unsigned() && (key.ends_with("bytes") || key == "block_size");
    return isSize ? fmt::format("{} ({} bytes)", HumanSize(value.get<std::uint64_t>()),
                                value.get<std::uint64_t>())
                  : TextOf(value);
}

// A record without what has parts of its own.
std::string TableOf(const Json& record) {
    std::string rows;
    for (const auto& [key, value] : record.items()) {
        if (!value.is_object()) {
            rows += fmt::format("<tr><th scope=\"row\">{}</th><td>{}</td></tr>\n", Escaped(LabelOf(key)),
                                Escaped(ValueText(key, value)));
        }
    }
    return rows.empty() ? "<p class=\"soft\">none</p>\n" : "<table>\n" + rows + "</table>\n";
}

std::string Titled(const std::string& title, const Json& record) {
    return record.is_object() ? fmt::format("<div><h3>{}</h3>\n{}</div>\n", title, TableOf(record)) : "";
}

std::string FindingOf(const Json& finding) {
    const bool isMuted = finding["muted"].get<bool>();
    std::string text = fmt::format(
        "<article class=\"finding {0}{1}\"><p><span class=\"rank\">{0}{2}</span> <code>{3}</code> {4}</p>\n"
        "<p><strong>{5}</strong></p>\n",
        Escaped(TextOf(finding["severity"])), isMuted ? " muted" : "", isMuted ? ", muted" : "",
        Escaped(TextOf(finding["code"])), finding["caches"].empty() ? "" : Escaped(TextOf(finding["caches"])),
        Escaped(TextOf(finding["summary"])));
    text += fmt::format("<p>Can data be lost: {}</p>\n", Escaped(TextOf(finding["data_loss"])));
    if (!finding["details"].empty()) {
        text += TableOf(finding["details"]);
    }
    if (!finding["advice"].is_null()) {
        text += fmt::format("<p>{}</p>\n", Escaped(TextOf(finding["advice"])));
    }
    for (const auto& command : finding["commands"]) {
        text += fmt::format("<pre>{}</pre>\n", Escaped(TextOf(command)));
    }
    return text + "</article>\n";
}

std::string FindingsPart(const Json& report) {
    std::string text = "<section id=\"findings\"><h2>Findings</h2>\n";
    if (report["findings"].empty()) {
        text += "<article class=\"finding good\"><p><strong>Nothing is wrong.</strong></p></article>\n";
    }
    for (const auto& finding : report["findings"]) {
        text += FindingOf(finding);
    }
    for (const auto& unmade : report["unmade"]) {
        text += fmt::format(
            "<article class=\"finding unknown\"><p><span class=\"rank\">not in the "
            "report</span></p><p>{}</p></article>\n",
            Escaped(TextOf(unmade)));
    }
    return text + "</section>\n";
}

// One number of a cache in each sample.
ChartLine LineOf(const Json& samples, const std::string& cache, const std::string& label,
                 const std::string& key) {
    ChartLine line{label, {}};
    for (const auto& sample : samples) {
        for (const auto& one : sample["caches"]) {
            if (one["name"] == cache) {
                const auto value = one.find(key);
                const bool isKnown = value != one.end() && value->is_number();
                line.points.push_back({sample["seconds"].get<double>(),
                                       isKnown ? std::optional(value->get<double>()) : std::nullopt});
            }
        }
    }
    return line;
}

std::string ChartsOf(const Json& samples, const std::string& cache) {
    const auto line = [&](const char* label, const char* key) { return LineOf(samples, cache, label, key); };
    constexpr double kAll = 100;
    const Chart charts[] = {
        {"Hit rate",
         "%",
         {line("reads, in each interval", "interval_read_hit_percent"),
          line("writes, in each interval", "interval_write_hit_percent"),
          line("reads, since loading", "read_hit_percent")},
         kAll},
        {"Blocks in use", "%", {line("dirty", "dirty_percent"), line("cached", "cached_percent")}, kAll},
        {"Dirty data", "B", {line("not on the volume yet", "dirty_bytes")}},
        {"Write-back", "B/s", {line("written back to the volume", "write_back_bytes_per_second")}},
        {"Requests", "/s", {line("reads", "reads_per_second"), line("writes", "writes_per_second")}}};
    std::string text = "<h3>Over the sampled time</h3>\n<div class=\"charts\">\n";
    for (const auto& chart : charts) {
        text += SvgOf(chart);
    }
    return text + "</div>\n";
}

std::string CachePart(const Json& report, const Json& cache, std::size_t number) {
    const std::string name = TextOf(cache["name"]);
    std::string text =
        fmt::format("<section class=\"cache\" id=\"cache-{}\"><h2>Cache {}</h2>\n<p>{}{}</p>\n", number,
                    Escaped(name), Escaped(LabelOf(TextOf(cache["state"]))),
                    cache["device"].is_null() ? "" : " as " + Escaped(TextOf(cache["device"])));
    if (cache["state"] == "running") {
        text += ChartsOf(report["samples"], name);
    }
    text += "<div class=\"columns\">\n";
    text += Titled("As it is configured", cache["entry"]);
    text += Titled("As the kernel tells it", cache["kernel"]);
    text += Titled("Its SSD", cache["ssd"]);
    text += Titled("As the SSD tells it", cache["ssd"]["superblock"]);
    text += Titled("Its volume", cache["volume"]);
    text += Titled("Its flush", cache["flush"]);
    if (cache["kernel"].is_object()) {
        text += Titled("Knobs", cache["kernel"]["knobs"]);
        text += Titled("Errors", cache["kernel"]["errors"]);
        text += Titled("Counters", cache["kernel"]["counters"]);
    }
    return text + "</div></section>\n";
}

std::string ItemsPart(const Json& report) {
    std::string rows;
    std::string texts;
    for (const auto& item : report["items"]) {
        const std::string name = TextOf(item["name"]);
        const std::string outcome = !item["error"].is_null() ? TextOf(item["error"]) : "read";
        rows += fmt::format("<tr><td><code>{}</code></td><td>{}</td><td>{:.1f} ms</td></tr>\n", Escaped(name),
                            Escaped(outcome), item["milliseconds"].get<double>());
        const bool isShown = name.ends_with(".conf") || item["kind"] == "command";
        if (isShown && !item["text"].get_ref<const std::string&>().empty()) {
            texts += fmt::format("<h3><code>{}</code></h3>\n<pre>{}</pre>\n", Escaped(name),
                                 Escaped(TextOf(item["text"])));
        }
    }
    return "<section id=\"files\"><h2>Files and commands</h2>\n" + texts +
           "<h3>What was read and run</h3>\n<table>\n<tr><th>Name</th><th>Outcome</th><th>Time</th></tr>\n" +
           rows + "</table></section>\n";
}

std::string LogPart(const Json& report) {
    const Json& log = report["log"];
    const std::size_t first = log.size() > kShownLogLines ? log.size() - kShownLogLines : 0;
    std::string lines;
    for (std::size_t i = first; i < log.size(); ++i) {
        lines += Escaped(TextOf(log[i])) + "\n";
    }
    return fmt::format(
        "<section id=\"log\"><h2>Log</h2>\n<p class=\"soft\">{} of {} lines</p>\n<pre>{}</pre></section>\n",
        log.size() - first, log.size(), lines);
}

std::string HeadPart(const Json& report) {
    const Json& total = report["total"];
    std::string links = "<a href=\"#findings\">Findings</a>";
    std::size_t number = 0;
    for (const auto& cache : report["caches"]) {
        links += fmt::format(" <a href=\"#cache-{}\">{}</a>", number++, Escaped(TextOf(cache["name"])));
    }
    return fmt::format(
        "<header><h1>SSD caches of {}</h1>\n<p class=\"soft\">{}, by {}; {}</p>\n"
        "<p>{} caches: {} critical, {} warnings, {} could not be told, {} infos, {} muted</p>\n"
        "<nav>{} <a href=\"#appliance\">Appliance</a> <a href=\"#files\">Files and commands</a> "
        "<a href=\"#log\">Log</a></nav></header>\n",
        Escaped(TextOf(report["host"])), Escaped(TextOf(report["made_at"])),
        Escaped(TextOf(report["versions"]["tool"])),
        report["names_replaced"].get<bool>() ? "names are replaced by stand-ins" : "names are as they are",
        TextOf(total["caches"]), TextOf(total["critical"]), TextOf(total["warning"]),
        TextOf(total["unknown"]), TextOf(total["info"]), TextOf(total["muted"]), links);
}

}  // namespace

std::string PageOf(const std::string& document) {
    const Json report = Json::parse(document);
    std::string page = fmt::format(
        "<!DOCTYPE html>\n<html lang=\"en\"><head><meta charset=\"utf-8\">\n"
        "<meta name=\"viewport\" content=\"width=device-width, initial-scale=1\">\n"
        "<meta http-equiv=\"Content-Security-Policy\" content=\"default-src 'none'; style-src "
        "'unsafe-inline'\">\n<title>SSD caches of {}</title>\n<style>{}</style></head>\n<body>\n",
        Escaped(TextOf(report["host"])), kPageStyle);
    page += HeadPart(report) + "<main>\n" + FindingsPart(report);
    std::size_t number = 0;
    for (const auto& cache : report["caches"]) {
        page += CachePart(report, cache, number++);
    }
    page += "<section id=\"appliance\"><h2>Appliance</h2>\n<div class=\"columns\">\n";
    page += Titled("Versions", report["versions"]) + Titled("Configuration", report["configuration"]) +
            Titled("The rest", report["appliance"]);
    page += "</div></section>\n" + ItemsPart(report) + LogPart(report);
    return page + "</main></body></html>\n";
}

}  // namespace cli
