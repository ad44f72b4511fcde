/* Interface of the device's IPC library, libnipc.so.1, as far as this module uses it. */
#ifndef NIPC_NIPC_H
#define NIPC_NIPC_H

#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#endif

#define NIPC_API __attribute__((visibility("default")))

/* A connection under the caller's service name, or null when the service is not available. */
NIPC_API void* NipcOpen(const char* service);
/* Closes a connection; 0, or the service's error. */
NIPC_API uint32_t NipcClose(void* handle);
/* Reads a text property of another service; 0 with `*value` to be freed by NipcFreeString, or the service's
 * error. */
NIPC_API uint32_t NipcGetStringProperty(void* handle, const char* service, const char* property,
                                        char** value);
/* Frees a property's text; null is ignored. */
NIPC_API void NipcFreeString(char* value);
/* Name and source of an event that the host received; they live as long as the event. */
NIPC_API const char* NipcGetEventName(const void* event);
NIPC_API const char* NipcGetEventSource(const void* event);

#ifdef __cplusplus
}
#endif

#endif
