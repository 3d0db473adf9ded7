// The public header taken apart: its comments and what they stand above.
#pragma once

#include <string>
#include <string_view>
#include <vector>

namespace manual {

// Text without its line breaks. A term stands before some: a convention's name, or a parameter's.
struct Passage {
    std::string term;
    std::string text;
    bool isListed = false;  // it has a "-" before it
};

// A comment and the declarations below it.
struct Item {
    std::vector<Passage> passages;
    std::string code;                    // as it stands, without the marks of export
    std::vector<std::string> functions;  // that it declares
};

struct Section {
    std::string title;
    std::vector<Passage> passages;
    std::vector<Item> items;
};

struct PublicHeader {
    std::vector<Passage> passages;  // what holds for all of it
    std::vector<Section> sections;
};

PublicHeader ReadHeader(std::string_view text);

}  // namespace manual
