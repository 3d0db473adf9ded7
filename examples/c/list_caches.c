/* Lists the running caches: SSD, volume, size and read hits. */
#include <inttypes.h>
#include <stdio.h>
#include <vemoflashcache.h>

static const char* ModeName(int32_t mode) {
    switch (mode) {
        case FLASHCACHE_WRITE_BACK:
            return "write-back";
        case FLASHCACHE_WRITE_AROUND:
            return "write-around";
        case FLASHCACHE_WRITE_THRU:
            return "write-through";
        default:
            return "unknown mode";
    }
}

int main(void) {
    FLASHCACHE_STAT* caches = NULL;
    const int count = VEMOFlashCacheStatGet(NULL, &caches);
    if (count < 0) {
        /* A code in the slot may be of an earlier call; here there was none. */
        fprintf(stderr, "the caches cannot be described [0x%04X]; the system log says more\n",
                (unsigned)VLIBCErrGet());
        return 1;
    }
    for (const FLASHCACHE_STAT* cache = caches; cache != NULL; cache = cache->Next) {
        const uint64_t mib = cache->TotalBlocks * (uint64_t)cache->BlockSizeKB / 1024;
        printf("%s in front of %s: %s, %" PRIu64 " MiB, %u%% of the reads hit\n", cache->SSDDevPath,
               cache->SpacePath, ModeName(cache->WriteMode), mib, cache->CountStat.ReadHitPercent);
    }
    VEMOFlashCacheStatFree(&caches);
    return 0;
}
