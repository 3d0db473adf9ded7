#include "completion/complete.h"

#include <fmt/format.h>

#include <algorithm>
#include <optional>
#include <span>

namespace cli {
namespace {

// What the words before the cursor mean.
struct Cursor {
    const std::vector<Verb>* verbs = nullptr;  // that may be named next; empty: none
    std::vector<Argument> arguments;
    std::vector<std::string> given;   // names of arguments
    std::optional<Argument> awaited;  // an option whose value comes next
    bool onlyPositionals = false;     // after "--"
};

const Argument* FindOption(const Cursor& cursor, const std::string& spelling) {
    const auto found =
        std::find_if(cursor.arguments.begin(), cursor.arguments.end(), [&](const Argument& one) {
            const auto spellings = SpellingsOf(one);
            return IsOption(one) &&
                   std::find(spellings.begin(), spellings.end(), spelling) != spellings.end();
        });
    return found == cursor.arguments.end() ? nullptr : &*found;
}

bool IsGiven(const Cursor& cursor, const std::string& name) {
    return std::find(cursor.given.begin(), cursor.given.end(), name) != cursor.given.end();
}

// The positional argument whose turn it is.
const Argument* NextPositional(const Cursor& cursor) {
    const auto found =
        std::find_if(cursor.arguments.begin(), cursor.arguments.end(), [&](const Argument& one) {
            return !IsOption(one) && (MayRepeat(one) || !IsGiven(cursor, one.name));
        });
    return found == cursor.arguments.end() ? nullptr : &*found;
}

void StepOverOption(Cursor& cursor, const std::string& word) {
    const auto equals = word.find('=');
    if (const Argument* option = FindOption(cursor, word.substr(0, equals))) {
        cursor.given.push_back(option->name);
        if (!IsFlag(*option) && equals == std::string::npos) {
            cursor.awaited = *option;
        }
    }
}

void StepOver(Cursor& cursor, const std::string& word) {
    if (cursor.awaited) {
        cursor.awaited.reset();
    } else if (word == "--") {
        cursor.onlyPositionals = true;
    } else if (word.starts_with('-') && !cursor.onlyPositionals) {
        StepOverOption(cursor, word);
    } else if (!cursor.verbs->empty()) {
        const auto verb = std::find_if(cursor.verbs->begin(), cursor.verbs->end(),
                                       [&](const Verb& one) { return one.name == word; });
        static const std::vector<Verb> kNone;
        if (verb == cursor.verbs->end()) {
            cursor.verbs = &kNone;
            return;
        }
        cursor.arguments.insert(cursor.arguments.begin(), verb->arguments.begin(), verb->arguments.end());
        cursor.verbs = &verb->verbs;
    } else if (const Argument* positional = NextPositional(cursor)) {
        cursor.given.push_back(positional->name);
    }
}

void OfferNames(Offers& offers, const std::vector<Offer>& names, const std::string& before) {
    for (const auto& name : names) {
        offers.words.push_back({before + name.word, name.help});
    }
}

void OfferValues(Offers& offers, const Argument& argument, const std::string& typed,
                 const NamesOfKind& names) {
    const auto colon = typed.find(':');
    for (const auto& choice : argument.choices) {
        offers.words.push_back({choice, ""});
    }
    switch (argument.completion) {
        case Completion::kNone:
            break;
        case Completion::kCache:
        case Completion::kEntry:
        case Completion::kCheck:
            OfferNames(offers, names(argument.completion), "");
            // Caches go by the paths of their devices, too.
            if (argument.completion != Completion::kCheck && typed.starts_with('/')) {
                offers.paths = Completion::kFile;
            }
            break;
        case Completion::kMute:
            OfferNames(offers, names(colon == std::string::npos ? Completion::kCheck : Completion::kCache),
                       colon == std::string::npos ? "" : typed.substr(0, colon + 1));
            break;
        case Completion::kDevice:
        case Completion::kFile:
            offers.paths = Completion::kFile;
            break;
        case Completion::kFolder:
            offers.paths = Completion::kFolder;
            break;
    }
}

// Those that may still be given.
void OfferOptions(Offers& offers, const Cursor& cursor) {
    for (const auto& argument : cursor.arguments) {
        const auto isGiven = [&](const std::string& name) { return IsGiven(cursor, name); };
        if (IsOption(argument) && (MayRepeat(argument) || !isGiven(argument.name)) &&
            std::none_of(argument.excludes.begin(), argument.excludes.end(), isGiven)) {
            offers.words.push_back({SpellingsOf(argument).back(), InShort(argument.help)});
        }
    }
    offers.words.push_back({"--help", "tell more"});
}

void OfferVerbs(Offers& offers, const std::vector<Verb>& verbs) {
    for (const auto& verb : verbs) {
        offers.words.push_back({verb.name, InShort(verb.help)});
    }
}

Offers OffersAt(const Cursor& cursor, const std::string& typed, const NamesOfKind& names) {
    Offers offers;
    const auto equals = typed.find('=');
    const Argument* option = FindOption(cursor, typed.substr(0, equals));
    if (cursor.awaited) {
        OfferValues(offers, *cursor.awaited, typed, names);
    } else if (typed.starts_with("--") && equals != std::string::npos && option != nullptr) {
        OfferValues(offers, *option, typed.substr(equals + 1), names);
        for (auto& offer : offers.words) {
            offer.word.insert(0, typed, 0, equals + 1);
        }
    } else if (typed.starts_with('-') && !cursor.onlyPositionals) {
        OfferOptions(offers, cursor);
    } else if (!cursor.verbs->empty()) {
        OfferVerbs(offers, *cursor.verbs);
    } else if (const Argument* positional = NextPositional(cursor)) {
        OfferValues(offers, *positional, typed, names);
    }
    return offers;
}

}  // namespace

Offers OffersFor(const std::vector<std::string>& words, const std::vector<Verb>& verbs,
                 const NamesOfKind& names) {
    if (words.empty()) {
        return {};
    }
    const bool isHelp = words.front() == "help" && words.size() > 1;
    Context context;
    Cursor cursor;
    cursor.verbs = &verbs;
    cursor.arguments = isHelp ? NoArguments() : GeneralArguments(context);
    for (const auto& word : std::span(words).subspan(isHelp ? 1 : 0, words.size() - (isHelp ? 2 : 1))) {
        StepOver(cursor, word);
    }
    if (isHelp) {
        cursor.arguments.clear();
    }
    const std::string& typed = words.back();
    Offers offers = OffersAt(cursor, typed, names);
    if (words.size() == 1) {
        offers.words.push_back({"help", "tell more about a verb"});
        offers.words.push_back({"--version", "tell which tool it is"});
    }
    std::erase_if(offers.words, [&](const Offer& offer) { return !offer.word.starts_with(typed); });
    return offers;
}

std::string TextOf(const Offers& offers) {
    std::string text = offers.paths == Completion::kFile     ? "files\n"
                       : offers.paths == Completion::kFolder ? "folders\n"
                                                             : "words\n";
    for (const auto& offer : offers.words) {
        text += offer.help.empty() ? offer.word + "\n" : fmt::format("{}\t{}\n", offer.word, offer.help);
    }
    return text;
}

}  // namespace cli
