#include <sys/stat.h>

#include "common/handle.h"
#include "support/library_test.h"

namespace {

using flashcache::StringList;
using testing::ElementsAre;
using testing::IsEmpty;

constexpr const char* kList = "/usr/vemo/etc/flashcache_ssd_sn_list.conf";
constexpr const char* kSerialLock = "/var/lock/cache_config_serial_list.lock";

class SerialListTest : public LibraryTest {
  protected:
    static StringList Serials(const char* joined) {
        StringList list(VLIBCSzListAlloc(8));
        EXPECT_GE(VLIBCStrTok(joined, ",", list.address()), 0);
        return list;
    }

    static int Check(const char* joined) {
        return VEMOFlashcacheConfigSerialListCheck("vendor", Serials(joined).get());
    }
};

TEST_F(SerialListTest, StoresComparesAndReplaces) {
    ASSERT_EQ(VEMOFlashcacheConfigSerialListSet("vendor", "A,B,C"), 0);
    ASSERT_EQ(VEMOFlashcacheConfigSerialListSet("other", "X"), 0);
    EXPECT_EQ(ReadWhole(kList), "[vendor]\n\tavailableSerials = A,B,C\n[other]\n\tavailableSerials = X\n");
    struct stat status{};
    ASSERT_EQ(stat(kList, &status), 0);
    EXPECT_EQ(status.st_mode & 07777, 0600U);
    const std::pair<const char*, int> cases[] = {{"A,C", 0}, {"A,D", 1}, {"", 0}, {"a", 1}, {"A,B,C", 0}};
    for (const auto& [serials, missing] : cases) {
        EXPECT_EQ(Check(serials), missing) << serials;
    }
    EXPECT_EQ(VEMOFlashcacheConfigSerialListCheck("vendor", nullptr), 0);
    ASSERT_EQ(VEMOFlashcacheConfigSerialListSet("vendor", "D"), 0);
    EXPECT_EQ(Check("D"), 0);
    EXPECT_EQ(Check("A"), 1);
    StringList list;
    EXPECT_EQ(VEMOFlashcacheConfigSerialListGet("other", list.address()), 1);
    EXPECT_STREQ(VLIBCSzListGet(list.get(), 0), "X");
    EXPECT_EQ(VEMOFlashcacheConfigSerialListDelete("vendor"), 0);
    EXPECT_EQ(ReadWhole(kList), "[other]\n\tavailableSerials = X\n");
    EXPECT_THAT(spy::LoggedTexts(true), IsEmpty());
    EXPECT_TRUE(std::ifstream(kSerialLock).good());
}

TEST_F(SerialListTest, WhatIsNotThere) {
    StringList list;
    EXPECT_EQ(VEMOFlashcacheConfigSerialListGet("vendor", list.address()), 0);
    EXPECT_EQ(Check("A"), 0);
    EXPECT_FALSE(std::ifstream(kSerialLock).good());
    WriteWhole(kList, "[other]\n\tx = y\n");
    EXPECT_EQ(VEMOFlashcacheConfigSerialListGet("vendor", list.address()), 0);
    EXPECT_EQ(VEMOFlashcacheConfigSerialListGet("other", list.address()), -1);
    EXPECT_EQ(VEMOFlashcacheConfigSerialListCheck("other", nullptr), 0);
    EXPECT_FALSE(list);
    const std::string lacks = std::string("Failed to get availableSerials from ") + kList;
    EXPECT_THAT(spy::LoggedTexts(), ElementsAre("No available SSDs of vendor in system", lacks, lacks,
                                                "Failed to get serial list of other"));
}

TEST_F(SerialListTest, RefusesMissingArguments) {
    StringList list;
    EXPECT_EQ(VEMOFlashcacheConfigSerialListGet(nullptr, list.address()), -1);
    EXPECT_EQ(VEMOFlashcacheConfigSerialListGet("vendor", nullptr), -1);
    EXPECT_EQ(VEMOFlashcacheConfigSerialListSet(nullptr, "A"), -1);
    EXPECT_EQ(VEMOFlashcacheConfigSerialListSet("vendor", nullptr), -1);
    EXPECT_THAT(spy::LoggedTexts(), testing::Each("Incorrect paramter"));
    EXPECT_EQ(spy::state().log.size(), 4U);
    EXPECT_EQ(VEMOFlashcacheConfigSerialListDelete(nullptr), -1);
    EXPECT_EQ(VEMOFlashcacheConfigSerialListCheck(nullptr, nullptr), 0);
    EXPECT_EQ(VLIBCErrGet(), 0);
}

TEST_F(SerialListTest, EachFailureHasItsMessageAndGivesTheLockBack) {
    const std::function<int()> get = [] {
        StringList list;
        const int result = VEMOFlashcacheConfigSerialListGet("vendor", list.address());
        EXPECT_FALSE(list);
        return result;
    };
    const std::function<int()> set = [] { return VEMOFlashcacheConfigSerialListSet("vendor", "B"); };
    const std::function<int()> drop = [] { return VEMOFlashcacheConfigSerialListDelete("vendor"); };
    const std::string file = kList;
    const struct {
        std::function<int()> call;
        const char* function;
        int error;
        int result;
        std::string logged;
    } cases[] = {
        {get, "VLIBCSzHashAlloc", 0, -1, "Failed to alloc hash for " + file},
        {get, "VLIBCFileLockTimeByFile", 0, -1, std::string("Failed to lock ") + kSerialLock},
        {get, "VLIBCFileGetSection", 0, -1, "Failed to get section [vendor] from " + file},
        {get, "VLIBCSzListAlloc", 0, -1, "Fail to allocate list"},
        {get, "VLIBCStrTok", 0, -1, "Failed to strtok A"},
        {set, "VLIBCSzHashAlloc", 0, -1, "Failed to alloc hash for [vendor]"},
        {set, "VLIBCFileLockTimeByFile", 0, -1, std::string("Failed to lock ") + kSerialLock},
        {set, "VLIBCFileSetSection", 0x0B00, -1, "Failed to set key [vendor] into " + file + " err=2816"},
        {set, "chmod", EPERM, 0, "Failed to change permission mode (Operation not permitted)"},
        {drop, "VLIBCFileLockTimeByFile", 0, -1, std::string("Failed to lock ") + kSerialLock},
        {drop, "VLIBCFileRemoveSection", 0, -1, "Failed to remove section [vendor] from [" + file + "]"},
    };
    for (const auto& test : cases) {
        ASSERT_EQ(VEMOFlashcacheConfigSerialListSet("vendor", "A"), 0);
        spy::state() = {};
        spy::state().faults[test.function] = {1, false, test.error};
        EXPECT_EQ(test.call(), test.result);
        EXPECT_THAT(spy::LoggedTexts(), ElementsAre(test.logged));
    }
    spy::state() = {};
    spy::state().faults = {{"VLIBCFileSetSection", {1, false, 0x0900}}, {"VLIBCFileAddSection", {}}};
    EXPECT_EQ(set(), -1);
    EXPECT_THAT(spy::LoggedTexts(), ElementsAre("Failed to add key[vendor] into " + file));
}

}  // namespace
