/* tellarok: common definitions of every family header.
 *
 * Every plain export uses the standard Windows calling convention (KYAPI: the callee removes
 * its arguments) and a fixed argument list. Status results are HRESULTs: success when not
 * negative. The headers compile as C and as C++; KY_CHECK_SIZE / KY_CHECK_OFFSET pin the
 * layout of every shared record at compile time. */
#ifndef TELLAROK_KY_BASE_H
#define TELLAROK_KY_BASE_H

#include <windows.h>
#include <stddef.h>

#ifdef __cplusplus
#define KY_EXTERN_C extern "C"
#define KY_BEGIN_DECLS extern "C" {
#define KY_END_DECLS }
#define KY_STATIC_ASSERT(cond, msg) static_assert(cond, msg)
#else
#define KY_EXTERN_C
#define KY_BEGIN_DECLS
#define KY_END_DECLS
#define KY_STATIC_ASSERT(cond, msg) _Static_assert(cond, msg)
#endif

#define KYAPI __stdcall
#define KYAPI_CDECL __cdecl

/* Inside the library nothing is imported; clients import through the import libraries. */
#ifdef TELLAROK_BUILD
#define KY_IMPORT
#else
#define KY_IMPORT __declspec(dllimport)
#endif

/* KY_FUNC(type) declares a stdcall export, KY_FUNC_CDECL(type) a variable-argument one. */
#define KY_FUNC(type) KY_EXTERN_C KY_IMPORT type KYAPI
#define KY_FUNC_CDECL(type) KY_EXTERN_C KY_IMPORT type KYAPI_CDECL

#define KY_CHECK_SIZE(type, size) KY_STATIC_ASSERT(sizeof(type) == (size), #type " size")
#define KY_CHECK_OFFSET(type, field, off) \
  KY_STATIC_ASSERT(offsetof(type, field) == (off), #type "." #field " offset")

#endif
