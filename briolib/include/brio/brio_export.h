/** @file
 * Linkage of the exported C interface of libbrio_module.so.1. */
#ifndef BRIO_BRIO_EXPORT_H
#define BRIO_BRIO_EXPORT_H

/** Makes a name visible to hosts. */
#define BRIO_API __attribute__((visibility("default")))

#ifdef __cplusplus
/** Begins declarations with C linkage. */
#define BRIO_EXTERN_C_BEGIN extern "C" {
/** Ends them. */
#define BRIO_EXTERN_C_END }
#else
/** Begins declarations with C linkage. */
#define BRIO_EXTERN_C_BEGIN
/** Ends them. */
#define BRIO_EXTERN_C_END
#endif

#endif
