#include <sys/mount.h>
#include <sys/resource.h>

#include <csignal>

#include "support/appliance.h"

namespace {

using namespace appliance;
using namespace std::string_literals;
using testing::ElementsAre;
using testing::IsEmpty;

using AttributeTest = CacheTest;

constexpr const char* kFile = "/proc/flashcache/md3+volume_1/flashcache_attribute";

TEST_F(AttributeTest, TheKernelTakesWhatIsSet) {
    Begin();
    EXPECT_EQ(VEMOFlashCacheAttributeGet(kSsd, kSpace), FLASHCACHE_ATTRIBUTE_NONE);
    for (const FLASHCACHE_ATTRIBUTE attribute :
         {FLASHCACHE_ATTRIBUTE_FORCE_REMOVE, FLASHCACHE_ATTRIBUTE_NONE}) {
        EXPECT_EQ(VEMOFlashCacheAttributeSet(kSsd, kSpace, attribute), 0);
        EXPECT_EQ(VEMOFlashCacheAttributeGet(kSsd, kSpace), attribute);
    }
    EXPECT_THAT(spy::LoggedTexts(), IsEmpty());
}

TEST_F(AttributeTest, TheLastLineTellsByItsBeginning) {
    const struct {
        std::string text;
        int attribute;
    } cases[] = {{"none\n", 0},         {"none", 0},          {"nonesuch\n", 0},
                 {"force-remove\n", 1}, {"force-removed", 1}, {"none\nforce-remove\n", 1},
                 {"forced\n", -1},      {"\n", -1},           {" none\n", -1},
                 {"NONE\n", -1},        {"\xff\x01(((", -1}};
    Begin();
    for (const auto& test : cases) {
        SetFault("file.flashcache_attribute", test.text);
        spy::state().log.clear();
        EXPECT_EQ(VEMOFlashCacheAttributeGet(kSsd, kSpace), test.attribute) << test.text;
        const std::string line = test.text.substr(test.text.find("force") == 5 ? 5 : 0);
        EXPECT_EQ(spy::LoggedTexts(), test.attribute >= 0
                                          ? std::vector<std::string>()
                                          : std::vector{"Incorrect attribute = <" + line + ">"});
    }
}

TEST_F(AttributeTest, AnEndlessLineEndsAndIsNoAttribute) {
    Begin();
    SetFault("file.flashcache_attribute", std::string(100000, 'n'));
    EXPECT_EQ(VEMOFlashCacheAttributeGet(kSsd, kSpace), -1);
    SetFault("file.flashcache_attribute", "");
    spy::state().log.clear();
    EXPECT_EQ(VEMOFlashCacheAttributeGet(kSsd, kSpace), -1);
    EXPECT_THAT(spy::LoggedTexts(),
                ElementsAre("Failed to read a line from "s + kFile, "Failed to read flashcache_attribute"));
}

// Puts an ordinary file in the place of the kernel's, so that the bytes can be seen.
class AttributeBytesTest : public AttributeTest {
  protected:
    void SetUp() override {
        AttributeTest::SetUp();
        Begin();
        WriteWhole(kPlain, "what was there before");
        ASSERT_EQ(mount(kPlain, kFile, nullptr, MS_BIND, nullptr), 0);
    }
    static constexpr const char* kPlain = "/tmp/attribute";
};

TEST_F(AttributeBytesTest, TheTextAndItsZeroByteAreWritten) {
    EXPECT_EQ(VEMOFlashCacheAttributeSet(kSsd, kSpace, FLASHCACHE_ATTRIBUTE_FORCE_REMOVE), 0);
    EXPECT_EQ(ReadWhole(kPlain), "force-remove\0"s);
    EXPECT_EQ(VEMOFlashCacheAttributeSet(kSsd, kSpace, FLASHCACHE_ATTRIBUTE_NONE), 0);
    EXPECT_EQ(ReadWhole(kPlain), "none\0"s);
    EXPECT_EQ(VEMOFlashCacheAttributeSet(kSsd, kSpace, 2), -1);
    EXPECT_EQ(ReadWhole(kPlain), "");
    EXPECT_THAT(spy::LoggedTexts(), ElementsAre("Unknown attribute = 2"));
}

TEST_F(AttributeBytesTest, AWriteThatComesOutShortFails) {
    std::signal(SIGXFSZ, SIG_IGN);
    const rlimit fourBytes{4, RLIM_INFINITY};
    ASSERT_EQ(setrlimit(RLIMIT_FSIZE, &fourBytes), 0);
    EXPECT_EQ(VEMOFlashCacheAttributeSet(kSsd, kSpace, FLASHCACHE_ATTRIBUTE_NONE), -1);
    EXPECT_THAT(spy::LoggedTexts(), ElementsAre("Write failed (numWritten = 4)"));
    const rlimit unlimited{RLIM_INFINITY, RLIM_INFINITY};
    setrlimit(RLIMIT_FSIZE, &unlimited);
}

TEST_F(AttributeTest, BadArgumentsAndCachesThatAreNotLoadedAreRefused) {
    EXPECT_EQ(VEMOFlashCacheAttributeSet(kSsd, kSpace, -1), -1);
    EXPECT_EQ(VEMOFlashCacheAttributeSet(nullptr, kSpace, 0), -1);
    EXPECT_EQ(VEMOFlashCacheAttributeGet(kSsd, nullptr), -1);
    EXPECT_EQ(VEMOFlashCacheAttributeSet("md3", kSpace, 0), -1);
    EXPECT_EQ(VEMOFlashCacheAttributeSet(kSsd, "/mnt/x", 0), -1);
    EXPECT_EQ(VEMOFlashCacheAttributeSet(kSsd, kSpace, 1), -1);
    EXPECT_EQ(VEMOFlashCacheAttributeGet(kSsd, kSpace), -1);
    EXPECT_THAT(spy::LoggedTexts(),
                ElementsAre("Incorrect Parameter", "Incorrect Parameter", "Incorrect Parameter",
                            "Bad device path : [md3]", "Failed to get SSD dev", "Bad device path : [/mnt/x]",
                            "Failed to get Space dev", "Failed to open "s + kFile + " to write",
                            "Failed to open "s + kFile + " to read", "Failed to read flashcache_attribute"));
    EXPECT_EQ(VLIBCErrGet(), 0);
}

}  // namespace
