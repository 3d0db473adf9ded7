// Caches on the appliance that a test runs on, and what is done to them behind the library's back.
#pragma once

#include <sys/types.h>

#include <functional>
#include <string>
#include <vector>

#include "support/library_test.h"

namespace appliance {

inline constexpr const char* kSsd = "/dev/md3";
inline constexpr const char* kSpace = "/dev/vg1/volume_1";
inline constexpr const char* kCache = "/dev/mapper/cachedev_0";
inline constexpr const char* kKernelName = "md3+volume_1";
inline constexpr const char* kConfig = "/usr/vemo/etc/flashcache.conf";
inline constexpr const char* kConfigCopy = "/tmp/flashcache.conf";

// Runs a program, unseen by the spy; its exit code, 128 + signal when one ended it.
int RunProgram(std::vector<std::string> words);

// Makes something go wrong in the simulated kernel; "ok" ends it.
void SetFault(const std::string& name, const std::string& value);

// Creates an empty file.
void Touch(const std::string& path);

// Puts `text` in the place of `from` in a file.
void Replace(const std::string& path, const std::string& from, const std::string& text);

// What the kernel shows of a cache.
int KnobValue(const std::string& knob, const std::string& cache = kKernelName);
int DirtyBlocks(const std::string& cache = kKernelName);

// Runs `body` in a child process that ends with its result as exit code.
pid_t Fork(const std::function<int()>& body);

// Waits for a child; its exit code, 128 + signal when one ended it.
int Wait(pid_t child);

// Writes that many blocks of 4 KiB, each with a content of its own that `seed` varies, to the start of a
// device; they are on the disk when this returns.
void WriteBlocks(const std::string& device, int count, char seed = 'a');

// Whether the device holds what WriteBlocks writes.
bool HoldsBlocks(const std::string& device, int count, char seed = 'a');

// Records a cache in the configuration.
void AddEntry(const char* section, const char* ssd, const char* space,
              FLASHCACHE_WRITE_MODE mode = FLASHCACHE_WRITE_BACK,
              FLASHCACHE_VERSION version = FLASHCACHE_VERSION_ORIGINAL);

// The flush state recorded for the cache on this SSD; "unreadable", or "differ" when file and copy do.
std::string FlushStateOf(const char* ssd = kSsd);

// Creates a cache of 4096 blocks through the library.
void CreateCache(FLASHCACHE_WRITE_MODE mode = FLASHCACHE_WRITE_BACK, const char* ssd = kSsd,
                 const char* space = kSpace);

}  // namespace appliance

// A test with entries in the configuration: "mine" for the cache on the appliance's disks, and another that
// nothing may change.
class CacheTest : public LibraryTest {
  protected:
    void SetUp() override;
    void TearDown() override;

    // Creates the cache of the entry.
    static void Begin(FLASHCACHE_WRITE_MODE mode = FLASHCACHE_WRITE_BACK);

    // Makes the spy and the error slot as new.
    static void Forget();

    // The knobs that the library wrote, as "knob=value", in order.
    static std::vector<std::string> KnobWrites();

    // Lets write number `failing` (0 the next) of the knob tool fail, and with `stays` all that follow.
    static void FailKnobWrite(int failing, bool stays = false);
};
