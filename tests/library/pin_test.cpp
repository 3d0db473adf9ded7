// The front end to the pin tool: what it runs, what it makes of the answers, and the real tool behind it.
#include <syslog.h>
#include <unistd.h>

#include <optional>
#include <utility>

#include "support/library_test.h"
#include "support/test_volume.h"

namespace {

using spy::Answer;
using spy::ToolRun;
using testing::ElementsAre;
using testing::IsEmpty;

constexpr const char* kTool = "/usr/vemo/sbin/vemocachepinfiletool";
constexpr const char* kConfig = "/usr/vemo/etc/flashcache_pin_file.conf";
std::string Command(const std::string& arguments) {
    return std::string(kTool) + " " + arguments;
}

class PinTest : public LibraryTest {
  protected:
    PinTest() { SetSupport("cache_support_pin=\"yes\"\n"); }
    static void SetSupport(const std::string& model) { WriteWhole("/etc.defaults/vemoinfo.conf", model); }
    static void AnswerAll(const Answer& answer) {
        spy::state() = {};
        spy::state().answer = [answer](const ToolRun&) { return answer; };
    }
};

TEST_F(PinTest, OnlyTheWordYesGivesSupport) {
    const std::pair<const char*, int> models[] = {
        {"cache_support_pin=yes", 1},        {"cache_support_pin=\"yes\"\n", 1},
        {"cache_support_pin=Yes\n", 0},      {"cache_support_pin=no\n", 0},
        {"cache_support_pin=\"yes \"\n", 0}, {"cache_support_pin=\n", 0},
        {"upnpmodelname=yes\n", 0},          {"", 0},
    };
    for (const auto& [model, support] : models) {
        SetSupport(model);
        EXPECT_EQ(ModelSupportPin(), support) << model;
    }
    std::filesystem::remove("/etc.defaults/vemoinfo.conf");
    EXPECT_EQ(ModelSupportPin(), 0);
}

struct Operation {
    int (*run)(const char* volume);
    std::vector<std::string> arguments;
    bool gated;                         // by the model's support
    std::vector<std::string> failures;  // logged when the tool fails
};

std::string Failed(const std::string& arguments) {
    return "Failed. Cmd = " + Command(arguments) + " ret = -1)";
}

// All that run the tool to its end, on the volume /v.
const std::vector<Operation>& Operations() {
    static const std::vector<Operation> operations = {
        {[](const char* volume) { return VEMOFlashCachePinAddFiles("/v/a\n/v/b", volume); },
         {"--pin-files", "/v/a\n/v/b", "--mount-path", "/v"},
         false,
         {Failed("--pin-files /v/a\n/v/b --mount-path /v"),
          "Pin new files (/v/a\n/v/b) to volume (/v) failed"}},
        {[](const char* volume) { return VEMOFlashCachePinRemoveFiles("/v/a", volume); },
         {"--unpin-files", "/v/a", "--mount-path", "/v"},
         false,
         {Failed("--unpin-files /v/a --mount-path /v"), "Unpin files (/v/a) from volume (/v) failed"}},
        {VEMOFlashCachePinDeleteVolumeBitmap,
         {"--delete-bitmap", "--mount-path", "/v"},
         true,
         {Failed("--delete-bitmap --mount-path /v"), "Can't delete the bitmap of volume (/v)"}},
        {VEMOFlashCachePinSendVolumeBitmap,
         {"--send-bitmap", "--mount-path", "/v"},
         true,
         {Failed("--send-bitmap --mount-path /v"), "Can't send bitmap to volume (/v)"}},
        {VEMOFlashCachePinHandleVolumeUmount,
         {"--handle-umount", "--mount-path", "/v"},
         true,
         {Failed("--handle-umount --mount-path /v"), "Handle umount event of volume (/v) failed"}},
        {VEMOFlashCachePinHandleVolumeMount,
         {"--handle-mount", "--mount-path", "/v", "--config-path", kConfig},
         true,
         {"Handle volume mount failed. Cmd = " +
          Command(std::string("--handle-mount --mount-path /v --config-path ") + kConfig) + " ret = -1)"}},
        {[](const char* volume) { return FlashcacheExecuteCommand("--any", volume); },
         {"--any", "--mount-path", "/v"},
         true,
         {Failed("--any --mount-path /v")}},
    };
    return operations;
}

TEST_F(PinTest, OperationsRunTheToolAndTakeItsExitStatus) {
    for (const Operation& operation : Operations()) {
        SCOPED_TRACE(operation.arguments[0]);
        AnswerAll({});
        EXPECT_EQ(operation.run("/v"), 0);
        EXPECT_THAT(spy::state().runs, ElementsAre(ToolRun{kTool, "", operation.arguments}));
        EXPECT_THAT(spy::LoggedTexts(), IsEmpty());
        ASSERT_EQ(spy::state().log.size(), 1U);
        EXPECT_EQ(spy::state().log[0].priority, LOG_DEBUG);
        EXPECT_EQ(spy::state().log[0].text.rfind("Cmd = " + Command(operation.arguments[0]), 0), 0U);
        for (const int status : {1, 255, -1, 139}) {
            AnswerAll({status, "", status >= 0});
            EXPECT_EQ(operation.run("/v"), -1);
            EXPECT_EQ(spy::LoggedTexts(), operation.failures);
        }
    }
}

TEST_F(PinTest, VolumesOfModelsWithoutSupportNeedNothing) {
    SetSupport("");
    for (const Operation& operation : Operations()) {
        SCOPED_TRACE(operation.arguments[0]);
        for (const char* volume : {"/v", static_cast<const char*>(nullptr)}) {
            AnswerAll({});
            EXPECT_EQ(operation.run(volume), operation.gated || volume != nullptr ? 0 : -1);
            EXPECT_EQ(spy::state().runs.empty(), operation.gated || volume == nullptr);
        }
    }
}

TEST_F(PinTest, AMissingVolumeIsRefused) {
    for (const Operation& operation : Operations()) {
        AnswerAll({});
        EXPECT_EQ(operation.run(nullptr), -1);
        EXPECT_THAT(spy::state().runs, IsEmpty());
        EXPECT_THAT(
            spy::LoggedTexts().at(0),
            testing::StartsWith(operation.gated ? "Bad parameters" : "Incorrect parameter: szFiles=/v/a"));
    }
    EXPECT_EQ(VEMOFlashCachePinAddFiles(nullptr, "/v"), -1);
    EXPECT_EQ(spy::LoggedTexts().back(), "Incorrect parameter: szFiles=(null) szMountPath=/v");
}

TEST_F(PinTest, ListsUpToTheLimitArePassedOnWhole) {
    const std::string longest(1023, 'f');
    AnswerAll({});
    EXPECT_EQ(VEMOFlashCachePinAddFiles(longest.c_str(), "/v"), 0);
    EXPECT_THAT(spy::state().runs,
                ElementsAre(ToolRun{kTool, "", {"--pin-files", longest, "--mount-path", "/v"}}));
    EXPECT_EQ(FlashCachePinAddOrRemoveFiles("", "/v", 7), 0);
    EXPECT_EQ(spy::state().runs.back().arguments[0], "--pin-files");
    AnswerAll({});
    EXPECT_EQ(VEMOFlashCachePinRemoveFiles((longest + "f").c_str(), "/v"), -1);
    EXPECT_THAT(spy::state().runs, IsEmpty());
    EXPECT_EQ(spy::LoggedTexts()[0], "The length of files is over 1024");
}

// What an answer of the tool comes to.
struct Reading {
    Answer answer;
    int result;
    int64_t value;
    std::vector<std::string> logged;
};

TEST_F(PinTest, ReadsTheSizeOfTheBitmap) {
    const Reading readings[] = {
        {{0, "4096\n8192\n"}, 0, 4096, {}},
        {{1, " 12 bytes"}, 0, 12, {}},
        {{0, "9223372036854775807\n"}, 0, INT64_MAX, {}},
        {{0, "unknown\n4096\n"}, -1, 7, {"Parse memory bytes failed"}},
        {{0, "\n"}, -1, 7, {"Parse memory bytes failed"}},
        {{0, ""}, -1, 7, {"Get line failed"}},
        {{0, "", false}, -1, 7, {"Popen failed"}},
    };
    for (const Reading& reading : readings) {
        AnswerAll(reading.answer);
        uint64_t bytes = 7;
        EXPECT_EQ(VEMOFlashCachePinGetBitmapSizeByte("/v", &bytes), reading.result) << reading.answer.output;
        EXPECT_EQ(static_cast<int64_t>(bytes), reading.value);
        EXPECT_EQ(spy::LoggedTexts(), reading.logged);
        EXPECT_THAT(spy::state().runs,
                    ElementsAre(ToolRun{kTool, "r", {"--get-bitmap-size-byte", "--mount-path", "/v"}}));
    }
    uint64_t bytes = 7;
    EXPECT_EQ(VEMOFlashCachePinGetBitmapSizeByte(nullptr, &bytes), -1);
    EXPECT_EQ(VEMOFlashCachePinGetBitmapSizeByte("/v", nullptr), -1);
    SetSupport("");
    EXPECT_EQ(VEMOFlashCachePinGetBitmapSizeByte("/v", &bytes), -1);
    EXPECT_THAT(spy::LoggedTexts(), ElementsAre("Popen failed", "Incorrect parameters",
                                                "Incorrect parameters", "Model doesn't support pin"));
}

TEST_F(PinTest, ReadsWhetherTheVolumeSupportsPinning) {
    const Reading readings[] = {
        {{0, "Yes\n"}, 1, 0, {}},
        {{1, "Yes, it does"}, 1, 0, {}},
        {{0, "yes\n"}, 0, 0, {}},
        {{0, "No\nYes\n"}, 0, 0, {}},
        {{0, " Yes\n"}, 0, 0, {}},
        {{0, "Ye"}, 0, 0, {}},
        {{0, ""}, 0, 0, {"Parse line failed"}},
        {{0, "", false}, 0, 0, {"Popen failed"}},
    };
    for (const Reading& reading : readings) {
        AnswerAll(reading.answer);
        EXPECT_EQ(VEMOFlashCachePinIsVolumeSupport("/v"), reading.result) << reading.answer.output;
        EXPECT_EQ(spy::LoggedTexts(), reading.logged);
        EXPECT_EQ(spy::LoggedTexts(true).back(), "Volume(/v) Support pin=" + std::to_string(reading.result));
        EXPECT_THAT(spy::state().runs,
                    ElementsAre(ToolRun{kTool, "r", {"--support-pin", "--mount-path", "/v"}}));
    }
    SetSupport("");
    AnswerAll({0, "Yes\n"});
    EXPECT_EQ(VEMOFlashCachePinIsVolumeSupport("/v"), 0);
    EXPECT_THAT(spy::state().runs, IsEmpty());
    EXPECT_THAT(spy::LoggedTexts(true), ElementsAre("Doesn't support pin", "Volume(/v) Support pin=0"));
}

TEST_F(PinTest, ReadsWhetherAFileIsPinned) {
    SetSupport("");  // which does not matter
    const Reading readings[] = {
        {{0, "Yes\n"}, 0, 1, {}},
        {{1, "Yesterday\n"}, 0, 1, {}},
        {{0, "Not pinned\n"}, 0, 0, {}},
        {{0, "No"}, 0, 0, {}},
        {{0, "yes\n"}, -1, 7, {"Check file (/v/a) error"}},
        {{0, "N"}, -1, 7, {"Check file (/v/a) error"}},
        {{0, ""}, -1, 7, {"Parse line failed"}},
        {{0, "", false}, -1, 7, {"Popen failed"}},
    };
    for (const Reading& reading : readings) {
        AnswerAll(reading.answer);
        uint32_t pinned = 7;
        EXPECT_EQ(VEMOFlashCachePinIsFileAdded("/v/a", &pinned), reading.result) << reading.answer.output;
        EXPECT_EQ(pinned, reading.value);
        EXPECT_EQ(spy::LoggedTexts(), reading.logged);
        EXPECT_EQ(spy::LoggedTexts(true).back(), "File (/v/a) isAdded=" + std::to_string(reading.value));
        EXPECT_THAT(spy::state().runs,
                    ElementsAre(ToolRun{kTool, "r", {"--check-pin", "/v/a", "--config-path", kConfig}}));
    }
}

class PinToolTest : public PinTest {
  protected:
    void SetUp() override { MountVolume(); }
    void TearDown() override { UnmountVolume(); }
    // How many 64 KiB blocks the bitmap in this file marks.
    static std::size_t Marked(const std::string& file) {
        std::size_t bits = 0;
        for (const char byte : ReadWhole(file)) {
            bits += static_cast<std::size_t>(__builtin_popcount(static_cast<unsigned char>(byte)));
        }
        return bits;
    }
    static std::optional<uint32_t> IsPinned(const char* path) {
        uint32_t pinned = 7;
        return VEMOFlashCachePinIsFileAdded(path, &pinned) == 0 ? std::optional(pinned) : std::nullopt;
    }
    static constexpr const char* kBitmap = "/volume1/@flashcache_pin.bitmap";
    static constexpr const char* kKernels = "/run/flashcache_pin/_volume1";
};

TEST_F(PinToolTest, PinsTheBlocksOfFiles) {
    MakeFile("/volume1/share/a file", 1310720);
    MakeFile("/volume1/share/b", 65536);
    uint64_t bytes = 0;
    EXPECT_EQ(VEMOFlashCachePinIsVolumeSupport(kVolume), 1);
    EXPECT_EQ(VEMOFlashCachePinIsVolumeSupport("/tmp"), 0);
    EXPECT_EQ(VEMOFlashCachePinGetBitmapSizeByte(kVolume, &bytes), 0);
    const int volume = open("/dev/vg1/volume_1", O_RDONLY | O_CLOEXEC);
    ASSERT_GE(volume, 0);
    EXPECT_EQ(static_cast<off_t>(bytes) * 8 * 65536, lseek(volume, 0, SEEK_END));
    close(volume);
    EXPECT_EQ(VEMOFlashCachePinAddFiles("/volume1/share/a file\n/volume1/share/b", kVolume), 0);
    EXPECT_EQ(std::filesystem::file_size(kBitmap), bytes);
    EXPECT_GE(Marked(kBitmap), 21U);  // more where a file does not begin on a block
    EXPECT_EQ(IsPinned("/volume1/share/a file"), 1U);
    EXPECT_EQ(VEMOFlashCachePinRemoveFiles("/volume1/share/a file", kVolume), 0);
    EXPECT_LE(Marked(kBitmap), 2U);
    EXPECT_EQ(IsPinned("/volume1/share/a file"), 0U);
    EXPECT_EQ(IsPinned("/volume1/share/b"), 1U);
    EXPECT_EQ(IsPinned("/volume1/nothing"), std::nullopt);
}

TEST_F(PinToolTest, RefusesWhatItCannotPinAndChangesNothing) {
    MakeFile("/volume1/share/a", 65536);
    ASSERT_EQ(VEMOFlashCachePinAddFiles("/volume1/share/a", kVolume), 0);
    const std::string pins = ReadWhole(kConfig);
    for (const char* files : {"/volume1/share", "/etc/hostname", "/volume1/share/a\n/volume1/none", "a"}) {
        EXPECT_EQ(VEMOFlashCachePinAddFiles(files, kVolume), -1) << files;
        EXPECT_EQ(VEMOFlashCachePinRemoveFiles(files, kVolume), -1) << files;
    }
    EXPECT_EQ(VEMOFlashCachePinAddFiles("/volume1/share/a", "/tmp"), -1);
    EXPECT_EQ(ReadWhole(kConfig), pins);
}

TEST_F(PinToolTest, FollowsTheVolumesLife) {
    MakeFile("/volume1/share/a", 65536);
    MakeFile("/volume1/share/gone", 65536);
    EXPECT_EQ(VEMOFlashCachePinSendVolumeBitmap(kVolume), -1);
    ASSERT_EQ(VEMOFlashCachePinAddFiles("/volume1/share/a\n/volume1/share/gone", kVolume), 0);
    EXPECT_EQ(VEMOFlashCachePinSendVolumeBitmap(kVolume), 0);
    EXPECT_EQ(ReadWhole(kKernels), ReadWhole(kBitmap));
    EXPECT_EQ(VEMOFlashCachePinHandleVolumeUmount(kVolume), 0);
    EXPECT_FALSE(std::filesystem::exists(kKernels));
    const std::size_t both = Marked(kBitmap);
    std::filesystem::remove("/volume1/share/gone");
    EXPECT_EQ(VEMOFlashCachePinHandleVolumeMount(kVolume), 0);
    EXPECT_LE(Marked(kKernels), both);
    EXPECT_GT(Marked(kKernels), 0U);
    EXPECT_EQ(VEMOFlashCachePinDeleteVolumeBitmap(kVolume), 0);
    EXPECT_FALSE(std::filesystem::exists(kBitmap) || std::filesystem::exists(kKernels));
    EXPECT_EQ(IsPinned("/volume1/share/a"), 0U);
}

}  // namespace
