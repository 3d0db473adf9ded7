// What a shell may offer on a command line of ours, made from the verbs' own data. The scripts in
// contrib/completion ask for it with "vemocachectl --complete WORD...", where the last word is the one to be
// completed.
#pragma once

#include <functional>
#include <string>
#include <vector>

#include "verbs/verb.h"

namespace cli {

struct Offer {
    std::string word;
    std::string help;  // in a few words; may be empty
};

// Words, or the paths that the shell knows best: kFile or kFolder.
struct Offers {
    std::vector<Offer> words;
    Completion paths = Completion::kNone;
};

// The names that there are of a kind (kCache, kEntry, kCheck); nothing where they cannot be told.
using NamesOfKind = std::function<std::vector<Offer>(Completion)>;

Offers OffersFor(const std::vector<std::string>& words, const std::vector<Verb>& verbs,
                 const NamesOfKind& names);

// The same as the scripts read it: "words", "files" or "folders", then an offer a line, a tab before its
// help.
std::string TextOf(const Offers& offers);

// Those of this appliance. It never fails, and asks no device, as someone waits with a key pressed.
std::vector<Offer> NamesHere(Completion kind);

}  // namespace cli
