/* The appliance platform's notifications, libvemosysnotify.so.6: the operation that we call. */
#ifndef VEMOFLASHCACHE_PLATFORM_VEMOSYSNOTIFY_H
#define VEMOFLASHCACHE_PLATFORM_VEMOSYSNOTIFY_H

#include "platform/vemocore.h"

#ifdef __cplusplus
extern "C" {
#endif

/* Sends the system notification `name` with the placeholder values of `hash`. 0, else failed. */
int VEMOSysNotifySendNotifiction(const char *name, VLIBC_SZHASH **hash);

#ifdef __cplusplus
}
#endif

#endif
