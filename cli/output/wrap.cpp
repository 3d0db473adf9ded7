#include "output/wrap.h"

#include <sstream>

#include "output/record.h"

namespace cli {

std::string Wrapped(std::string_view text, std::string_view indent, std::size_t width) {
    std::istringstream words(Printable(text));
    std::string wrapped;
    std::string line;
    for (std::string word; words >> word;) {
        if (!line.empty() && indent.size() + line.size() + 1 + word.size() > width) {
            wrapped.append(indent).append(line).append("\n");
            line.clear();
        }
        line += (line.empty() ? "" : " ") + word;
    }
    return line.empty() ? wrapped : wrapped.append(indent).append(line).append("\n");
}

}  // namespace cli
