/* Linkage of the exported C interface of libbrio_module.so.1. */
#ifndef BRIO_BRIO_EXPORT_H
#define BRIO_BRIO_EXPORT_H

#define BRIO_API __attribute__((visibility("default")))

#ifdef __cplusplus
#define BRIO_EXTERN_C_BEGIN extern "C" {
#define BRIO_EXTERN_C_END }
#else
#define BRIO_EXTERN_C_BEGIN
#define BRIO_EXTERN_C_END
#endif

#endif
