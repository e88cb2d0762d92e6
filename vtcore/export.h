// Symbol visibility for the VTCore libraries. Everything is hidden by
// default; exported names are marked VTCORE_EXPORT (core) or
// VTCORE_UI_EXPORT (vtcore-ui).
#pragma once

#define VTCORE_EXPORT __attribute__((visibility("default")))
#define VTCORE_UI_EXPORT __attribute__((visibility("default")))

#ifdef __cplusplus
#define VTCORE_EXTERN_C_BEGIN extern "C" {
#define VTCORE_EXTERN_C_END }
#else
#define VTCORE_EXTERN_C_BEGIN
#define VTCORE_EXTERN_C_END
#endif
