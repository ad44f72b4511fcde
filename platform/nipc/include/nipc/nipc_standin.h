/*
 * Controls of the stand-in libnipc.so.1 that is built off the device: they play the IPC service for tests and
 * tools. The device's own library has none of them, so product code does not include this file.
 *
 * The stand-in keeps its properties in the process's memory; every call may come from any thread.
 */
#ifndef NIPC_NIPC_STANDIN_H
#define NIPC_NIPC_STANDIN_H

#include <stdint.h>

#include "nipc/nipc.h"

#ifdef __cplusplus
extern "C" {
#endif

/* What the stand-in answers by itself. */
enum nipc_standin_status {
  NIPC_STANDIN_OK = 0,
  NIPC_STANDIN_BAD_HANDLE = 1,  /* null, or not open */
  NIPC_STANDIN_NO_PROPERTY = 2, /* nobody has set it */
  NIPC_STANDIN_INVALID = 3,     /* a null text or output */
  NIPC_STANDIN_NO_MEMORY = 4
};

/* Sets a text property of a service, replacing an older value.
 * NIPC_STANDIN_OK, _INVALID or _NO_MEMORY. */
NIPC_API uint32_t NipcStandinSetProperty(const char* service, const char* property, const char* value);
/* Removes it. NIPC_STANDIN_OK, _NO_PROPERTY or _INVALID. */
NIPC_API uint32_t NipcStandinRemoveProperty(const char* service, const char* property);

/* While non-zero, NipcOpen returns null. */
NIPC_API void NipcStandinFailOpen(int fail);
/*
 * While non-zero, NipcGetStringProperty answers `status`. A property that exists is handed out all the same,
 * as callers have to free the text of a failed read too.
 */
NIPC_API void NipcStandinFailReads(uint32_t status);
/* What NipcClose answers for a handle that it closed; 0 at load. */
NIPC_API void NipcStandinSetCloseStatus(uint32_t status);

/* Connections that are open, and texts handed out and not freed yet. */
NIPC_API uint32_t NipcStandinOpenHandles(void);
NIPC_API uint32_t NipcStandinUnfreedStrings(void);
/* The name that the last NipcOpen took, "" before it. Valid until the next one. */
NIPC_API const char* NipcStandinService(void);
/* Property reads so far, failed ones included. */
NIPC_API uint32_t NipcStandinReadCount(void);

/* An event as a host receives it, for NipcGetEventSource and NipcGetEventName. Null without memory or text.
 */
NIPC_API void* NipcStandinCreateEvent(const char* source, const char* name);
NIPC_API void NipcStandinFreeEvent(void* event);

/* As at load: no property, nothing fails, counts at 0. Open handles are forgotten and freed. */
NIPC_API void NipcStandinReset(void);

#ifdef __cplusplus
}
#endif

#endif
