#include "simulation/kernel/system_log.h"

#include <sys/socket.h>
#include <sys/stat.h>

#include <array>
#include <charconv>
#include <ctime>

#include "simulation/common/checked.h"

namespace simulation {

namespace {

constexpr size_t kDateLength = 16;  // "Jan  1 12:00:00 "
constexpr int kDefaultSeverity = 5;

}  // namespace

std::string FormatLogLine(std::string_view datagram) {
    int priority = kDefaultSeverity;
    const size_t close = datagram.find('>');
    if (datagram.starts_with('<') && close != std::string_view::npos) {
        std::from_chars(datagram.data() + 1, datagram.data() + close, priority);
        datagram.remove_prefix(close + 1);
    }
    while (datagram.ends_with('\n') || datagram.ends_with('\0')) {
        datagram.remove_suffix(1);
    }
    std::string line(datagram.substr(0, kDateLength));
    line += "<" + std::to_string(priority & 7) + "> ";
    for (const char c : datagram.substr(line.size() > kDateLength ? kDateLength : datagram.size())) {
        line += c == '\n' ? "#012" : std::string(1, c);
    }
    return line + "\n";
}

void SystemLog::Drain() {
    std::array<char, 65536> datagram{};
    for (;;) {
        const ssize_t length = recv(socket_.Get(), datagram.data(), datagram.size(), MSG_DONTWAIT);
        if (length < 0) {
            return;
        }
        const std::string line = FormatLogLine({datagram.data(), static_cast<size_t>(length)});
        Append(line);
    }
}

std::string SystemLog::Read() {
    Drain();
    struct stat status{};
    Checked(fstat(file_.Get(), &status), "the system log");
    std::string text(static_cast<size_t>(status.st_size), '\0');
    const ssize_t length = Checked(pread(file_.Get(), text.data(), text.size(), 0), "the system log");
    text.resize(static_cast<size_t>(length));
    return text;
}

void SystemLog::Append(std::string_view line) {
    if (write(file_.Get(), line.data(), line.size()) < 0) {
        return;  // there is nowhere to tell
    }
}

void SystemLog::AppendNow(int severity, const std::string& text) {
    const std::time_t now = std::time(nullptr);
    std::tm local{};
    localtime_r(&now, &local);
    std::array<char, kDateLength + 1> date{};
    (void)std::strftime(date.data(), date.size(), "%b %e %H:%M:%S ", &local);
    Append(FormatLogLine("<" + std::to_string(severity) + ">" + date.data() + text));
}

void SystemLog::Clear() {
    Drain();
    Checked(ftruncate(file_.Get(), 0), "the system log");
}

}  // namespace simulation
