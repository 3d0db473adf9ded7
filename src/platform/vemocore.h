/* The appliance platform's core library, libvemocore.so.6: the operations that we call.
 *
 * Lists and hashes that a call may replace go by address. Lists, hashes and process records belong to
 * the caller; texts got from them live as long as they do. Failures set the calling thread's error slot. */
#ifndef VEMOFLASHCACHE_PLATFORM_VEMOCORE_H
#define VEMOFLASHCACHE_PLATFORM_VEMOCORE_H

#include <stdio.h>
#include <sys/types.h>

#ifdef __cplusplus
extern "C" {
#endif

/* The codes of the error slot that we set or test. */
enum {
    VLIBC_ERR_NOT_FOUND = 0x0600,
    VLIBC_ERR_OPEN_FAILED = 0x0900, /* also: the file does not exist */
    VLIBC_ERR_SHORT_WRITE = 0x0B00,
    VLIBC_ERR_BAD_PARAMETER = 0x0D00,
    VLIBC_ERR_SECTION_NOT_FOUND = 0x2000,
    VLIBC_ERR_COMMAND_FAILED = 0x8100
};

/* ---- Error slot: per thread; a call that succeeds leaves it as it was ---- */
void VLIBCErrSetEx(int code, const char *file, int line);
int VLIBCErrGet(void);
const char *VLIBCErrorGetFile(void);
int VLIBCErrorGetLine(void);

/* ---- String lists ---- */
typedef struct VLIBC_SZLIST VLIBC_SZLIST; /* begins with its item count, an int */
VLIBC_SZLIST *VLIBCSzListAlloc(int capacity); /* NULL on failure */
const char *VLIBCSzListGet(const VLIBC_SZLIST *list, int index); /* NULL past the end */
int VLIBCSzListFind(const VLIBC_SZLIST *list, const char *text); /* index, -1 absent */
void VLIBCSzListFree(VLIBC_SZLIST *list);

/* Appends the pieces of `text` between any of `separators`. Number of pieces, -1 on failure. */
int VLIBCStrTok(const char *text, const char *separators, VLIBC_SZLIST **list);

/* ---- String hashes ---- */
typedef struct VLIBC_SZHASH VLIBC_SZHASH;
VLIBC_SZHASH *VLIBCSzHashAlloc(int capacity); /* NULL on failure */
int VLIBCSzHashSetValue(VLIBC_SZHASH **hash, const char *key, const char *value); /* 0, -1 */
const char *VLIBCSzHashGetValue(const VLIBC_SZHASH *hash, const char *key); /* NULL absent */
void VLIBCHashRemoveAll(VLIBC_SZHASH *hash);
void VLIBCSzHashFree(VLIBC_SZHASH *hash);

/* ---- Section files ----
 * `format` lays out one written line from key and value; NULL: "%s=%s\n". */
int VLIBCFileEnumSection(const char *file, VLIBC_SZLIST **list); /* number of sections, negative on error */
/* Number of keys, 0 for a missing section, negative on error. */
int VLIBCFileGetSection(const char *file, const char *section, VLIBC_SZHASH **hash);
/* Replaces keys of an existing section. `newName` is always NULL here. Keys written, negative on error. */
int VLIBCFileSetSection(const char *file, const char *section, const char *newName, const VLIBC_SZHASH *hash,
                        const char *format);
int VLIBCFileAddSection(const char *file, const char *section, const VLIBC_SZHASH *hash,
                        const char *format); /* positive; makes the file */
/* 1 removed, 0 not there, negative on error. */
int VLIBCFileRemoveSection(const char *file, const char *section);

/* ---- Key-value files: lines of key=value ---- */
int VLIBCFileGetKeyValue(const char *file, const char *key, char *buffer, int size,
                         int flag); /* positive found, 0 absent, negative on error */
/* 1, -1; makes the file. */
int VLIBCFileSetKeyValue(const char *file, const char *key, const char *value, int flag);
int VLIBCFileRemoveKey(const char *file, const char *key); /* 1 removed, 0 not there, -1 */

/* ---- Files and texts ---- */
int VLIBCFileExist(const char *path);    /* 1 or 0 */
int VLIBCFileCheckDir(const char *path); /* 1 or 0 */
int VLIBCFileTouch(const char *path);    /* 0, -1 */
/* 0, -1; waits at most `seconds`. */
int VLIBCFileLockTimeByFile(const char *path, int mode, int seconds, int *fd);
int VLIBCFileUnlockByFile(int fd); /* 0, -1; the descriptor stays open */
int VLIBCStrTrimSpace(char *text, int flag); /* trims both ends in place; 0, -1 */

/* ---- Processes and programs ---- */
typedef struct VLIBC_PROC {
    pid_t pid;
    char *cmd; /* the command text */
} VLIBC_PROC;
VLIBC_PROC *VLIBCProcGetByPid(pid_t pid); /* NULL on failure */
void VLIBCProcFree(VLIBC_PROC *proc);

/* The option word of every VLIBCExecl call. */
enum { VLIBC_EXEC_WAIT = 0xBB };

/* Runs a program to its end, no shell; the arguments follow, closed by NULL. Its exit status;
 * -1 not started; 128 + signal. */
int VLIBCExecl(const char *program, int option, ... /* const char *, NULL */);
/* Starts a program and reads its standard output (mode "r") or its standard error alone ("rE").
 * NULL when it cannot be started. */
FILE *VLIBCPopen(const char *program, const char *mode, ... /* const char *, NULL */);
int VLIBCPclose(FILE *stream); /* closes, waits; the exit status as of VLIBCExecl */

/* Writes an entry of the system event log. */
int VEMOLogSet1(int type, int level, unsigned event, const char *text, const char *arg1, const char *arg2,
                const char *arg3);

#ifdef __cplusplus
}
#endif

#endif
