// vemo-manual: writes the sources of all manual pages, for scdoc. It is a tool of the build and is not
// installed.
#include <fmt/format.h>

#include <exception>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <map>
#include <stdexcept>

#include "manual/library_page.h"
#include "manual/scdoc.h"
#include "manual/verb_page.h"
#include "simulation/kernel/fault_kinds.h"
#include "verbs/verbs.h"

namespace {

namespace fs = std::filesystem;

std::string ReadText(const fs::path& path) {
    std::ifstream file(path);
    std::string text{std::istreambuf_iterator<char>(file), {}};
    if (!file) {
        throw std::runtime_error(fmt::format("{} cannot be read", path.string()));
    }
    return text;
}

void WriteText(const fs::path& path, const std::string& text) {
    std::ofstream file(path);
    file << text;
    if (!file.flush()) {
        throw std::runtime_error(fmt::format("{} cannot be written", path.string()));
    }
}

// The first program in C of a document.
std::string ExampleIn(const std::string& document) {
    constexpr std::string_view kBegin = "```c\n";
    const auto begin = document.find(kBegin) + kBegin.size();
    return document.substr(begin, document.find("```", begin) - begin);
}

// What a page that was written by hand has from the programs, in the place of its name.
void Fill(std::string& text) {
    const std::map<std::string, std::string> parts = {
        {"@version@", VEMO_VERSION},
        {"@verbs@\n", manual::VerbList(cli::AllVerbs())},
        {"@options@\n", manual::GeneralOptions()},
        {"@exit-codes@\n", manual::ExitCodes(cli::kExitCodes)},
        {"@faults@\n", manual::Literal(simulation::FaultKindsText())}};
    for (const auto& [mark, part] : parts) {
        if (const auto at = text.find(mark); at != std::string::npos) {
            text.replace(at, mark.size(), part);
        }
    }
}

// The library's pages; each function's own is an alias of the page that tells of it.
void WriteLibrary(const manual::PublicHeader& header, const std::string& example, const fs::path& out) {
    WriteText(out / "libvemoflashcache.3.scd", manual::LibraryPage(header, example));
    for (const auto& section : header.sections) {
        const std::string page = manual::PageName(section) + ".3";
        WriteText(out / (page + ".scd"), manual::SectionPage(section));
        for (const auto& item : section.items) {
            for (const auto& function : item.functions) {
                WriteText(out / (function + ".3"), ".so man3/" + page + "\n");
            }
        }
    }
}

void Write(const fs::path& source, const fs::path& out) {
    fs::create_directories(out);
    WriteLibrary(manual::ReadHeader(ReadText(source / "include/vemoflashcache.h")),
                 ExampleIn(ReadText(source / "README.md")), out);
    for (const auto& verb : cli::AllVerbs()) {
        WriteText(out / fmt::format("vemocachectl-{}.8.scd", verb.name), manual::VerbPage(verb));
    }
    for (const auto& page : fs::directory_iterator(source / "manual")) {
        if (page.path().extension() == ".scd") {
            std::string text = ReadText(page);
            Fill(text);
            WriteText(out / page.path().filename(), text);
        }
    }
}

}  // namespace

int main(int argc, char** argv) {
    try {
        if (argc != 3) {
            throw std::runtime_error("usage: vemo-manual SOURCE OUT");
        }
        Write(argv[1], argv[2]);
        return 0;
    } catch (const std::exception& error) {
        fmt::print(stderr, "vemo-manual: {}\n", error.what());
        return 1;
    }
}
