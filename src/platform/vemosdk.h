/* The appliance platform's SDK, libvemosdk.so.6: the operation that we call. */
#ifndef VEMOFLASHCACHE_PLATFORM_VEMOSDK_H
#define VEMOFLASHCACHE_PLATFORM_VEMOSDK_H

#include "platform/vemocore.h"

#ifdef __cplusplus
extern "C" {
#endif

/* Appends the names of the shares of the kinds in `mask` on the volume mounted at `mountPath`.
 * Their number, -1 on failure. */
int VEMOShareEnumByMntPathAndEnumType(const char *mountPath, int mask, VLIBC_SZLIST **list);

#ifdef __cplusplus
}
#endif

#endif
