// Flushes a cache and tells how far it is. Ctrl-C cancels the flush; what is dirty then stays on the SSD.
#include <vemoflashcache.h>

#include <atomic>
#include <chrono>
#include <csignal>
#include <cstdio>
#include <memory>
#include <string>
#include <thread>

namespace {

std::atomic<bool> isCancelled = false;

struct FreeStat {
    void operator()(FLASHCACHE_STAT* caches) const { VEMOFlashCacheStatFree(&caches); }
};
using Stat = std::unique_ptr<FLASHCACHE_STAT, FreeStat>;

Stat StatOf(const std::string& device) {
    FLASHCACHE_STAT_SEARCH search{};
    search.type = FLASHCACHE_SEARCH_BY_CACHE_DEV_PATH;
    search.CacheDevPath = device.c_str();
    FLASHCACHE_STAT* found = nullptr;
    return VEMOFlashCacheStatGet(&search, &found) == 1 ? Stat(found) : nullptr;
}

// Until the flush is over; asks it to stop once that is wished.
void Watch(const std::string& device, const FLASHCACHE_STAT& cache, const std::atomic<bool>& isOver) {
    bool isAsked = false;
    while (!isOver) {
        const int dirty = VEMOFlashCacheDirtyBlockGet(VEMOFlashCacheGetShortDevName(cache.SSDDevPath),
                                                      VEMOFlashCacheGetShortDevName(cache.SpacePath));
        std::printf("%d dirty blocks left\n", dirty);
        std::fflush(stdout);
        // There may be no flush to cancel yet.
        isAsked = isAsked || (isCancelled && VEMOFlashCacheFlushCancel(device.c_str()) == 1);
        for (int i = 0; i < 10 && !isOver; ++i) {
            std::this_thread::sleep_for(std::chrono::milliseconds(50));
        }
    }
}

}  // namespace

int main(int argc, char** argv) {
    if (argc != 2) {
        std::fprintf(stderr, "usage: flush_cache /dev/mapper/cachedev_N\n");
        return 2;
    }
    const std::string device = argv[1];
    const Stat cache = StatOf(device);
    if (cache == nullptr) {
        std::fprintf(stderr, "there is no running cache %s\n", device.c_str());
        return 1;
    }
    std::signal(SIGINT, [](int) { isCancelled = true; });

    // The call lasts as long as the flush does. The library may be called from several threads.
    std::atomic<bool> isOver = false;
    std::thread watcher(Watch, device, std::cref(*cache), std::cref(isOver));
    const int result = VEMOFlashCacheFlush(device.c_str());
    isOver = true;
    watcher.join();

    std::puts(result == 1 ? "flushed" : result == 0 ? "cancelled" : "failed");
    if (result == 1) {
        // A flush leaves its cache ready for removal; this one is to go on.
        return SetNormalState(cache->SSDDevPath, cache->SpacePath) == 0 ? 0 : 1;
    }
    return result == 0 ? 3 : 1;
}
