// Random stories of a cache, the same for the same seed: whatever is done, killed or made to fail, in
// whatever order, no acknowledged byte is lost without consent, no other cache is touched, the list tells the
// truth, and named commands lead out of every state.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <array>
#include <csignal>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <memory>
#include <random>

#include "cli/tool.h"

namespace tests {
namespace {

constexpr std::size_t kBlock = 65536;
constexpr int kBlocks = 24;
constexpr const char* kName = "md3+volume_1";
constexpr const char* kVolume = "/dev/vg1/volume_1";

// One block of a device, past the page cache.
class Block {
  public:
    Block() : bytes_(static_cast<char*>(std::aligned_alloc(4096, kBlock)), std::free) {}

    bool Write(const std::string& device, int number, char fill) {
        std::memset(bytes_.get(), fill, kBlock);
        const int fd = open(device.c_str(), O_WRONLY | O_DIRECT | O_CLOEXEC);
        const off_t offset = static_cast<off_t>(number) * static_cast<off_t>(kBlock);
        const bool isWritten =
            pwrite(fd, bytes_.get(), kBlock, offset) == static_cast<ssize_t>(kBlock) && fsync(fd) == 0;
        close(fd);
        return isWritten;
    }

    bool Holds(const std::string& device, int number, char fill) {
        const int fd = open(device.c_str(), O_RDONLY | O_DIRECT | O_CLOEXEC);
        const off_t offset = static_cast<off_t>(number) * static_cast<off_t>(kBlock);
        const bool isRead = pread(fd, bytes_.get(), kBlock, offset) == static_cast<ssize_t>(kBlock);
        close(fd);
        return isRead && bytes_.get()[0] == fill && bytes_.get()[kBlock - 1] == fill;
    }

  private:
    std::unique_ptr<char, decltype(&std::free)> bytes_;
};

class Story : public ::testing::TestWithParam<unsigned> {
  protected:
    void SetUp() override {
        ASSERT_EQ(Tool({"create", "/dev/md4", "/dev/vg1/volume_2", "--size", "32M"}).code, 0);
        ASSERT_TRUE(block_.Write(Other(), 0, 'o'));
        ASSERT_EQ(Tool({"create", "/dev/md3", kVolume, "--size", "16M"}).code, 0);
    }

    int Choose(int choices) { return std::uniform_int_distribution(0, choices - 1)(random_); }

    static Json Cache(const char* name) {
        const auto answer = Answer({"list"});
        for (const auto& cache : answer["caches"]) {
            if (cache["name"] == name) {
                return cache;
            }
        }
        return {};
    }
    static std::string Device(const char* name) {
        const auto cache = Cache(name);
        return cache.IsObject() && cache["device"].IsText() ? std::string(cache["device"]) : "";
    }
    static std::string Other() { return Device("md4+volume_2"); }

    void WriteSome();
    void Interrupt(int signal);
    void Step();
    void Check();
    void End();

    std::mt19937 random_{GetParam()};
    Block block_;
    std::array<char, kBlocks> held_{};  // what each block holds; 0: never written
    std::string told_;
};

void Story::WriteSome() {
    const std::string device = Device(kName);
    for (int i = 0; i < 4 && !device.empty(); ++i) {
        const int number = Choose(kBlocks);
        const char fill = static_cast<char>('a' + Choose(26));
        ASSERT_TRUE(block_.Write(device, number, fill));
        held_.at(static_cast<std::size_t>(number)) = fill;
    }
}

// A flush or deletion that gets a signal when it has begun, or before.
void Story::Interrupt(int signal) {
    Fault("cleaning", "pause");
    {
        RunningTool flush({Choose(2) == 0 ? "flush" : "delete", kName, "--json"});
        if (Choose(2) == 0) {
            flush.NextLine();
        }
        flush.Signal(signal);
        flush.Wait();
    }
    Fault("cleaning", "run");
}

void Story::Step() {
    const int choice = Choose(11);
    told_ += " " + std::to_string(choice);
    switch (choice) {
        case 0:
            Tool({"unload", kName});
            break;
        case 1:
            Tool({"load", kName});
            break;
        case 2:
            Tool({"flush", kName});
            break;
        case 3:
            Interrupt(SIGTERM);
            break;
        case 4:
            Interrupt(SIGKILL);
            break;
        case 5:  // no room for the copy
            if (ToolLiesBelow("/tmp")) {
                break;
            }
            RunProgram({"mount", "-t", "tmpfs", "-o", "size=4k,nr_inodes=1", "none", "/tmp"});
            Tool({Choose(2) == 0 ? "unload" : "load", kName});
            RunProgram({"umount", "/tmp"});
            break;
        case 6:  // the volume refuses
            Fault("writeback", "fail");
            Tool({Choose(2) == 0 ? "flush" : "delete", kName});
            Fault("writeback", "ok");
            break;
        case 7: {  // a tool fails
            const char* tool = Choose(2) == 0 ? "tool.flashcache_load" : "tool.dmsetup";
            Fault(tool, "fail");
            Tool({Choose(2) == 0 ? "unload" : "load", kName});
            Fault(tool, "ok");
            break;
        }
        case 8:
            Tool({"delete", kName});
            break;
        case 9:
            Tool({"create", "/dev/md3", kVolume, "--size", "16M", "--discard-content"});
            break;
        default:
            Tool({"state", "set", kName, Choose(2) == 0 ? "normal" : "stop-writeback"});
    }
    WriteSome();
}

void Story::Check() {
    const auto cache = Cache(kName);
    const std::string device = Device(kName);
    if (cache.IsObject()) {
        EXPECT_EQ(cache["state"], device.empty() ? "unloaded" : "running") << cache;
        EXPECT_EQ(std::filesystem::exists(device), !device.empty());
    }
    // While the cache is not up its volume is behind.
    const std::string holder = device.empty() && cache.IsNull() ? kVolume : device;
    for (int i = 0; i < kBlocks && !holder.empty(); ++i) {
        const char fill = held_.at(static_cast<std::size_t>(i));
        EXPECT_TRUE(fill == 0 || block_.Holds(holder, i, fill)) << "block " << i << " on " << holder;
    }
    EXPECT_TRUE(block_.Holds(Other(), 0, 'o'));
}

// The commands that problems name.
void Story::End() {
    if (Cache(kName).IsNull()) {
        return;
    }
    EXPECT_EQ(Tool({"load", kName}).code, 0);
    Tool({"flush", "--cancel", kName});
    EXPECT_EQ(Tool({"state", "set", kName, "normal"}).code, 0);
    EXPECT_TRUE(Cache(kName)["problem"].IsNull()) << Cache(kName);
    EXPECT_EQ(Tool({"delete", kName}).code, 0);
}

TEST_P(Story, LosesNothingAndTellsTheTruth) {
    WriteSome();
    for (int step = 0; step < 9 && !HasFailure(); ++step) {
        Step();
        Check();
    }
    End();
    Check();
    EXPECT_FALSE(HasFailure()) << "the steps were" << told_;
}

INSTANTIATE_TEST_SUITE_P(Seed, Story, ::testing::Values(1U, 3U));

}  // namespace
}  // namespace tests
