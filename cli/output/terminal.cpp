#include "output/terminal.h"

#include <langinfo.h>
#include <locale.h>
#include <sys/ioctl.h>
#include <unistd.h>

#include <cstdlib>
#include <string_view>

namespace cli {
namespace {

std::string_view Variable(const char* name) {
    const char* value = std::getenv(name);
    return value == nullptr ? "" : value;
}

}  // namespace

TerminalSize SizeOfTerminal(int fd) {
    constexpr TerminalSize kUsual = {80, 24};
    if (isatty(fd) == 0) {
        return {};
    }
    winsize size{};
    if (ioctl(fd, TIOCGWINSZ, &size) != 0) {
        return kUsual;
    }
    return {size.ws_col > 0 ? size.ws_col : kUsual.columns, size.ws_row > 0 ? size.ws_row : kUsual.rows};
}

std::size_t TerminalWidth(int fd) {
    return SizeOfTerminal(fd).columns;
}

bool CanMoveCursor() {
    const auto term = Variable("TERM");
    return !term.empty() && term != "dumb";
}

bool WantsColour() {
    return Variable("NO_COLOR").empty();
}

bool HasUtf8() {
    // A locale of its own: that of the process stays "C", by which it reads and writes numbers.
    const locale_t locale = newlocale(LC_CTYPE_MASK, "", static_cast<locale_t>(nullptr));
    if (locale == static_cast<locale_t>(nullptr)) {
        return false;
    }
    const bool isUtf8 = std::string_view(nl_langinfo_l(CODESET, locale)) == "UTF-8";
    freelocale(locale);
    return isUtf8;
}

std::string CutToWidth(const std::string& text, std::size_t columns) {
    std::size_t end = 0;
    for (std::size_t width = 0; end < text.size(); ++end) {
        const bool begins = (static_cast<unsigned char>(text[end]) & 0xC0U) != 0x80U;
        if (begins && ++width > columns) {
            break;
        }
    }
    return text.substr(0, end);
}

}  // namespace cli
