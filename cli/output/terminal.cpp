#include "output/terminal.h"

#include <sys/ioctl.h>
#include <unistd.h>

namespace cli {

std::size_t TerminalWidth(int fd) {
    constexpr std::size_t kUsual = 80;
    if (isatty(fd) == 0) {
        return 0;
    }
    winsize size{};
    return ioctl(fd, TIOCGWINSZ, &size) == 0 && size.ws_col > 0 ? size.ws_col : kUsual;
}

}  // namespace cli
