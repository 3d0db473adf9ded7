#include "simulation/launcher/replay.h"

#include <fcntl.h>
#include <linux/fs.h>
#include <sys/ioctl.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <iostream>
#include <nlohmann/json.hpp>
#include <sstream>
#include <stdexcept>
#include <thread>
#include <unordered_map>

#include "base/unique_fd.h"
#include "simulation/common/checked.h"
#include "sizing/hash.h"
#include "sizing/trace/totals.h"
#include "sizing/trace/trace.h"

namespace simulation {

namespace {

constexpr uint64_t kSector = 512;
// What the loop device in front of the cache hands on as one request, whatever memory it comes from.
constexpr uint64_t kAtOnce = uint64_t{256} << 10U;

// What each sector was written with last: a number that is never the same twice. Others were never written
// here, and may hold anything.
class Content {
  public:
    void Write(uint64_t sector, std::span<char> into) {
        ++writes_;
        for (size_t at = 0; at < into.size(); at += kSector, ++sector) {
            written_[sector] = writes_;
            Fill(sector, writes_, into.subspan(at, kSector));
        }
    }
    void Discard(uint64_t sector, uint64_t sectors) {
        if (sectors > written_.size()) {
            std::erase_if(written_, [&](const auto& one) { return one.first - sector < sectors; });
            return;
        }
        for (; sectors > 0; --sectors, ++sector) {
            written_.erase(sector);
        }
    }
    // How many bytes are known, and whether all of those are as they were written.
    std::pair<uint64_t, bool> Check(uint64_t sector, std::span<const char> read) const {
        uint64_t known = 0;
        bool isRight = true;
        std::array<char, kSector> expected{};
        for (size_t at = 0; at < read.size(); at += kSector, ++sector) {
            if (const auto found = written_.find(sector); found != written_.end()) {
                known += kSector;
                Fill(sector, found->second, expected);
                isRight = isRight && std::memcmp(expected.data(), read.data() + at, kSector) == 0;
            }
        }
        return {known, isRight};
    }

  private:
    static void Fill(uint64_t sector, uint64_t write, std::span<char> into) {
        for (size_t at = 0; at < into.size(); at += sizeof(uint64_t)) {
            const uint64_t word = sizing::Mix(sector * kSector + at) ^ write;
            std::memcpy(into.data() + at, &word, sizeof word);
        }
    }

    std::unordered_map<uint64_t, uint64_t> written_;
    uint64_t writes_ = 0;
};

struct Outcome {
    uint64_t requests = 0;
    uint64_t readBytes = 0;
    uint64_t writtenBytes = 0;
    uint64_t verifiedBytes = 0;
    uint64_t wrongReads = 0;
    uint64_t failed = 0;
    uint64_t beyondEnd = 0;  // left out
    double seconds = 0;
};

class Player {
  public:
    explicit Player(const ReplayOptions& options)
        : options_(options),
          device_(static_cast<int>(
              Checked(open(options.device.c_str(), O_RDWR | O_DIRECT | O_CLOEXEC), options.device))),
          memory_(static_cast<char*>(std::aligned_alloc(4096, kAtOnce)), &std::free) {
        Checked(ioctl(device_.Get(), BLKGETSIZE64, &size_), options.device);
    }

    void Play(const sizing::Request& request) {
        Await(request.time);
        ++outcome_.requests;
        const uint64_t length = std::min(request.length, sizing::kLongestRequest);
        const uint64_t start = request.offset / kSector * kSector;
        const uint64_t end = (request.offset + length + kSector - 1) / kSector * kSector;
        if (request.kind == sizing::Kind::kFlush) {
            outcome_.failed += fsync(device_.Get()) == 0 ? 0U : 1U;
        } else if (request.offset > size_ || end > size_) {
            ++outcome_.beyondEnd;
        } else if (length > 0 && request.kind == sizing::Kind::kDiscard) {
            Discard(start, end - start);
        } else {
            for (uint64_t offset = start; length > 0 && offset < end; offset += kAtOnce) {
                const uint64_t part = std::min(kAtOnce, end - offset);
                request.kind == sizing::Kind::kRead ? Read(offset, part) : Write(offset, part);
            }
        }
    }

    Outcome Finish() {
        outcome_.seconds = std::chrono::duration<double>(Clock::now() - start_).count();
        return outcome_;
    }

  private:
    using Clock = std::chrono::steady_clock;

    // By its own times the trace began with its first request.
    void Await(uint64_t time) {
        if (outcome_.requests == 0) {
            firstTime_ = time;
        }
        if (options_.speed > 0) {
            const auto since = static_cast<double>(time - std::min(time, firstTime_)) / options_.speed;
            std::this_thread::sleep_until(start_ + std::chrono::nanoseconds(static_cast<int64_t>(since)));
        }
    }
    void Read(uint64_t offset, uint64_t length) {
        if (pread(device_.Get(), memory_.get(), length, static_cast<off_t>(offset)) !=
            static_cast<ssize_t>(length)) {
            ++outcome_.failed;
            return;
        }
        const auto [known, isRight] = content_.Check(offset / kSector, {memory_.get(), length});
        outcome_.readBytes += length;
        outcome_.verifiedBytes += known;
        outcome_.wrongReads += isRight ? 0 : 1;
    }
    // What a write that failed has left is not known.
    void Write(uint64_t offset, uint64_t length) {
        content_.Write(offset / kSector, {memory_.get(), length});
        if (pwrite(device_.Get(), memory_.get(), length, static_cast<off_t>(offset)) ==
            static_cast<ssize_t>(length)) {
            outcome_.writtenBytes += length;
            return;
        }
        ++outcome_.failed;
        content_.Discard(offset / kSector, length / kSector);
    }
    void Discard(uint64_t offset, uint64_t length) {
        uint64_t range[2] = {offset, length};
        outcome_.failed += ioctl(device_.Get(), BLKDISCARD, range) == 0 ? 0U : 1U;
        content_.Discard(offset / kSector, length / kSector);
    }

    const ReplayOptions& options_;
    base::UniqueFd device_;
    std::unique_ptr<char, void (*)(void*)> memory_;
    uint64_t size_ = 0;
    uint64_t firstTime_ = 0;
    Clock::time_point start_ = Clock::now();
    Content content_;
    Outcome outcome_;
};

using Counts = std::vector<std::pair<std::string, uint64_t>>;

// What stands between two texts.
std::string Between(const std::string& text, const std::string& before, const std::string& after) {
    const size_t start = text.find(before);
    const size_t end = start == std::string::npos ? start : text.find(after, start);
    return end == std::string::npos ? "" : text.substr(start + before.size(), end - start - before.size());
}

std::string FileName(const std::string& path) {
    return std::filesystem::path(path).filename();
}

// The table of a cache device of the appliance that we are on. Throws where it is none, or we are on no
// appliance: what is played would overwrite whatever else lies there.
std::string RequireTable(const std::string& device) {
    const std::string name = FileName(device);
    if (device != "/dev/mapper/" + name) {
        throw std::runtime_error(device + " is no cache device: these are /dev/mapper/cachedev_N");
    }
    try {
        return SendRequest({}, {"table", name});
    } catch (const std::runtime_error& error) {
        throw std::runtime_error(device + " is no cache device of a simulated appliance: " + error.what());
    }
}

// The kernel's own counters of the cache, in their order.
Counts CountersOf(const std::string& table) {
    const std::string pair =
        FileName(Between(table, "ssd dev (", ")")) + "+" + FileName(Between(table, "disk dev (", ")"));
    std::ifstream file("/proc/flashcache/" + pair + "/flashcache_stats");
    Counts counts;
    for (std::string word; file >> word;) {
        if (const size_t equals = word.find('='); equals != std::string::npos) {
            counts.emplace_back(word.substr(0, equals), std::stoull(word.substr(equals + 1)));
        }
    }
    return counts;
}

Counts CountsOf(const Outcome& outcome) {
    return {{"requests", outcome.requests},          {"read_bytes", outcome.readBytes},
            {"written_bytes", outcome.writtenBytes}, {"verified_bytes", outcome.verifiedBytes},
            {"wrong_reads", outcome.wrongReads},     {"failed", outcome.failed},
            {"beyond_end", outcome.beyondEnd}};
}

void Print(const Outcome& outcome, const Counts& counters, bool json) {
    if (json) {
        nlohmann::ordered_json document = {{"format_version", 1}};
        for (const auto& [name, count] : CountsOf(outcome)) {
            document["replay"][name] = count;
        }
        document["replay"]["seconds"] = outcome.seconds;
        for (const auto& [name, count] : counters) {
            document["counters"][name] = count;
        }
        std::cout << document.dump() << '\n';
        return;
    }
    for (const auto& [name, count] : CountsOf(outcome)) {
        std::cout << name << ' ' << count << '\n';
    }
    std::cout << "seconds " << outcome.seconds << "\n\nWhat the kernel counts of the cache:\n";
    for (const auto& [name, count] : counters) {
        std::cout << name << ' ' << count << '\n';
    }
}

}  // namespace

int Replay(const ReplayOptions& options) {
    const std::string table = RequireTable(options.device);
    sizing::Trace trace(options.files, {});
    Player player(options);
    for (auto batch = trace.NextBatch(); !batch.empty(); batch = trace.NextBatch()) {
        for (const sizing::Request& request : batch) {
            player.Play(request);
        }
    }
    const Outcome outcome = player.Finish();
    Print(outcome, CountersOf(table), options.json);
    return outcome.failed == 0 && outcome.wrongReads == 0 ? 0 : 1;
}

}  // namespace simulation
