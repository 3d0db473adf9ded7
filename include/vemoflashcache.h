/*
 * vemoflashcache.h: SSD caches of the storage appliance.
 *
 * WHERE DATA CAN BE LOST. A write-back cache holds blocks that lie on its SSD alone.
 *
 *   - VEMOFlashCacheCreate WIPES THE SSD FIRST, before version, size and volume are looked at.
 *   - VEMOFlashCacheDelete GOES ON WHEN ITS FLUSH IS CANCELLED, and wipes the SSD.
 *   - The attribute "force-remove" LETS A FLUSH GIVE UP the blocks that cannot be written back.
 *   - NO TWO LIFECYCLE OPERATIONS AT ONCE, on whatever caches: create, load, unload, delete, expand, destroy.
 *     Two that look for a name may choose the same, and one may remove the modules that another just loaded.
 *     Nothing here keeps them apart; the callers must.
 *   - A FLUSH IS CANCELLED BY WHOEVER WRITES AN OLDER RECORD BACK: its only channel is the text FlushState of
 *     the configuration entry. To read an entry, change it and write it is not one step: of two callers who
 *     do so at once, one loses its change. Write no entry of a cache that is being flushed.
 *   - VEMOFlashcacheGetCachePath, and with it VEMOFlashCacheStatGet by SSD or space path and
 *     VEMOFlashCacheExpand, COMPARE BEGINNINGS: for "/dev/md2" they may answer with the cache on "/dev/md20".
 *     Compare the paths of the answer before acting on it.
 *
 * Conventions, stated once for all functions below:
 *
 * Results.    An operation that acts returns 0 when done and -1 when it failed. A question returns 1
 *             or 0 and folds a failure into 0. A reader of lists returns the number of records, or -1.
 *             What departs from this says so.
 * Arguments.  Texts are NUL-terminated. Texts and records passed in stay the caller's. A bad argument
 *             fails the call before it does anything, in one of two ways:
 *             "refused by code": 0x0D00 in the error slot and not a line in the log;
 *             "refused in the log": a line in the log and no code.
 * Out values. Written on success only, unless said otherwise. Out texts are cut to their buffer and
 *             always terminated; buffer sizes are in bytes and count the terminator.
 * Ownership.  Records and lists that a function returns belong to the caller, who releases them with
 *             the release function named there; single texts are released with free().
 * Log.        Other failures are logged to syslog at LOG_ERR as "<module>:<line> <what happened>", but for
 *             the few that are said to be silent. So are notices: programs about to run, and what they print.
 * Errors.     Some failures also record a code in the platform's error slot of the calling thread, read with
 *             VLIBCErrGet(): 0x0D00 missing or invalid argument, 0x0600 no such cache is running,
 *             0x0900 a file could not be opened, 0x0B00 a write came out short, 0x8100 an external
 *             program failed. The platform's calls beneath record theirs, too, these and others such as
 *             0x2000 (no such section). So a code means something only after a call that failed: one that
 *             succeeded may leave a code (VEMOFlashCacheConfigSet and VEMOFlashcacheConfigSerialListSet
 *             of a new section, FlashcacheDoStatistics, VEMOFlashCacheCreate), and one that fails without
 *             a code leaves the one from before. None of these calls clears the slot. To tell a
 *             fresh code from a stale one, put a code of your own there before the call, with the core
 *             library's "void VLIBCErrSetEx(int code, const char *file, int line)"; or call from a new
 *             thread, whose slot begins with 0.
 * Threads.    Any thread may call, but see above for lifecycle operations, and
 *             VEMOFlashCacheSupportSSDUpdate.
 * Programs.   Most calls run programs and wait for them without a limit; each section says which. They need
 *             their exit status: the process must not ignore SIGCHLD, nor wait for children that it did not
 *             start (waitpid(-1)). Otherwise a program that did its work counts as failed.
 * Time.       Where a lock is taken, a call waits up to 30 seconds for it.
 * Files.      New files get the modes said, or 0666, less the caller's umask. Of what lies in "/tmp" under
 *             a name of ours only a regular file of root's or of the caller's effective user counts, without
 *             a second name: anything else is logged, and removed where we write or refused where we read.
 * Locks.      Are flock()s on descriptors that exec closes and fork does not: a child forked by another
 *             thread in the midst of a call holds the lock until it ends or executes a program.
 * Markers.    Files that change what calls do, meant for tests and support, to be removed afterwards:
 *             "/tmp/flashcache_stats" stands in for the counters of every cache, "/flashcache-create-64mb"
 *             makes every new cache 64 MiB large, "/tmp/cache-debug-remove" lets flushes log more.
 * Paths.      SSD and space (data volume) device paths begin with "/dev/", cache device paths with
 *             "/dev/mapper/cachedev". The short name of a device is the text after its last "/". The two
 *             short names of a cache must not exceed 28 characters together, since the kernel's files are
 *             looked for under paths of 63 at most: the status of a cache with longer ones fails. Above 20
 *             its dirty threshold reads as 0, above 22 its reclaim policy as FIFO, above 24 its fallow delay
 *             as 0.
 */
#ifndef VEMOFLASHCACHE_H
#define VEMOFLASHCACHE_H

#include <stdint.h>

#if defined(__GNUC__)
#define VEMOFLASHCACHE_API __attribute__((visibility("default")))
#else
#define VEMOFLASHCACHE_API
#endif

#ifdef __cplusplus
extern "C" {
#endif

/* The platform's list of texts; made and released with the platform's own calls. */
struct VLIBC_SZLIST;

/* ---- Enumerations -------------------------------------------------------------------------- */

/* How a cache treats writes. 3 has no meaning and is refused. */
typedef int32_t FLASHCACHE_WRITE_MODE;
enum {
    FLASHCACHE_WRITE_THRU = 0,        /* "thru" */
    FLASHCACHE_WRITE_BACK = 1,        /* "back" */
    FLASHCACHE_WRITE_AROUND = 2,      /* "around" */
    FLASHCACHE_WRITE_BACK_BYPASS = 4, /* "back_bypass" */
    FLASHCACHE_WRITE_BACK_CRASH = 5   /* "back_crash" */
};

/* Which block a full cache gives up first. The kernel's own knob numbers these the other way round. */
typedef int32_t FLASHCACHE_RECLAIM_POLICY;
enum {
    FLASHCACHE_RECLAIM_LRU = 0, /* "lru" */
    FLASHCACHE_RECLAIM_FIFO = 1 /* "fifo" */
};

/* Format of a cache's metadata on the SSD. */
typedef int32_t FLASHCACHE_VERSION;
enum {
    FLASHCACHE_VERSION_UNKNOWN = -1,
    FLASHCACHE_VERSION_ORIGINAL = 0, /* "original": blocks of 4 KiB */
    FLASHCACHE_VERSION_NEW = 1       /* "new(vemo)": blocks of 64 KiB */
};

/* Which text of a search names the cache. */
typedef int32_t FLASHCACHE_SEARCH_TYPE;
enum {
    FLASHCACHE_SEARCH_BY_SSD_UUID = 1,
    FLASHCACHE_SEARCH_BY_SECTION = 2,
    FLASHCACHE_SEARCH_BY_SSD_DEV_PATH = 3,
    FLASHCACHE_SEARCH_BY_SPACE_PATH = 4,
    FLASHCACHE_SEARCH_BY_REFERENCE_PATH = 5,
    FLASHCACHE_SEARCH_BY_CACHE_DEV_PATH = 6 /* status searches only */
};

/* The run-time knobs of a loaded cache device. 0 names no knob. */
typedef int32_t FLASHCACHE_SYSCTL;
enum {
    FLASHCACHE_SYSCTL_FALLOW_DELAY = 1, /* seconds before an idle dirty block is cleaned */
    FLASHCACHE_SYSCTL_FALLOW_CLEAN_SPEED = 2,
    FLASHCACHE_SYSCTL_CACHE_ALL = 3,
    FLASHCACHE_SYSCTL_FAST_REMOVE = 4, /* 1: removal leaves dirty blocks unwritten */
    FLASHCACHE_SYSCTL_ZERO_STATS = 5,
    FLASHCACHE_SYSCTL_RECLAIM_POLICY = 6, /* kernel numbering: 0 FIFO, 1 LRU */
    FLASHCACHE_SYSCTL_PID_EXPIRY_SECS = 7,
    FLASHCACHE_SYSCTL_MAX_PIDS = 8,
    FLASHCACHE_SYSCTL_DO_PID_EXPIRY = 9,
    FLASHCACHE_SYSCTL_MAX_CLEAN_IOS_SET = 10,
    FLASHCACHE_SYSCTL_MAX_CLEAN_IOS_TOTAL = 11,
    FLASHCACHE_SYSCTL_DIRTY_THRESH_PCT = 12, /* percent of a set that may be dirty */
    FLASHCACHE_SYSCTL_STOP_SYNC = 13,
    FLASHCACHE_SYSCTL_DO_SYNC = 14,
    FLASHCACHE_SYSCTL_IO_LATENCY_HIST = 15,
    FLASHCACHE_SYSCTL_SKIP_SEQ_THRESH_KB = 16 /* KiB; longer sequential I/O bypasses the cache; 0: never */
};

/* The regimes in which a loaded cache device is run, each a combination of knobs. */
typedef int32_t FLASHCACHE_HANDLE_STATE;
enum {
    FLASHCACHE_HANDLE_STATE_UNKNOWN = -1,       /* "Unknown" */
    FLASHCACHE_HANDLE_STATE_FLUSH = 0,          /* "Flush": all dirty blocks are being written back */
    FLASHCACHE_HANDLE_STATE_NORMAL = 1,         /* "Normal": normal caching */
    FLASHCACHE_HANDLE_STATE_REPAIRING = 2,      /* "Repairing" */
    FLASHCACHE_HANDLE_STATE_STOP_WRITEBACK = 3  /* "StopWriteBack": dirty blocks stay where they are */
};

/* Whether a cache is to be removed by force. WITH "force-remove" A FLUSH GIVES UP the blocks whose write-back
 * fails: it comes to its end without them, and their data are lost. */
typedef int32_t FLASHCACHE_ATTRIBUTE;
enum {
    FLASHCACHE_ATTRIBUTE_NONE = 0, /* "none" */
    FLASHCACHE_ATTRIBUTE_FORCE_REMOVE = 1 /* "force-remove" */
};

/* The state of a removal flush, kept in the cache's configuration entry. */
typedef uint32_t FLASHCACHE_FLUSH_STATE;
enum {
    FLASHCACHE_FLUSH_STATE_NORMAL = 0, /* "normal": none is running, or it was cancelled or failed */
    FLASHCACHE_FLUSH_STATE_FLUSHING = 1, /* "flushing" */
    FLASHCACHE_FLUSH_STATE_FLUSH_DONE =
        2 /* "flush_done": nothing is dirty, the device still in state Flush */
};

/* ---- Records ------------------------------------------------------------------------------- */

/* A cache's configured tuning. */
typedef struct FLASHCACHE_POLICY {
    int32_t WriteMode; /* FLASHCACHE_WRITE_MODE */
    int32_t ReclaimPolicy; /* FLASHCACHE_RECLAIM_POLICY */
    int32_t DelaySeconds; /* fallow delay in seconds; 0 or less leaves the kernel's default */
    int32_t DirtyThreshPercent; /* 0 or less leaves the kernel's default */
    int32_t SkipSeqIO; /* boolean: sequential I/O bypasses the cache */
} FLASHCACHE_POLICY;

/* One cache's configuration entry, a link of a list. The texts are the record's own: who replaces
 * one frees the old text and stores a newly allocated one. */
typedef struct FLASHCACHE_CONFIG {
    char *SSDUUID;
    char *SSDDevPath;
    char *SectionName; /* the section of the file that holds this entry */
    char *SpacePath;
    char *ReferencePath; /* mount path of the volume, "/volume%d" */
    FLASHCACHE_POLICY Policy;
    struct FLASHCACHE_CONFIG *Next; /* NULL at the end */
    char *SSDID;
    char *DiskLoc;
    int32_t CacheMissing; /* nonzero: the SSD side is missing */
    int32_t SpaceMissing;
    int32_t loaded;
    uint64_t CacheSizeByte;
    int32_t CacheVersion; /* FLASHCACHE_VERSION; -1 when unknown */
    int32_t CreateCritSection;
    int32_t ConfigSource;
    /* "normal", "flushing", "flush_done" or empty. Whoever writes "normal" cancels the flush that runs. */
    char *FlushState;
} FLASHCACHE_CONFIG;

/* Selects one configuration entry: zero the record, set `type` (1 to 5) and the text that it names.
 * Texts are compared whole; NULL matches nothing. The texts stay the caller's. */
typedef struct FLASHCACHE_CONFIG_SEARCH {
    int32_t type; /* FLASHCACHE_SEARCH_TYPE */
    const char *SSDUUID;
    const char *SSDDevPath;
    const char *SectionName;
    const char *ReferencePath;
    const char *SpacePath;
} FLASHCACHE_CONFIG_SEARCH;

/* The I/O counters of one cache. Sequential I/O that bypassed the cache is left out of the base of
 * the percentages. */
typedef struct FLASHCACHE_COUNT_STAT {
    uint32_t ReadHitPercent;
    uint32_t WriteHitPercent; /* write hits and SSD write misses */
    uint64_t Reads;
    uint64_t Writes;
    uint64_t ReadHits;
    uint64_t WriteHits; /* 0 for write-around caches */
    uint64_t UncachedSeqReads;
    uint64_t UncachedSeqWrites;
    uint64_t WriteMissSSD; /* 0 for write-around caches */
} FLASHCACHE_COUNT_STAT;

/* The status of one live cache, a link of a list. The two paths are the record's own. */
typedef struct FLASHCACHE_STAT {
    char *SSDDevPath;
    char *SpacePath;
    int32_t WriteMode; /* FLASHCACHE_WRITE_MODE 0, 1 or 2; -1 when unknown */
    int32_t ReclaimPolicy; /* FLASHCACHE_RECLAIM_POLICY; -1 when unknown */
    int32_t FallowDelay; /* seconds; 0 unless write-back */
    int32_t DirtyThreshPct; /* 0 unless write-back */
    FLASHCACHE_COUNT_STAT CountStat;
    uint64_t TotalBlocks;
    uint64_t CachedBlocks;
    int32_t SupportPin;
    struct FLASHCACHE_STAT *Next; /* NULL at the end */
    int32_t BlockSizeKB;
} FLASHCACHE_STAT;

/* Selects one live cache: zero the record, set `type` (3, 4 or 6) and the path that it names. */
typedef struct FLASHCACHE_STAT_SEARCH {
    int32_t type; /* FLASHCACHE_SEARCH_TYPE */
    const char *SSDDevPath;
    const char *SpacePath;
    const char *CacheDevPath;
} FLASHCACHE_STAT_SEARCH;

/* What a new cache is made of. */
typedef struct FLASHCACHE_CREATE_PARAM {
    const char *SSDDevPath; /* required */
    const char *SpacePath; /* required */
    const char *CacheDevPath; /* wanted cache device path; NULL: the first free cachedev_N */
    uint64_t CacheSizeKB; /* size of the cache in KiB, not 0 */
    FLASHCACHE_POLICY Policy;
    int32_t CacheVersion; /* FLASHCACHE_VERSION */
} FLASHCACHE_CREATE_PARAM;

/* An SSD whose support is asked for. A Model of "" is the beginning of every model. */
typedef struct FLASHCACHE_SSD_INFO {
    const char *Model;
    uint64_t Size; /* bytes, not 0 */
} FLASHCACHE_SSD_INFO;

/* One SSD of the compatibility database. The texts are the record's own; NULL where the database has
 * none, except Name. */
typedef struct FLASHCACHE_SUPPORT_SSD {
    char *Name; /* the section: "<model>|<capacity in GiB>" */
    char *Brand;
    char *Size;
    char *Since;
    char *SupportModels;
} FLASHCACHE_SUPPORT_SSD;

/* A link of the list of supported SSDs. */
typedef struct FLASHCACHE_SUPPORT_SSD_LIST {
    FLASHCACHE_SUPPORT_SSD *SSD;
    struct FLASHCACHE_SUPPORT_SSD_LIST *Next; /* NULL at the end */
} FLASHCACHE_SUPPORT_SSD_LIST;

/* What was last touched on one day. */
typedef struct FLASHCACHE_FILE_STAT_DAY {
    int32_t Year;
    int32_t Month;
    int32_t Day;
    uint64_t FileCount;
    uint64_t FileSizeSum; /* bytes occupied on disk */
} FLASHCACHE_FILE_STAT_DAY;

/* ---- The platform's error slot --------------------------------------------------------------
 * Functions of the platform's core library (libvemocore), declared here for the callers' comfort.
 * The slot is per thread; "Errors" above says when a code in it means something. */

/* The code recorded last, 0 when none was. */
int VLIBCErrGet(void);

/* Source file and line that recorded it; never NULL. */
const char *VLIBCErrorGetFile(void);
int VLIBCErrorGetLine(void);

/* ---- The platform's lists of texts ----------------------------------------------------------
 * Also of libvemocore: what the callers of the serial number functions need. */

/* A new empty list, NULL on failure. */
struct VLIBC_SZLIST *VLIBCSzListAlloc(int capacity);

/* Appends the pieces of `text` between any of `separators`. Returns their number, -1 on failure. */
int VLIBCStrTok(const char *text, const char *separators, struct VLIBC_SZLIST **list);

/* The text at `index`, counted from 0, which lives as long as the list; NULL past the end. */
const char *VLIBCSzListGet(const struct VLIBC_SZLIST *list, int index);

void VLIBCSzListFree(struct VLIBC_SZLIST *list);

/* ---- Locks and utilities ------------------------------------------------------------------- */

/* Takes an advisory lock on the file `path`, which is made (mode 0644) when absent and never removed.
 * Tries every 100 ms, at most 300 times, so that a call takes about 30 seconds at the most.
 * exclusive: nonzero for an exclusive lock, 0 for a shared one.
 * fd: receives the descriptor that holds the lock, for VEMOFlashCacheUnlock; untouched on failure.
 * Returns 1 when the lock is held, else 0; path and fd are required, refused in the log. Two acquisitions in
 * one process exclude each other too. A child that was forked meanwhile holds the lock as well, and its
 * unlocking releases it for both. */
VEMOFLASHCACHE_API int VEMOFlashCacheLock(const char *path, int exclusive, int *fd);

/* Releases the lock held by `fd` and closes it. Returns 1 when done, else 0 (a negative fd is refused in the
 * log); when the unlocking itself failed, fd stays open. */
VEMOFLASHCACHE_API int VEMOFlashCacheUnlock(int fd);

/* The text after the last "/" of the device path `path`, as a pointer into it, or NULL (refused in the log)
 * when it is NULL or does not begin with "/dev/". */
VEMOFLASHCACHE_API const char *VEMOFlashCacheGetShortDevName(const char *path);

/* The last line, line end included, of the file `entry` in the kernel's directory of the cache that
 * pairs these two devices. The caller frees the text. NULL on failure; a bad argument is refused in the log.
 */
VEMOFLASHCACHE_API char *FlashCacheUtilProcRead(const char *ssdPath, const char *spacePath,
                                                const char *entry);

/* Copies the file `src` over `dst` with "/bin/cp -f": follows links, copies into a folder, waits on a pipe.
 * Returns 0 or -1; both are required, refused in the log. */
VEMOFLASHCACHE_API int VEMOFCCopyFile(const char *src, const char *dst);

/* Makes sure that `path` is a directory, making it (mode 0755, no parents) when absent. Returns 0 or -1; NULL
 * is refused in the log. */
VEMOFLASHCACHE_API int VEMOFCCheckDirExistOrCreate(const char *path);

/* ---- Configuration -------------------------------------------------------------------------
 * The permanent file, "/usr/vemo/etc/flashcache.conf", and its temporary copy, "/tmp/flashcache.conf", under
 * one lock. Writing runs "/bin/cp" and "/bin/mv".
 *
 * The copy is what these read: VEMOFlashCacheConfigTmpGet, VEMOFlashCacheIsRemoveInFlushState,
 * VEMOFlashCacheFlush and FlushCancel (and so VEMOFlashCacheDelete of a write-back cache),
 * VEMOFlashCacheGetFlushProgress, VEMOFlashCacheExpand and the two queries of configured memory. It is gone
 * after a restart: until VEMOFlashCacheConfigTmpUpdate or a change made it, no cache counts as configured for
 * them, so that flushing and expanding fail and no memory is needed. */

/* Reads the configuration file "/usr/vemo/etc/flashcache.conf" under its lock.
 * criteria: NULL for all entries, else which one.
 * list: address of a pointer that holds NULL, or NULL when only the count is wanted. Receives the
 *       entries in file order, or the first one that matches; VEMOFlashCacheConfigFree releases them.
 * Returns the number of entries without criteria; 1 found or 0 not found with criteria; 0 without a
 * file; -1 on failure, and then *list is NULL. One section without keys fails the whole read. */
VEMOFLASHCACHE_API int VEMOFlashCacheConfigGet(const FLASHCACHE_CONFIG_SEARCH *criteria,
                                               FLASHCACHE_CONFIG **list);

/* The same from the temporary copy "/tmp/flashcache.conf"; -1 also when it is not ours. */
VEMOFLASHCACHE_API int VEMOFlashCacheConfigTmpGet(const FLASHCACHE_CONFIG_SEARCH *criteria,
                                                  FLASHCACHE_CONFIG **list);

/* Searches a list in memory, holding the configuration lock meanwhile.
 * criteria: required, refused by code. list: may be NULL. found: NULL, or receives the first match, which
 * stays part of the list. Returns 1 found, 0 not found, -1 on failure. */
VEMOFLASHCACHE_API int VEMOFlashCacheConfSearch(const FLASHCACHE_CONFIG_SEARCH *criteria,
                                                FLASHCACHE_CONFIG *list, FLASHCACHE_CONFIG **found);

/* Releases a list of entries with all their texts. NULL does nothing. */
VEMOFLASHCACHE_API void VEMOFlashCacheConfigFree(FLASHCACHE_CONFIG *list);

/* Writes one entry (`Next` is not followed) as the section `SectionName` of the configuration file,
 * replacing the section or appending it, and refreshes the temporary copy. IT MAY CANCEL A FLUSH: an entry
 * that was read before one began carries the older FlushState back. config, its SectionName and its SSDUUID
 * are required, refused by code; other texts may be NULL and are stored empty. Returns 0, or -1 (silent for
 * want of memory); nothing is written for a bad argument, nor for a reclaim policy or write mode without a
 * text, which are logged. -1 too when only the refresh failed; the file is changed then. */
VEMOFLASHCACHE_API int VEMOFlashCacheConfigSet(const FLASHCACHE_CONFIG *config);

/* Replaces the temporary copy with a copy of the configuration file, at once and whole. Takes no lock.
 * Returns 0, or -1 (without a configuration file, for one); the old copy then stays. */
VEMOFLASHCACHE_API int VEMOFlashCacheConfigTmpUpdate(void);

/* Removes the entry that matches `criteria` (the first, where several do) and refreshes the temporary copy;
 * with NULL REMOVES THE WHOLE CONFIGURATION FILE and leaves the copy. Returns 0, also when nothing matched;
 * -1 on failure, and also without a configuration file, of which no copy can be made (but 0 with NULL). */
VEMOFLASHCACHE_API int VEMOFlashCacheConfigDelete(const FLASHCACHE_CONFIG_SEARCH *criteria);

/* ---- Serial numbers of SSDs ----------------------------------------------------------------
 * Kept per named section in "/usr/vemo/etc/flashcache_ssd_sn_list.conf", mode 0600, under a lock that
 * is waited for 30 seconds at the most. Missing arguments are refused in the log. */

/* Reads the serial numbers stored for `section` (required) into a new list at *list (required), which the
 * caller releases with the platform's VLIBCSzListFree.
 * Returns 1; 0 without a file or section; -1 on failure, an incomplete section included. */
VEMOFLASHCACHE_API int VEMOFlashcacheConfigSerialListGet(const char *section, struct VLIBC_SZLIST **list);

/* Stores `serials`, the numbers joined by ",", for `section`; both required. Returns 0 or -1 (silent for want
 * of memory). */
VEMOFLASHCACHE_API int VEMOFlashcacheConfigSerialListSet(const char *section, const char *serials);

/* Removes the section (required). Returns 0, also when the file has no such section, or -1, also when there
 * is no file. */
VEMOFLASHCACHE_API int VEMOFlashcacheConfigSerialListDelete(const char *section);

/* Whether an entry of `serials` (NULL for none) is missing among those stored for `section`: 1, or 0. 0 ALSO
 * STANDS FOR EVERY FAILURE, and for nothing stored. */
VEMOFLASHCACHE_API int VEMOFlashcacheConfigSerialListCheck(const char *section,
                                                           const struct VLIBC_SZLIST *serials);

/* Announces a missing write-back cache: an entry in the event log and the notification "SSDCacheMissing".
 * Remembers nothing: each call announces again. Returns 0 when that was done or not called for (the cache
 * is there, or not write-back), -1 on failure; NULL is refused in the log. */
VEMOFLASHCACHE_API int VEMOFlashCacheCheckSendMissingNotification(const FLASHCACHE_CONFIG *config);

/* ---- Run-time knobs ------------------------------------------------------------------------
 * Each reading and writing runs "/sbin/sysctl". Missing arguments and values that name no knob are refused by
 * code; a device path that is not under "/dev/" by code and in the log. */

/* The kernel's name of the cache that pairs these two devices, "<ssd>+<space>" of their short names,
 * as a text that the caller frees. Runs nothing. NULL on failure. */
VEMOFLASHCACHE_API char *VEMOFlashCacheSysctlDevNameGet(const char *ssdPath, const char *spacePath);

/* Reads one knob of the loaded cache into *value. Returns 0 or -1. A NULL value is refused in the log. */
VEMOFLASHCACHE_API int VEMOFlashCacheSysctlGet(FLASHCACHE_SYSCTL knob, const char *ssdPath,
                                               const char *spacePath, int32_t *value);

/* Writes one knob of the loaded cache. Returns 0, or -1 (0x8100 when the kernel did not take the value). */
VEMOFLASHCACHE_API int VEMOFlashCacheDoSysctlSet(FLASHCACHE_SYSCTL knob, int32_t value, const char *ssdPath,
                                                 const char *spacePath);

/* Applies a cache's tuning: dirty threshold and fallow delay where above 0, reclaim policy, fast removal
 * for write-back and crashed write-back, sequential skip; up to five programs. Stops at the first knob that
 * fails; those before it stay written. Returns 0 or -1. */
VEMOFLASHCACHE_API int VEMOFlashCacheSysctlSet(const FLASHCACHE_POLICY *policy, const char *ssdPath,
                                               const char *spacePath);

/* ---- Handle states and attribute ------------------------------------------------------------ */

/* Write the knobs of one handle state, in order, running four or five programs; stop at the first that fails,
 * with those before it written. Return 0 or -1, with codes as for VEMOFlashCacheDoSysctlSet. */
VEMOFLASHCACHE_API int SetFlushState(const char *ssdPath, const char *spacePath);
VEMOFLASHCACHE_API int SetNormalState(const char *ssdPath, const char *spacePath);
VEMOFLASHCACHE_API int SetRepairingState(const char *ssdPath, const char *spacePath);
VEMOFLASHCACHE_API int SetStopWritebackState(const char *ssdPath, const char *spacePath);

/* Enters a handle state, as the four functions above. Returns 0 or -1. Missing paths and the state -1 are
 * refused in the log; other values that are no state silently. */
VEMOFLASHCACHE_API int VEMOFlashCacheHandleStateSet(const char *ssdPath, const char *spacePath,
                                                    FLASHCACHE_HANDLE_STATE state);

/* The handle state that the loaded cache's knobs make up, read with five programs; -1 (Unknown) when they
 * cannot be read or make up none, as they may while another process is changing them. Missing paths are
 * refused in the log. */
VEMOFLASHCACHE_API FLASHCACHE_HANDLE_STATE VEMOFlashCacheHandleStateGet(const char *ssdPath,
                                                                        const char *spacePath);

/* The state's name, a constant; "Unknown" for a value that is no state (logged, but for -1). */
VEMOFLASHCACHE_API const char *VEMOFlashCacheHandleStateStr(FLASHCACHE_HANDLE_STATE state);

/* The loaded cache's attribute, a FLASHCACHE_ATTRIBUTE; -1 on failure. Bad arguments are refused in
 * the log. */
VEMOFLASHCACHE_API FLASHCACHE_ATTRIBUTE VEMOFlashCacheAttributeGet(const char *ssdPath,
                                                                   const char *spacePath);

/* Sets the loaded cache's attribute. FLASHCACHE_ATTRIBUTE_FORCE_REMOVE GIVES UP what cannot be written back.
 * Returns 0 or -1. Bad arguments are refused in the log. */
VEMOFLASHCACHE_API int VEMOFlashCacheAttributeSet(const char *ssdPath, const char *spacePath,
                                                  FLASHCACHE_ATTRIBUTE attribute);

/* ---- Status --------------------------------------------------------------------------------
 * Runs "/sbin/dmsetup" once for each cache device looked at. */

/* Describes the live caches.
 * search: NULL for all, else which one; BY SSD OR SPACE PATH IT MAY BE ANOTHER whose path begins so.
 * *out receives the list (NULL when empty), released with VEMOFlashCacheStatFree.
 * Returns the number of records, or -1. A missing out, another search type or a missing path of the search is
 * refused by code. Without "/dev/mapper" there is no cache and every search gives 0; otherwise a
 * named cache that is not live is a failure (silent by SSD or space path where others are). One cache that
 * cannot be described (a write-through cache never can) fails a query for all. A knob that cannot be read is
 * logged and taken for 0. */
VEMOFLASHCACHE_API int VEMOFlashCacheStatGet(const FLASHCACHE_STAT_SEARCH *search, FLASHCACHE_STAT **out);

/* Releases a list with its texts and sets *list to NULL. NULL does nothing. */
VEMOFLASHCACHE_API void VEMOFlashCacheStatFree(FLASHCACHE_STAT **list);

/* Finds the first cache device whose SSD or volume path BEGINS WITH `path` and writes its path into `out`:
 * "/dev/md2" also finds a cache on "/dev/md20", and "" finds any.
 * Returns 1 found, 0 not found, -1 on failure, also when there is no cache device at all; a bad argument
 * (outSize below 1) is refused by code. */
VEMOFLASHCACHE_API int VEMOFlashcacheGetCachePath(const char *path, char *out, int outSize);

/* Writes the SSD device path of a cache device into `out`. Returns 0, or -1 (0x0600 when the cache is not
 * live); a bad argument (outSize below 1, no cache device path) is refused by code. */
VEMOFLASHCACHE_API int VEMOFlashCacheSSDPathGet(const char *cacheDevPath, char *out, int outSize);

/* Reads the I/O counters of the cache that pairs the devices with these short names (no "/dev/"), or of
 * "/tmp/flashcache_stats" while that exists. Runs nothing.
 * writeMode: FLASHCACHE_WRITE_MODE of the cache; write-through caches have no counters.
 * Returns 0; -1 for a missing argument (silent, no code), an unreadable file or another mode; -2 when the
 * counters do not parse (silent where both lines are there). */
VEMOFLASHCACHE_API int VEMOFlashCacheCountStatGet(const char *ssdName, const char *spaceName,
                                                  FLASHCACHE_WRITE_MODE writeMode,
                                                  FLASHCACHE_COUNT_STAT *out);

/* Adds to *size the size in bytes of each live cache that `search` selects (NULL: all). The caller sets it
 * to 0 first. Returns 0 or -1; a missing size is refused by code. */
VEMOFLASHCACHE_API int VEMOFlashCacheCacheSizeGet(const FLASHCACHE_STAT_SEARCH *search, uint64_t *size);

/* Adds to *bytes the kernel memory that the block metadata of each selected live cache takes. The caller sets
 * it to 0 first. Returns 0, or -1; missing bytes are refused by code. A block size that is neither 4 nor 64
 * KiB fails, and what came before it is added. */
VEMOFLASHCACHE_API int VEMOFlashcacheUsedMemGet(const FLASHCACHE_STAT_SEARCH *search, uint64_t *bytes);

/* The fixed kernel memory in KiB of the first configured cache that matches: 4096 for the original version,
 * 416 for the new one (and without a search), 0 on failure (silent for a version that is none). Runs
 * nothing. */
VEMOFLASHCACHE_API uint32_t VEMOFlashCacheGetCacheMemoryComsuptionKb(const FLASHCACHE_CONFIG_SEARCH *search);

/* Adds to *bytes the kernel memory that all configured caches will need, pin bitmaps included, for which it
 * runs the pin tool; the caller sets it to 0 first, and it is set to 0 when none is configured. Returns 0; -1
 * for missing bytes (refused in the log) and when the configuration cannot be read; the number of configured
 * caches when one of them cannot be reckoned (version -1, no bitmap size), with what came before it added.
 * CACHES OF ANY OTHER VERSION ARE LEFT OUT, which only the log tells. */
VEMOFLASHCACHE_API int VEMOFlashCacheGetTotalMemoryConsumptionByte(uint64_t *bytes);

/* ---- Lifecycle -----------------------------------------------------------------------------
 * NOT TWO OF THESE AT ONCE, by any process, on any caches. They run "/sbin/lsmod", "/sbin/insmod",
 * "/sbin/rmmod", "/sbin/dmsetup", "/sbin/sysctl" and the cache tools "/usr/bin/flashcache_create",
 * "..._load", "..._expand" and "..._destroy", each for as long as it takes. */

/* Whether the kernel module `name` is loaded: 1, or 0 (also when that cannot be told; NULL is refused in the
 * log). Looks for the name and a blank anywhere in what "/sbin/lsmod" prints: the end of a longer name will
 * do. */
VEMOFLASHCACHE_API int VEMOFlashCacheIsKModuleLoad(const char *name);

/* Loads the kernel module `name` from "/lib/modules/<name>.ko" unless it is loaded. Returns 0 or -1; NULL is
 * refused in the log. */
VEMOFLASHCACHE_API int CheckAndInsertSingleModule(const char *name);

/* Loads the three modules that caches need, in order; stops at the first that fails. Returns 0 or -1. */
VEMOFLASHCACHE_API int CheckAndInsertKernelModule(void);

/* The text of a write mode as the cache tools and the configuration know it, a constant; NULL (refused in the
 * log) for a value without one. */
VEMOFLASHCACHE_API const char *FlashCacheWriteModeToStr(FLASHCACHE_WRITE_MODE mode);

/* Builds a new cache device: chooses the name, loads the modules, WIPES THE SSD, runs the creation tool,
 * applies the tuning. THE SSD IS WIPED BEFORE the version, the volume and the size are looked at: a call that
 * fails for one of these has destroyed what the SSD held, a cache with dirty blocks included.
 * VEMOFlashCacheCheckMetadataExist tells beforehand. The configuration entry is the caller's to write
 * (VEMOFlashCacheConfigSet).
 *
 * param: missing paths, size 0 and a CacheDevPath that is no cache device path are refused by code; a write
 *        mode without a text by code and in the log, and so, with the modules loaded, an SSD path that is
 *        not under "/dev/"; all before the wipe.
 *
 * out: NULL, or receives the new cache device path; outSize in bytes, 0 for none.
 *
 * Returns 0 or -1. Nothing is undone once the tool has run: a device that was made stays, also when `out` was
 * too small. A call that succeeds may leave 0x8100 of an SSD that had nothing to wipe. */
VEMOFLASHCACHE_API int VEMOFlashCacheCreate(const FLASHCACHE_CREATE_PARAM *param, char *out, int outSize);

/* Brings up a cache from its SSD, under the first free name, and applies its configured tuning, found by the
 * SSD in the permanent file.
 *
 * out, outSize: as for VEMOFlashCacheCreate. Returns 0 or -1; missing paths are refused in the log. A device
 * that was loaded stays when a later step fails. */
VEMOFLASHCACHE_API int VEMOFlashCacheLoad(const char *ssdPath, const char *spacePath, char *out, int outSize);

/* Takes a cache device down; its SSD keeps the metadata, and with the knob fast_remove at 1 its dirty blocks.
 * A busy device is tried for several times by the tool; if it stays busy, the mounts and the processes that
 * hold it go to the log ("/bin/cat", "/bin/lsof"). Returns 0 or -1; a bad path is refused by code. */
VEMOFLASHCACHE_API int VEMOFlashCacheUnload(const char *cacheDevPath);

/* Whether the SSD carries cache metadata: 1, or 0. 0 ALSO STANDS FOR EVERY FAILURE (NULL is refused in the
 * log): it is no proof that the SSD is empty. */
VEMOFLASHCACHE_API int VEMOFlashCacheCheckMetadataExist(const char *ssdPath);

/* The FLASHCACHE_VERSION of the cache metadata on an SSD, read from the device; -1 when there is none that we
 * know (silent), and on failure. A bad path is refused by code. */
VEMOFLASHCACHE_API FLASHCACHE_VERSION VEMOFlashCacheVersionGet(const char *ssdPath);

/* Wipes the cache metadata on an SSD. ALL THAT LIES IN THAT CACHE ALONE IS LOST.
 * Returns 0 once the tool has run, also when it failed, which 0x8100 in the error slot and the log tell; -1
 * only for a bad path, refused by code. */
VEMOFLASHCACHE_API int VEMOFlashCacheDestroy(const char *ssdPath);

/* Removes a running cache end to end: a write-back cache is flushed first, unless a fast removal is
 * asked for, which drops its dirty blocks; then the device is taken down, the SSD of a write-back
 * cache wiped and, when no cache is left, the kernel modules removed. The configuration entry is the
 * caller's to remove (VEMOFlashCacheConfigDelete). May take hours.
 * A FLUSH THAT IS CANCELLED MEANWHILE DOES NOT STOP THE REMOVAL: the device is taken down and the SSD wiped
 * all the same. What was dirty then has only the kernel, asked to write it back as the device goes, and IS
 * LOST where that does not happen. To be able to stop: VEMOFlashCacheFlush first, and delete only after it
 * returned 1.
 *
 * status: this cache's status record, or NULL to have it looked up (impossible for write-through
 *         caches). fastRemove: nonzero LOSES what has not been written back.
 * Returns 0, or -1 (0x0600 when the cache is not live); a bad path is refused by code. Stops at the first
 * stage that fails and can be called again; a device that the kernel refuses to remove stays up, flushed and
 * still in the state Flush. A wipe or a module removal that fails is only logged. */
VEMOFLASHCACHE_API int VEMOFlashCacheDelete(const char *cacheDevPath, const FLASHCACHE_STAT *status,
                                            int fastRemove);

/* Brings the cache device in front of the volume `spacePath` to the volume's present size. The cache
 * must be in the temporary copy of the configuration, live, and not crashed ("back_crash"). THE DEVICE IS THE
 * FIRST WHOSE PATHS BEGIN WITH `spacePath`: not to be used while another volume's path begins with this
 * one's. Returns 0, also when the sizes were equal; -1 on failure, NULL is refused in the log. */
VEMOFLASHCACHE_API int VEMOFlashCacheExpand(const char *spacePath);

/* ---- Flush ---------------------------------------------------------------------------------
 * Flushing runs "/sbin/dmsetup", and "/sbin/sysctl", "/bin/cp" and "/bin/mv" again and again; progress
 * queries run nothing. */

/* Writes all dirty blocks of a cache back to its volume, in the caller's thread and FOR AS LONG AS IT
 * TAKES; looks every 5 seconds. Records "flushing" in the cache's configuration entry, then "flush_done".
 * The entry must be in the temporary copy, found by the SSD's path.
 * Returns 1 when done (the device stays in the handle state Flush, ready for removal) and for a cache
 * that is not write-back; 0 when cancelled, with the former handle state set again; -1 on failure
 * (0x0600 when the cache is not live), with the record back at "normal" and the former handle state set
 * again as far as that was possible. A bad path is refused by code. Failed write-backs end the flush, unless
 * the attribute is "force-remove": then THE BLOCKS THAT FAIL ARE GIVEN UP and the flush counts as done.
 * WHOEVER RECORDS "normal" CANCELS IT, also by writing back an entry that was read before. */
VEMOFLASHCACHE_API int VEMOFlashCacheFlush(const char *cacheDevPath);

/* Asks the flush of a cache, running in whatever process, to stop; it does so at its next look.
 * Returns 1 when asked, 0 when the flush was done already, -1 otherwise: 0x0600 when the cache is not live,
 * no code when there is no flush to cancel (silent). A bad path is refused by code. A VEMOFlashCacheDelete
 * that waits for this flush GOES ON. */
VEMOFLASHCACHE_API int VEMOFlashCacheFlushCancel(const char *cacheDevPath);

/* Whether flushes log more than they must: 1 when `value` is 0 and "/tmp/cache-debug-remove" exists. */
VEMOFLASHCACHE_API int VEMOFlashCacheIsDebug(int value);

/* Whether the flush state recorded for the cache on this SSD is exactly `state`: 1, or 0 (also when there
 * is no record, logged). An empty record is in no state. */
VEMOFLASHCACHE_API int VEMOFlashCacheIsRemoveInFlushState(const char *ssdPath, FLASHCACHE_FLUSH_STATE state);

/* How far a flush has come, in percent, for the cache on the devices with these short names (no
 * "/dev/"). Not clamped: blocks that became dirty since make it negative.
 * progressState: 0 the removal flush, answered 0 while the recorded flush state is "normal"; 1 another
 *                flush, answered 0 unless it is. The record is looked for under "/dev/<ssdName>": an SSD
 *                deeper below counts as not "normal".
 *
 * Returns the percentage, 100.0 when nothing is left to write back (from
 * 16 million blocks on, perhaps a few), -1.0 on failure; bad arguments are refused in the log. */
VEMOFLASHCACHE_API float VEMOFlashCacheGetFlushProgress(const char *ssdName, const char *spaceName,
                                                        unsigned int progressState);

/* The number of blocks still dirty in the cache on the devices with these short names; -1 on failure. Missing
 * names are refused in the log. */
VEMOFLASHCACHE_API int VEMOFlashCacheDirtyBlockGet(const char *ssdName, const char *spaceName);

/* ---- Power-management flush record ----------------------------------------------------------
 * Whether the power management's flush of a cache has been done, by a key that the callers choose. Kept in
 * "/usr/vemo/etc/flashcache_apm_flush_done.conf"; read from a run-time copy under "/var/run/ssd-cache", which
 * the first question after a boot makes with "/bin/cp". Set before that question, a key is alone in the copy,
 * and the others read as not done until the next boot: ask first. */

/* Records that it has (status 1) or has not (0). Returns 0, or -1 on failure; a bad argument is refused in
 * the log and ANSWERED WITH 0. */
VEMOFLASHCACHE_API int VEMOFlashCacheApmFlushStatusSet(const char *cacheKey, unsigned int status);

/* Whether it has: 1, or 0 (also on every failure; NULL is refused in the log). The first call after a boot
 * makes the run-time copy; where there is no record at all yet and no folder for the copy either, it makes an
 * empty record and fails, and the next call succeeds. */
VEMOFLASHCACHE_API int VEMOFlashCacheIsApmFlushDone(const char *cacheKey);

/* Makes sure that the run-time file exists: a copy of the persistent one, with `runtimeDir` made for it, or
 * both empty. runtimeDir is not made in the second case: without it, the persistent file is made and the call
 * fails. Takes no lock. Returns 0 or -1; a missing path is logged. */
VEMOFLASHCACHE_API int CreateConfigFilesIfNeeded(const char *persistentPath, const char *runtimePath,
                                                 const char *runtimeDir);

/* ---- SSD compatibility ---------------------------------------------------------------------- */

/* Whether the database's section of this name (blanks around it dropped) supports the running appliance and
 * build: 1, or 0 (also on every failure; silent for NULL and for a section that cannot be read). */
VEMOFLASHCACHE_API int VEMOFlashCacheIsSSDSupport(const char *sectionName);

/* Whether the first section whose model begins with `Model` (blanks around it dropped; a text of "" MATCHES
 * EVERY MODEL) and whose capacity is within a tenth of `Size` supports the running appliance and build: 1, or
 * 0 (also on every failure). A missing record or Model and a Size of 0 are refused by code. */
VEMOFLASHCACHE_API int VEMOFlashCacheCheckSSDSupport(const FLASHCACHE_SSD_INFO *ssd);

/* Hands out the database in file order. *list: the caller sets it to NULL and releases it with
 * VEMOFlashCacheSupportSSDFree. Returns the number of entries, 0 without a database; -1 on failure (silent),
 * and then *list is NULL. A missing list is refused by code. */
VEMOFLASHCACHE_API int VEMOFlashCacheSupportSSDGet(FLASHCACHE_SUPPORT_SSD_LIST **list);

/* Releases a list with all its entries and texts. NULL does nothing. */
VEMOFLASHCACHE_API void VEMOFlashCacheSupportSSDFree(FLASHCACHE_SUPPORT_SSD_LIST *list);

/* Replaces the database with a fresh copy from the update server, which is not examined: runs
 * "/usr/bin/wget", with 15 seconds for each connection and answer and as many tries as that program makes,
 * and "mv". Not to be called by two threads of one process at a time. Returns 0, or -1 with the old database
 * in place. */
VEMOFLASHCACHE_API int VEMOFlashCacheSupportSSDUpdate(void);

/* ---- Pinned files ---------------------------------------------------------------------------
 * Files that stay resident in the cache; the work of "/usr/vemo/sbin/vemocachepinfiletool", which every
 * function but ModelSupportPin runs, for as long as it takes. On a model without pinning, the operations on
 * bitmaps and mounts succeed without doing anything, whatever their arguments. Missing arguments are refused
 * in the log. */

/* Whether this appliance model supports pinning: 1 or 0. */
VEMOFLASHCACHE_API int ModelSupportPin(void);

/* Runs the pin tool with one option for the volume mounted at `mountPath`. Returns 0 or -1. */
VEMOFLASHCACHE_API int FlashcacheExecuteCommand(const char *option, const char *mountPath);

/* Pins (`pin` nonzero) or unpins the files of `files`, a list of at most 1023 characters in the pin tool's
 * own form, on the volume mounted at `mountPath`; both required, a longer list is refused in the log. Runs
 * the tool on a model without pinning, too. Returns 0 or -1. */
VEMOFLASHCACHE_API int FlashCachePinAddOrRemoveFiles(const char *files, const char *mountPath, int pin);

/* The same by name. */
VEMOFLASHCACHE_API int VEMOFlashCachePinAddFiles(const char *files, const char *mountPath);
VEMOFLASHCACHE_API int VEMOFlashCachePinRemoveFiles(const char *files, const char *mountPath);

/* Delete the volume's pin bitmap; send it to the kernel. Return 0 or -1. */
VEMOFLASHCACHE_API int VEMOFlashCachePinDeleteVolumeBitmap(const char *mountPath);
VEMOFLASHCACHE_API int VEMOFlashCachePinSendVolumeBitmap(const char *mountPath);

/* Tell the pin tool that the volume was mounted, or unmounted. Return 0 or -1. */
VEMOFLASHCACHE_API int VEMOFlashCachePinHandleVolumeMount(const char *mountPath);
VEMOFLASHCACHE_API int VEMOFlashCachePinHandleVolumeUmount(const char *mountPath);

/* The size in bytes of the volume's pin bitmap, into *bytes (required). Returns 0, or -1, also on a model
 * without pinning. */
VEMOFLASHCACHE_API int VEMOFlashCachePinGetBitmapSizeByte(const char *mountPath, uint64_t *bytes);

/* Whether the volume supports pinning: 1, or 0 (also on every failure, and on a model without pinning). */
VEMOFLASHCACHE_API int VEMOFlashCachePinIsVolumeSupport(const char *mountPath);

/* Whether the file is pinned, into *isAdded (1 or 0); both required. Runs the tool on a model without
 * pinning, too. Returns 0, or -1 with *isAdded as it was: give it a value first, since it goes to the debug
 * log in any case. */
VEMOFLASHCACHE_API int VEMOFlashCachePinIsFileAdded(const char *filePath, uint32_t *isAdded);

/* ---- File statistics ------------------------------------------------------------------------
 * A run walks the files of a volume and counts them by age, that of the newest of their times. One run at
 * a time, on the whole appliance: the marker file "/tmp/flashcache_file_statistics_processing" tells the
 * others. The marker of a run that was killed stays and REFUSES EVERY FURTHER RUN until it is removed. A run
 * takes as long as the walk over all files does, and runs "/usr/vemo/bin/vemoiscsiep". */

/* Runs and writes "/etc/flashcache_file_statistics": files and bytes for each of the last seven days.
 * volumeName: may be NULL (logged). volumePath: the volume's mount path, required, refused by code.
 * Returns 0, or -1: 0x0900 or 0x0B00 for the file (both silent), or no code. A root of the walk that cannot
 * be walked is only logged. */
VEMOFLASHCACHE_API int FlashcacheFileStatistics(const char *volumeName, const char *volumePath);

/* Runs and writes the section `volumeId` of the same file, with the bytes of four age levels; other volumes'
 * sections stay. Both required, refused by code. Returns 0, or -1 (silent for want of memory). */
VEMOFLASHCACHE_API int FlashcacheDoStatistics(const char *volumeId, const char *volumePath);

/* Reads back what FlashcacheFileStatistics wrote.
 * days: array of dayCount (at least 7) entries, filled from today on, as many as the file has; the others
 * stay as they were. volume, time: buffers of volumeSize and timeSize bytes, NULL or 0 where not wanted.
 * Returns 0, or -1: 0x0900 (silent), or no code for a file that is not there or does not parse; what came
 * before the line that does not is written then. Missing days, fewer than 7 and negative sizes are refused by
 * code. */
VEMOFLASHCACHE_API int FlashcacheFileStatisticsGetAndParse(FLASHCACHE_FILE_STAT_DAY *days, int dayCount,
                                                           char *volume, int volumeSize, char *time,
                                                           int timeSize);

/* Whether a run is in progress: 1 or 0; the marker of a run that died does not count. */
VEMOFLASHCACHE_API int FlashcacheFileStatisticsIsProcessing(void);

/* The same, and the id of the volume that a FlashcacheDoStatistics run walks into `volumeId`; NULL when not
 * wanted. 0 for a run of FlashcacheFileStatistics, which has none, when an id is wanted. The id is also
 * written for the marker of a run that died, answered with 0. */
VEMOFLASHCACHE_API int FlashcacheCheckFileStatisticsProgressFile(char *volumeId, int size);

/* Whether statistics exist and can be read: 1 or 0. */
VEMOFLASHCACHE_API int FlashcacheFileStatisticsDataIsExist(void);

#ifdef __cplusplus
}
#endif

#endif
