// The power of an appliance whose disks have volatile caches is cut while its cache is used: the next boot
// finds every byte that was synced.
#include <gtest/gtest.h>

#include <array>
#include <fstream>
#include <random>
#include <set>
#include <sstream>
#include <vector>

#include "simulation/boot.h"
#include "simulation/seed.h"

namespace {

constexpr uint32_t kSector = 512;
constexpr uint32_t kSectors = (2 << 20) / kSector;
constexpr uint32_t kMostSectors = 64;  // of one operation

// One line of the script. What it writes has its own stamp in every sector.
struct Operation {
    std::string line;
    uint32_t first = 0;
    uint32_t count = 0;
    bool syncs = false;
};

class PowerTest : public testing::TestWithParam<const char*> {
  protected:
    // Boots, reads everything back, and works until the power is cut.
    void RunUntilPowerCut(uint32_t seed) {
        random_.seed(seed);
        const std::vector<Operation> operations = PickOperations();
        std::string script = kModules;
        script += seed_ == 0 ? "flashcache_create -s 512k -p " + std::string(GetParam()) +
                                   " cachedev_0 /dev/md3 /dev/vg1/volume_1\n"
                             : kLoad;
        script += "cat /dev/mapper/cachedev_0 > /usr/vemo/etc/content\n";
        script += "vemo-appliance fault power cut@" + std::to_string(Pick(250)) + "\n";
        for (size_t i = 0; i < operations.size(); ++i) {
            script += operations[i].line + " && echo " + std::to_string(i + 1) + "\n";
        }
        seed_ = seed;
        const ShellResult result = Boot(script + "vemo-appliance fault power cut; sleep 100");
        ASSERT_EQ(result.status, 137) << result.output;
        CheckContent();
        Note(operations, DoneIn(result.output));
    }

    void ExpectAllSynced() {
        Boot(kModules + kLoad + "cat /dev/mapper/cachedev_0 > /usr/vemo/etc/content\n");
        CheckContent();
    }

  private:
    uint32_t Pick(uint32_t below) { return static_cast<uint32_t>(random_() % below); }
    std::string File(const std::string& name) const { return folder_ / ("state/usr-vemo-etc/" + name); }

    ShellResult Boot(const std::string& script) const {
        return ::Boot("--ssd-size 2M --volume-size 2M --state " + (folder_ / "state") +
                          " --volatile=" + std::to_string(seed_),
                      script);
    }

    std::vector<Operation> PickOperations() {
        std::filesystem::create_directories(File(""));
        std::ofstream data(File("data"), std::ios::binary);
        std::vector<Operation> operations;
        for (uint32_t i = 0; i < 60; ++i) {
            std::array<uint32_t, kMostSectors * kSector / sizeof(uint32_t)> stamps{};
            stamps.fill(lastStamp_ + i + 1);
            data.write(reinterpret_cast<const char*>(stamps.data()), sizeof stamps);
            operations.push_back(PickOperation(i));
        }
        return operations;
    }

    Operation PickOperation(uint32_t number) {
        switch (Pick(16)) {
            case 0:
                return {"sysctl -q dev.flashcache_md3+volume_1.cache_all=" + std::to_string(Pick(2)), 0, 0,
                        false};
            case 1:
                return {"vemo-appliance fault cleaning " + std::to_string(Pick(40)), 0, 0, false};
            case 2:
                return {"dmsetup remove cachedev_0 && flashcache_load /dev/md3 cachedev_0 /dev/vg1/volume_1",
                        0, 0, true};
            default:
                return PickWrite(number);
        }
    }

    Operation PickWrite(uint32_t number) {
        Operation write;
        write.first = Pick(kSectors);
        write.count = std::min(kSectors - write.first, 1 + Pick(kMostSectors));
        write.syncs = Pick(4) == 0;
        const uint32_t bytes = write.count * kSector;
        write.line = "dd if=/usr/vemo/etc/data of=/dev/mapper/cachedev_0 status=none count=1 bs=" +
                     std::to_string(bytes) +
                     " iflag=skip_bytes skip=" + std::to_string(number * kMostSectors * kSector) +
                     " oflag=direct,seek_bytes seek=" + std::to_string(write.first * kSector) +
                     (write.syncs ? " conv=nocreat,notrunc,fsync" : " conv=nocreat,notrunc");
        return write;
    }

    // The numbers of the operations that were done: each tells its own. One that failed tells none, such as a
    // removal while a program of the machine looks at the device.
    static std::set<size_t> DoneIn(const std::string& output) {
        std::istringstream lines(output);
        std::set<size_t> done = {0};
        for (std::string line; std::getline(lines, line);) {
            if (std::isdigit(static_cast<unsigned char>(line[0])) != 0) {
                done.insert(std::stoul(line));
            }
        }
        return done;
    }

    // Takes down what the sectors may hold after those operations, and perhaps a part of the next.
    void Note(const std::vector<Operation>& operations, const std::set<size_t>& done) {
        const size_t last = *done.rbegin();
        for (size_t i = 0; i < operations.size(); ++i) {
            const Operation& operation = operations[i];
            const bool isDone = done.contains(i + 1);
            ++lastStamp_;
            for (uint32_t sector = 0; i <= last && sector < operation.count; ++sector) {
                uint32_t& lastHere = last_[operation.first + sector];
                lastHere = isDone ? lastStamp_ : lastHere;
                possible_[operation.first + sector].insert(lastStamp_);
            }
            for (uint32_t sector = 0; isDone && operation.syncs && sector < kSectors; ++sector) {
                possible_[sector] = {last_[sector]};
            }
        }
    }

    // What is found is there to stay.
    void CheckContent() {
        const std::string content = ReadFile(File("content"));
        ASSERT_EQ(content.size(), size_t{kSectors} * kSector);
        for (uint32_t sector = 0; sector < kSectors; ++sector) {
            std::array<uint32_t, kSector / sizeof(uint32_t)> stamps{};
            content.copy(reinterpret_cast<char*>(stamps.data()), kSector, size_t{sector} * kSector);
            ASSERT_TRUE(possible_[sector].contains(stamps[0]))
                << "seed " << seed_ << ": sector " << sector << " holds " << stamps[0] << ", not "
                << testing::PrintToString(possible_[sector]);
            last_[sector] = stamps[0];
            possible_[sector] = {stamps[0]};
        }
    }

    const Folder folder_;
    std::mt19937 random_;
    uint32_t seed_ = 0;
    uint32_t lastStamp_ = 0;
    std::vector<uint32_t> last_ = std::vector<uint32_t>(kSectors, 0);
    std::vector<std::set<uint32_t>> possible_ = std::vector<std::set<uint32_t>>(kSectors, {0});
};

TEST_P(PowerTest, CutLosesNothingSynced) {
    const unsigned first = FirstSeed();
    for (uint32_t seed = first; seed < first + 4 && !HasFatalFailure(); ++seed) {
        RunUntilPowerCut(seed);
    }
    ExpectAllSynced();
}

INSTANTIATE_TEST_SUITE_P(Modes, PowerTest, testing::Values("back", "thru", "around"),
                         [](const auto& mode) { return std::string(mode.param); });

}  // namespace
