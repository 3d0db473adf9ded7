// Runs a target over the inputs of a folder: what once failed must not again. And for a second over changed
// ones, the same in every run as far as it comes: each target's promises are looked at with each change of
// the tree. The input that fails is left in the current folder.
#include <fcntl.h>

#include <algorithm>
#include <chrono>
#include <csignal>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <random>
#include <vector>

#include "fuzz/target.h"

namespace {

using Input = std::vector<std::uint8_t>;

constexpr auto kTime = std::chrono::seconds(1);
constexpr std::size_t kLongest = 4096;

Input current;

void Keep(int signal) {
    const int fd = open("failing-input", O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0644);
    if (write(fd, current.data(), current.size()) >= 0) {
        constexpr std::string_view kTold = "the input is left in ./failing-input\n";
        [[maybe_unused]] const ssize_t told = write(STDERR_FILENO, kTold.data(), kTold.size());
    }
    std::signal(signal, SIG_DFL);
    raise(signal);
}

void Try(Input input) {
    current = std::move(input);
    LLVMFuzzerTestOneInput(current.data(), current.size());
}

std::vector<Input> Kept(const char* folder) {
    std::vector<std::filesystem::path> paths;
    for (const auto& entry : std::filesystem::directory_iterator(folder)) {
        paths.push_back(entry.path());
    }
    std::sort(paths.begin(), paths.end());
    std::vector<Input> inputs;
    for (const auto& path : paths) {
        std::ifstream stream(path, std::ios::binary);
        inputs.emplace_back(std::istreambuf_iterator<char>(stream), std::istreambuf_iterator<char>());
    }
    return inputs;
}

// One change: a byte, a piece left out, or a piece of another input put in.
void Change(Input& input, const Input& other, std::mt19937& random) {
    const auto at = [&](const Input& in) { return static_cast<std::ptrdiff_t>(random() % (in.size() + 1)); };
    const std::ptrdiff_t begin = at(input);
    const std::ptrdiff_t end = std::min<std::ptrdiff_t>(begin + static_cast<std::ptrdiff_t>(random() % 16),
                                                        static_cast<std::ptrdiff_t>(input.size()));
    switch (random() % 4) {
        case 0:
            input.erase(input.begin() + begin, input.begin() + end);
            break;
        case 1: {
            const std::ptrdiff_t from = at(other);
            const std::ptrdiff_t to = from + static_cast<std::ptrdiff_t>(random()) %
                                                 (static_cast<std::ptrdiff_t>(other.size()) - from + 1);
            input.insert(input.begin() + begin, other.begin() + from, other.begin() + to);
            break;
        }
        case 2:
            input.insert(input.begin() + begin, random() % 24,
                         static_cast<std::uint8_t>("0-9 =[]%\n\0\xff,"[random() % 13]));
            break;
        default:
            if (begin < static_cast<std::ptrdiff_t>(input.size())) {
                input[static_cast<std::size_t>(begin)] = static_cast<std::uint8_t>(random());
            }
    }
    input.resize(std::min(input.size(), kLongest));
}

}  // namespace

int main(int count, char** arguments) {
    const std::vector<Input> kept = Kept(count == 2 ? arguments[1] : ".");
    for (const int signal : {SIGABRT, SIGSEGV, SIGBUS, SIGFPE}) {
        std::signal(signal, Keep);
    }
    std::for_each(kept.begin(), kept.end(), Try);
    std::mt19937 random(1);
    long changed = 0;
    for (const auto end = std::chrono::steady_clock::now() + kTime; std::chrono::steady_clock::now() < end;
         ++changed) {
        Input input = kept.at(random() % kept.size());
        for (std::size_t changes = 1 + random() % 4; changes > 0; --changes) {
            Change(input, kept[random() % kept.size()], random);
        }
        Try(std::move(input));
    }
    std::printf("%zu inputs, and %ld changed ones\n", kept.size(), changed);
}
